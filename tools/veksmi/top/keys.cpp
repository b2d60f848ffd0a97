// SPDX-License-Identifier: Apache-2.0
#include "keys.h"

#include "canvas.h"
#include "readings/value.h"

#include <algorithm>
#include <fmt/format.h>

namespace top {
namespace {

constexpr std::size_t longest_filter = 64;
constexpr std::chrono::milliseconds intervals[] = {shortest_interval,
                                                   std::chrono::milliseconds(200),
                                                   std::chrono::milliseconds(500),
                                                   std::chrono::seconds(1),
                                                   std::chrono::seconds(2),
                                                   std::chrono::seconds(5),
                                                   std::chrono::seconds(10),
                                                   std::chrono::seconds(30),
                                                   std::chrono::minutes(1),
                                                   std::chrono::minutes(5),
                                                   longest_interval};

void scroll(model &m, const layout &now, long rows)
{
    const auto most = static_cast<long>(now.process_count) - static_cast<long>(now.process_rows);
    const long first = static_cast<long>(m.first_process) + rows;
    m.first_process = static_cast<std::size_t>(std::clamp(first, 0L, std::max(most, 0L)));
}

void step_gpu(model &m, long places)
{
    const auto &gpus = m.shown().gpus;
    if (gpus.empty())
        return;
    const auto here = std::find_if(gpus.begin(), gpus.end(), [&](const gpu_now &g) { return g.index == m.selected; });
    const long place = here == gpus.end() ? 0 : here - gpus.begin() + places;
    m.selected = gpus[static_cast<std::size_t>(std::clamp(place, 0L, static_cast<long>(gpus.size()) - 1))].index;
}

void move(model &m, const layout &now, long across, long down)
{
    if (m.at == focus::processes)
        return scroll(m, now, down);
    const long a_row = m.in_depth ? 1 : now.gpu_columns;
    step_gpu(m, across + down * a_row);
}

void sort_by(model &m, column by)
{
    if (m.wanted.sort == by) {
        m.wanted.reversed = !m.wanted.reversed;
        return;
    }
    m.wanted.then_sort = m.wanted.sort;
    m.wanted.sort = by;
    m.wanted.reversed = false;
}

void change_interval(model &m, bool longer)
{
    const auto now = m.wanted.interval;
    const auto *const next = std::find_if(std::begin(intervals), std::end(intervals), [&](auto i) { return i > now; });
    const auto *const here = std::find_if(std::begin(intervals), std::end(intervals), [&](auto i) { return i >= now; });
    if (longer && next != std::end(intervals))
        m.wanted.interval = *next;
    if (!longer && here != std::begin(intervals))
        m.wanted.interval = *(here - 1);
}

void click(model &m, const layout &now, const press &pressed)
{
    const auto lies_in = [&](const region &r) {
        return pressed.x >= r.x && pressed.x < r.x + r.width && pressed.y >= r.y && pressed.y < r.y + r.height;
    };
    const auto hit = std::find_if(now.regions.begin(), now.regions.end(), lies_in);
    if (hit == now.regions.end())
        return;
    m.at = hit->of_processes ? focus::processes : focus::gpus;
    if (hit->sort)
        sort_by(m, *hit->sort);
    if (!hit->gpu)
        return;
    m.in_depth = !m.in_depth && m.selected == *hit->gpu;
    m.selected = *hit->gpu;
}

// False when the key means what it always does.
bool type_filter(model &m, const press &pressed)
{
    switch (pressed.what) {
    case key::character:
        if (pressed.character == 0x15) // Ctrl-U
            m.filter.clear();
        else if (pressed.character >= 0x20 && m.filter.size() < longest_filter)
            m.filter += readings::printable(encoded(pressed.character));
        break;
    case key::backspace:
        while (!m.filter.empty() && (static_cast<unsigned char>(m.filter.back()) & 0xc0) == 0x80)
            m.filter.pop_back();
        if (!m.filter.empty())
            m.filter.pop_back();
        break;
    case key::escape:
        m.filter.clear();
        m.typing_filter = false;
        break;
    case key::enter:
        m.typing_filter = false;
        break;
    default:
        return false;
    }
    m.first_process = 0;
    return true;
}

template <typename Value, std::size_t Count>
Value next_of(const Value (&values)[Count], Value now)
{
    const auto *const here = std::find(std::begin(values), std::end(values), now);
    return here == std::end(values) || here + 1 == std::end(values) ? values[0] : *(here + 1);
}

outcome type(model &m, const press &pressed, glyphs fit)
{
    constexpr glyphs sets[] = {glyphs::braille, glyphs::blocks, glyphs::ascii};
    switch (pressed.character) {
    case 'q':
    case 'Q':
        return outcome::quit;
    case 'h':
    case '?':
        m.helping = true;
        break;
    case 'p':
    case ' ':
        m.pause(!m.paused());
        break;
    case 's':
        sort_by(m, static_cast<column>((static_cast<std::size_t>(m.wanted.sort) + 1) % column_count));
        break;
    case 'r':
        m.wanted.reversed = !m.wanted.reversed;
        break;
    case '/':
        m.typing_filter = true;
        break;
    case '+':
    case '-':
        change_interval(m, pressed.character == '+');
        break;
    case 't':
        m.wanted.span = next_of(spans, m.wanted.span);
        break;
    case 'g':
        m.wanted.drawn_with = next_of(sets, m.wanted.drawn_with.value_or(fit));
        break;
    default:
        break;
    }
    return outcome::go_on;
}

} // namespace

const std::vector<key_help> all_keys = {
    {"arrows", "choose a GPU, or scroll the processes"},
    {"Enter Esc", "one GPU in depth, and back to all"},
    {"Tab", "to the processes, and back to the GPUs"},
    {"s r", "sort by the next column, the present one then second; reverse"},
    {"/", "show only processes with a text; Enter keeps it, Esc drops it"},
    {"p", "hold the screen still; reading goes on"},
    {"+ -", "longer, shorter interval"},
    {"t", "time across a chart: as it fits, 5, 15, 60 minutes"},
    {"g", "draw with braille, blocks or ASCII"},
    {"mouse", "click a GPU, twice to open it, or a heading; wheel scrolls"},
    {"h q", "this help; quit"},
};

outcome apply(const press &pressed, const layout &now, glyphs fit, model &m)
{
    m.word.clear();
    if (m.helping) {
        m.helping = pressed.what == key::redraw;
        return pressed.what == key::character && pressed.character == 'q' ? outcome::quit : outcome::go_on;
    }
    if (m.typing_filter && type_filter(m, pressed))
        return outcome::go_on;
    const long page = static_cast<long>(std::max<std::size_t>(now.process_rows, 1));
    switch (pressed.what) {
    case key::character:
        return type(m, pressed, fit);
    case key::up:
    case key::down:
        move(m, now, 0, pressed.what == key::up ? -1 : 1);
        break;
    case key::left:
    case key::right:
        move(m, now, pressed.what == key::left ? -1 : 1, 0);
        break;
    case key::page_up:
    case key::page_down:
        scroll(m, now, pressed.what == key::page_up ? -page : page);
        break;
    case key::wheel_up:
    case key::wheel_down:
        scroll(m, now, pressed.what == key::wheel_up ? -3 : 3);
        break;
    case key::enter:
        m.in_depth = !m.in_depth;
        break;
    case key::escape:
    case key::backspace:
        if (m.in_depth)
            m.in_depth = false;
        else
            m.filter.clear();
        break;
    case key::tab:
        m.at = m.at == focus::gpus ? focus::processes : focus::gpus;
        break;
    case key::click:
        click(m, now, pressed);
        break;
    case key::redraw:
        break;
    }
    return outcome::go_on;
}

std::string key_line(int width, const model &m)
{
    if (m.typing_filter)
        return "filter: " + m.filter + "_";
    if (m.helping)
        return "any key: back";
    std::string line;
    for (const char *each : {"q quit", "h help", "arrows", "Tab", "s sort", "/ filter", "p pause", "+ - interval",
                             "Enter depth", "t time", "g glyphs"}) {
        const std::string longer = line.empty() ? each : fmt::format("{}  {}", line, each);
        if (width_of(longer) > width)
            break;
        line = longer;
    }
    return line;
}

} // namespace top
