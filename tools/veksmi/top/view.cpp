// SPDX-License-Identifier: Apache-2.0
#include "view.h"

#include "panel.h"
#include "readings/units.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace top {
namespace {

constexpr int narrowest_panel = 36, lowest_panel = 4;
constexpr std::size_t most_panels = 4;

std::string interval_text(std::chrono::milliseconds interval)
{
    return fmt::format("{:.4g} s", static_cast<double>(interval.count()) / 1000);
}

class painter {
public:
    painter(const model &m, int width, int height, glyphs set, bool interactive)
        : m_(m), out_{canvas(width, height, set == glyphs::ascii), {}}, pen_(m, out_.cells, set), set_(set),
          interactive_(interactive)
    {}

    picture paint() &&
    {
        const int width = out_.cells.width(), height = out_.cells.height();
        header(width);
        const int last = interactive_ ? height - 1 : height;
        if (interactive_)
            out_.cells.put(0, height - 1, key_line(width, m_), m_.typing_filter ? heading : plain, width);
        if (m_.helping)
            help({0, 1, width, last - 1});
        else if (m_.shown().gpus.empty())
            out_.cells.put(0, 2, m_.shown().any ? "no GPU found" : "asking the GPUs", heading);
        else
            body({0, 1, width, last - 1});
        return std::move(out_);
    }

private:
    void header(int width)
    {
        const std::size_t count = m_.shown().gpus.size();
        std::string text = fmt::format("veksmi top  {}  {} GPU{}  every {}",
                                       m_.shown().any ? readings::time_of_day(m_.shown().told) : "--:--:--", count,
                                       count == 1 ? "" : "s", interval_text(m_.wanted.interval));
        if (m_.wanted.span.count() > 0)
            text += fmt::format("  {} min across", m_.wanted.span.count() / 60);
        if (!m_.filter.empty() && !m_.typing_filter)
            text += "  filter: " + m_.filter;
        const int x = out_.cells.put(0, 0, text, heading, width);
        if (m_.paused())
            out_.cells.put(x + 2, 0, "PAUSED", inverse, width - x - 2);
        else if (!m_.word.empty())
            out_.cells.put(x + 2, 0, m_.word, warning, width - x - 2);
    }

    void help(area where)
    {
        int y = where.y + 1;
        for (const key_help &each : all_keys) {
            out_.cells.put(where.x + 1, y, each.keys, heading, 10);
            out_.cells.put(where.x + 12, y++, each.what, plain, where.width - 12);
        }
    }

    void body(area where)
    {
        const gpu_now *one = m_.gpu(m_.selected);
        const bool alone = one != nullptr && (m_.in_depth || m_.shown().gpus.size() == 1);
        const int rows = process_rows(where.height);
        const area above = {where.x, where.y, where.width, where.height - rows};
        if (alone) {
            pen_.panel(*one, above, false);
            out_.where.regions.push_back({above.x, above.y, above.width, above.height, one->index});
        } else if (!grid(above)) {
            list(above);
        }
        processes({where.x, where.y + above.height, where.width, rows},
                  alone ? std::optional(one->index) : std::nullopt);
    }

    // Where there is little room, the processes get some when they are gone to.
    int process_rows(int height) const
    {
        if (height >= 10)
            return std::clamp(height / 4, 3, 12);
        return m_.at == focus::processes ? height / 2 : height < 9 ? 0 : 2;
    }

    // Two to four GPUs side by side; false when there is no room.
    bool grid(area where)
    {
        const auto &gpus = m_.shown().gpus;
        if (gpus.size() > most_panels)
            return false;
        const int across = where.width >= 2 * narrowest_panel ? 2 : 1;
        const int count = static_cast<int>(gpus.size()), rows = (count + across - 1) / across;
        const int width = (where.width + 1) / across, height = where.height / rows;
        if (height < lowest_panel || where.width < narrowest_panel)
            return false;
        out_.where.gpu_columns = across;
        for (int i = 0; i < count; ++i) {
            const gpu_now &g = gpus[static_cast<std::size_t>(i)];
            const area one = {where.x + i % across * width, where.y + i / across * height, width - 1, height};
            pen_.panel(g, one, is_chosen(g));
            out_.where.regions.push_back({one.x, one.y, one.width, one.height, g.index});
        }
        return true;
    }

    bool is_chosen(const gpu_now &g) const { return interactive_ && g.index == m_.selected && m_.at == focus::gpus; }

    // ---- a line each

    // Where the parts of a line begin; 0 is not shown.
    struct columns {
        int model = 0, load = 0, memory = 0, figures = 0, spark = 0;
    };
    static constexpr int value_width = 9, load_width = 5;

    columns columns_for(int width) const
    {
        columns c;
        int x = 4;
        if (width >= 76) {
            c.model = x;
            x += 13;
        }
        constexpr int figure_width = 10;
        const int figures = width >= 130 ? 5 : width >= 100 ? 4 : width >= 76 ? 2 : width >= 50 ? 1 : 0;
        const int left = width - x - figures * figure_width - 2 * value_width - load_width + 2;
        c.spark = std::clamp(left / 2, 2, 60);
        c.load = x;
        c.memory = c.load + c.spark + load_width + 1;
        c.figures = figures == 0 ? 0 : c.memory + c.spark + value_width + 2;
        return c;
    }

    void list(area where)
    {
        const auto &gpus = m_.shown().gpus;
        const columns c = columns_for(where.width);
        const auto rows = static_cast<std::size_t>(std::max(where.height - 1, 1));
        const auto here = std::find_if(gpus.begin(), gpus.end(), [&](auto &g) { return g.index == m_.selected; });
        const auto place = static_cast<std::size_t>(here == gpus.end() ? 0 : here - gpus.begin());
        const std::size_t first = place / rows * rows;
        const std::size_t end = std::min(first + rows, gpus.size());
        list_heading(c, where, end - first == gpus.size() ? "" : fmt::format("{}-{}/{}", first, end - 1, gpus.size()));
        for (std::size_t i = first; i < end; ++i)
            line(gpus[i], c, {where.x, where.y + 1 + static_cast<int>(i - first), where.width, 1});
    }

    void list_heading(const columns &c, area where, const std::string &part)
    {
        out_.cells.put(where.x, where.y, "GPU", heading);
        if (c.model > 0)
            out_.cells.put(c.model, where.y, "MODEL", heading);
        out_.cells.put(c.load, where.y, "LOAD", heading);
        out_.cells.put(c.memory, where.y, "MEMORY", heading);
        int x = c.figures;
        for (const char *name : {"TEMP", "POWER", "CLOCK", "FAN", "MEM CLK"}) {
            if (c.figures > 0 && x + 9 <= where.width)
                out_.cells.put_right(x + 9, where.y, name, heading);
            x += 10;
        }
        if (!part.empty())
            out_.cells.put(c.load + 6, where.y, part, plain, c.memory - c.load - 7);
    }

    void line(const gpu_now &g, const columns &c, area where)
    {
        const int y = where.y;
        out_.cells.put(where.x, y, fmt::format("{}{:>2}", is_chosen(g) ? ">" : " ", g.index), heading);
        if (c.model > 0)
            out_.cells.put(c.model, y, g.model.empty() ? g.bus_id : g.model, plain, 12);
        pen_.spark(g, series::load, c.load, y, c.spark);
        out_.where.regions.push_back({where.x, y, where.width, 1, g.index});
        if (g.state != readings::gpu_state::ok) {
            out_.cells.put(c.load + c.spark + 1, y, state_text(g, m_.shown().told), look_of(g),
                           where.width - c.load - c.spark - 1);
        } else {
            out_.cells.put_right(c.load + c.spark + load_width, y, value_text(g, series::load));
            pen_.spark(g, series::memory, c.memory, y, c.spark);
            out_.cells.put_right(c.memory + c.spark + value_width + 1, y, value_text(g, series::memory));
            figures(g, c, where);
        }
        if (is_chosen(g))
            out_.cells.paint(where.x, y, 3, inverse);
    }

    void figures(const gpu_now &g, const columns &c, area where)
    {
        int x = c.figures;
        for (const series of :
             {series::temperature, series::power, series::graphics_clock, series::fan, series::memory_clock}) {
            if (x == 0 || x + 9 > where.width)
                return;
            const look as = look_of(g, of);
            out_.cells.put_right(x + 9, where.y, (as == plain ? "" : "!") + value_text(g, of), as);
            x += 10;
        }
    }

    // ---- processes

    struct process_column {
        const char *name;
        int width; // 0: what is left
        column what;
        bool right;
    };
    static constexpr process_column process_columns[] = {
        {"GPU", 6, column::gpu, true},         {"PID", 9, column::pid, true},
        {"USER", 10, column::user, false},     {"MEMORY", 10, column::memory, true},
        {"ALL", 10, column::all_memory, true}, {"COMMAND", 0, column::command, false},
    };

    // As sorted by it: 1 or 2, and which way.
    std::string mark_of(column c) const
    {
        if (c != m_.wanted.sort && c != m_.wanted.then_sort)
            return {};
        const bool is_first = c == m_.wanted.sort;
        const bool down = (c == column::memory || c == column::all_memory) != (is_first && m_.wanted.reversed);
        const char *arrow = set_ == glyphs::ascii ? (down ? "v" : "^") : (down ? "\u2193" : "\u2191");
        return fmt::format("{}{}", arrow, is_first ? 1 : 2);
    }

    static std::string cell_of(const process_now &p, column c)
    {
        switch (c) {
        case column::gpu:
            return std::to_string(p.gpu);
        case column::pid:
            return std::to_string(p.pid);
        case column::user:
            return p.user;
        case column::memory:
            return readings::human_bytes(static_cast<double>(p.memory));
        case column::all_memory:
            return readings::human_bytes(static_cast<double>(p.all_memory));
        case column::command:
            break;
        }
        return p.command;
    }

    static bool fits(const process_column &c, int width)
    {
        const bool is_spare = c.what == column::user || c.what == column::all_memory;
        return !is_spare || width >= (c.what == column::user ? 50 : 70);
    }

    void processes(area where, std::optional<unsigned> of)
    {
        if (where.height < 2)
            return;
        const std::vector<process_now> rows = m_.listed(of);
        const auto shown = static_cast<std::size_t>(where.height - 1);
        out_.where.process_rows = shown;
        out_.where.process_count = rows.size();
        out_.where.regions.push_back({where.x, where.y + 1, where.width, where.height - 1, {}, {}, true});
        const std::size_t most = rows.size() > shown ? rows.size() - shown : 0;
        const std::size_t first = std::min(m_.first_process, most);
        int x = where.x;
        for (const process_column &c : process_columns) {
            if (!fits(c, where.width))
                continue;
            const int width = c.width == 0 ? where.width - x : c.width - 1;
            const auto cell = [&](int y, const std::string &text, look as) {
                c.right ? out_.cells.put_right(x + width, y, text, as) : void(out_.cells.put(x, y, text, as, width));
            };
            out_.where.regions.push_back({x, where.y, width, 1, {}, c.what, true});
            cell(where.y, c.name + mark_of(c.what), heading);
            for (std::size_t i = first; i < std::min(first + shown, rows.size()); ++i)
                cell(where.y + 1 + static_cast<int>(i - first), cell_of(rows[i], c.what), plain);
            x += c.width;
        }
        std::string rest = rows.empty() ? "no processes" : "";
        if (rows.size() > shown)
            rest = fmt::format("{}-{} of {}", first + 1, first + shown, rows.size());
        if (where.width - x >= 24)
            out_.cells.put_right(where.width, where.y, rest);
        if (m_.at == focus::processes)
            out_.cells.paint(where.x, where.y, where.width, inverse);
    }

    const model &m_;
    picture out_;
    pen pen_;
    glyphs set_;
    bool interactive_;
};

} // namespace

picture draw(const model &m, int width, int height, glyphs set, bool interactive)
{
    return painter(m, width, height, set, interactive).paint();
}

} // namespace top
