// SPDX-License-Identifier: Apache-2.0
#include "panel.h"

#include "readings/units.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>

namespace top {
namespace {

using readings::unit;

constexpr unit units[series_count] = {
    unit::percent, unit::percent, unit::percent,   unit::percent,   unit::percent, unit::byte,       unit::celsius,
    unit::celsius, unit::watt,    unit::megahertz, unit::megahertz, unit::rpm,     unit::per_second, unit::per_second,
};

constexpr int chart_width = 38; // that a chart wants at least
constexpr int roomy = 60;       // where the series beside it get sparks too
constexpr int narrow_beside = 15, wide_beside = 28;
constexpr int widest_columns = 4;

float value_of(const gpu_now &g, series of)
{
    return g.values[static_cast<std::size_t>(of)];
}

std::vector<double> limits_of(const gpu_now &g, series of)
{
    std::vector<double> limits;
    for (const double limit : {g.slowdown, g.shutdown}) {
        if (of == series::temperature && limit > 0)
            limits.push_back(limit);
    }
    return limits;
}

scale scale_of(const gpu_now &g, series of, float most)
{
    const double seen = std::isnan(most) ? 0 : most;
    switch (of) {
    case series::memory:
        return {0, g.memory_total > 0 ? g.memory_total : round_end(seen)};
    case series::temperature:
    case series::memory_temperature:
        return {0, std::max({100.0, g.shutdown, g.slowdown, seen})};
    case series::graphics_clock:
        return {0, std::max(g.clock_max > 0 ? g.clock_max : round_end(seen), seen)};
    case series::fan:
        return {0, std::max(g.fan_max > 0 ? g.fan_max : round_end(seen), seen)};
    case series::power:
    case series::memory_clock:
    case series::encoder:
    case series::decoder:
        return {0, round_end(seen)};
    default:
        return {0, 100};
    }
}

} // namespace

std::string amount_text(double number, series of)
{
    if (of == series::memory)
        return readings::human_bytes(number);
    const bool in_tenths = of == series::temperature || of == series::memory_temperature || of == series::power;
    return readings::human(in_tenths ? std::round(number * 10) / 10 : std::round(number),
                           units[static_cast<std::size_t>(of)]);
}

std::string value_text(const gpu_now &g, series of)
{
    if (g.state != readings::gpu_state::ok)
        return readings::name_of(g.state);
    const float number = value_of(g, of);
    return std::isnan(number) ? "N/A" : amount_text(number, of);
}

std::string state_text(const gpu_now &g, std::chrono::system_clock::time_point now)
{
    std::string text = what_became_of(g.state, g.since, g.detail, now);
    const auto state_ends = text.begin() + static_cast<std::ptrdiff_t>(std::min(text.find(' '), text.size()));
    std::transform(text.begin(), state_ends, text.begin(), [](char c) { return static_cast<char>(c & ~0x20); });
    return text;
}

look look_of(const gpu_now &g)
{
    if (g.state == readings::gpu_state::ok)
        return plain;
    return g.state == readings::gpu_state::asleep ? warning : alarming;
}

look look_of(const gpu_now &g, series of)
{
    const auto limits = limits_of(g, of);
    if (limits.empty() || !(value_of(g, of) >= limits.front()))
        return plain;
    return value_of(g, of) >= limits.back() ? alarming : warning;
}

std::vector<pen::chart> pen::charts_of(const gpu_now &g)
{
    std::vector<chart> charts = {
        {"load",
         series::load,
         {{"tdm", series::tdm}, {"geom", series::geom}, {"3d", series::threed}, {"cdm", series::cdm}}},
        {"memory", series::memory},
        {"temperature", series::temperature, {{"memory", series::memory_temperature}}},
        {"power", series::power},
        {"clock", series::graphics_clock, {{"memory", series::memory_clock}}},
        {"fan", series::fan},
    };
    if (g.has_encoder)
        charts.push_back({"encoder", series::encoder});
    if (g.has_decoder)
        charts.push_back({"decoder", series::decoder});
    return charts;
}

// Whole cells move on together, so that most of a screen stays as it was from one round to the next.
std::vector<float> pen::course(const gpu_now &g, series of, int width) const
{
    using std::chrono::milliseconds;
    window shown{.columns = columns_in(set_, width)};
    if (shown.columns == 0)
        return {};
    const auto as_it_fits = std::max<milliseconds>(m_.wanted.interval, milliseconds(1000));
    const auto span = milliseconds(m_.wanted.span);
    if (span > milliseconds(0))
        shown.column = std::max(span / static_cast<long>(shown.columns), milliseconds(1));
    else
        shown.column = as_it_fits;
    const auto whole_cell = shown.column * (set_ == glyphs::braille ? 2 : 1);
    shown.end = (m_.shown().began / whole_cell + 1) * whole_cell;
    std::vector<float> values = m_.past().columns(g.index, of, shown);
    // What is yet to come, or came after the screen was held still.
    for (std::size_t i = 0; i < values.size(); ++i) {
        const auto from = shown.end - static_cast<long>(values.size() - i) * shown.column;
        if (from > m_.shown().began)
            values[i] = gap;
    }
    return values;
}

void pen::plot(const gpu_now &g, series of, area where, const std::vector<double> &limits)
{
    const std::vector<float> values = course(g, of, where.width);
    const auto cells = draw_chart(values, where.width, where.height, scale_of(g, of, highest(values)), limits, set_);
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (cells[i].what == mark::nothing)
            continue;
        const int x = where.x + static_cast<int>(i) % where.width, y = where.y + static_cast<int>(i) / where.width;
        on_.set(x, y, cells[i].glyph, cells[i].what == mark::over ? warning : plain);
    }
}

void pen::spark(const gpu_now &g, series of, int x, int y, int width)
{
    plot(g, of, {x, y, width, 1}, {});
}

void pen::draw_beside(const gpu_now &g, const chart &c, area where)
{
    int y = where.y;
    const int end = where.x + where.width;
    const auto say = [&](const char *label, const std::string &text, look as) {
        if (y >= where.y + where.height)
            return -1;
        on_.put(where.x, y, label);
        on_.put_right(end, y, text, as);
        return y++;
    };
    for (const beside &b : c.others) {
        const int line = say(b.label, value_text(g, b.of), look_of(g));
        if (line >= 0 && where.width > narrow_beside)
            spark(g, b.of, where.x + 7, line, where.width - 7 - 9);
    }
    if (c.of != series::temperature)
        return;
    if (g.slowdown > 0)
        say("slowdown", amount_text(g.slowdown, c.of), plain);
    if (g.shutdown > 0)
        say("shutdown", amount_text(g.shutdown, c.of), plain);
}

void pen::draw(const gpu_now &g, const chart &c, area where)
{
    area plotted = {where.x, where.y + 1, where.width, where.height - 1};
    int end = where.x + where.width;
    if (!c.others.empty() && where.width >= chart_width - 1) {
        const int beside_width = where.width < roomy ? narrow_beside : wide_beside;
        const int lines = static_cast<int>(c.others.size()) + static_cast<int>(limits_of(g, c.of).size());
        const int above = lines > plotted.height ? 1 : 0; // it begins beside the title only where it must
        plotted.width -= beside_width + 1;
        end -= above * (beside_width + 1);
        draw_beside(g, c, {plotted.x + plotted.width + 1, plotted.y - above, beside_width, plotted.height + above});
    }
    const look as = look_of(g, c.of);
    int x = on_.put(where.x, where.y, c.name, heading) + 1;
    x = on_.put(x, where.y, value_text(g, c.of), as == plain ? look_of(g) : as, end - x);
    if (as != plain)
        x = on_.put(x + 1, where.y, as == alarming ? "OVER SHUTDOWN" : "OVER SLOWDOWN", as, end - x - 1);
    const float most = highest(course(g, c.of, plotted.width));
    const std::string top_value = std::isnan(most) ? "" : amount_text(most, c.of);
    for (const char *word : {", highest ", " max "}) {
        const std::string text = top_value.empty() ? "" : word + top_value;
        if (x + width_of(text) > end)
            continue;
        x = on_.put(x, where.y, text);
        break;
    }
    const std::string range = fmt::format("0 to {}", amount_text(scale_of(g, c.of, most).high, c.of));
    if (!top_value.empty() && end - x >= width_of(range) + 2)
        on_.put_right(end, where.y, range);
    plot(g, c.of, plotted, limits_of(g, c.of));
}

// Name, value and highest with a spark between: for an area too low for charts.
void pen::draw_line(const gpu_now &g, const chart &c, area where)
{
    const look as = look_of(g, c.of);
    constexpr int name_width = 9, value_width = 9, highest_width = 13;
    on_.put(where.x, where.y, c.of == series::temperature ? "temp" : c.name, heading, name_width - 1);
    const int x = where.x + name_width;
    on_.put_right(x + value_width, where.y, value_text(g, c.of), as == plain ? look_of(g) : as);
    const bool has_room = where.width >= name_width + value_width + highest_width + 5;
    const int left = where.width - name_width - value_width - 1 - (has_room ? highest_width : 0);
    spark(g, c.of, x + value_width + 1, where.y, left);
    const float most = highest(course(g, c.of, left));
    if (has_room && !std::isnan(most))
        on_.put_right(where.x + where.width, where.y, (as == plain ? "max " : "OVER ") + amount_text(most, c.of), as);
}

void pen::title(const gpu_now &g, area where, bool is_chosen)
{
    std::string text = fmt::format("GPU {}", g.index);
    for (const std::string &part : {g.model, g.name, g.bus_id}) {
        if (!part.empty() && width_of(text) + width_of(part) + 2 <= where.width)
            text += "  " + part;
    }
    if (g.state != readings::gpu_state::ok)
        text = fmt::format("GPU {}  {}  {}", g.index, state_text(g, m_.shown().told), g.model);
    const look as = g.state == readings::gpu_state::ok ? heading : look_of(g);
    on_.put(where.x, where.y, text, as, where.width);
    if (is_chosen)
        on_.paint(where.x, where.y, where.width, {as.colour, true, true});
}

void pen::panel(const gpu_now &g, area where, bool is_chosen)
{
    title(g, where, is_chosen);
    const std::vector<chart> charts = charts_of(g);
    const int count = static_cast<int>(charts.size()), rows = where.height - 1;
    const int most_columns = std::clamp(where.width / (chart_width + 1), 1, widest_columns);
    const auto rows_of = [&](int columns) { return (count + columns - 1) / columns; };
    int columns = 0;
    for (const int wanted : {8, 4, 3}) {
        for (int c = 1; c <= most_columns && columns == 0; ++c)
            columns = rows / rows_of(c) >= wanted ? c : 0;
    }
    const bool drawn = columns != 0;
    if (!drawn) {
        columns = most_columns;
        while (columns > 1 && rows_of(columns - 1) <= rows)
            --columns;
    }
    const int height = drawn ? rows / rows_of(columns) : 1;
    const int width = (where.width + 1) / columns;
    for (int i = 0; i < count; ++i) {
        const area one = {where.x + i % columns * width, where.y + 1 + i / columns * height, width - 1, height};
        if (one.y + one.height > where.y + where.height)
            return;
        drawn ? draw(g, charts[static_cast<std::size_t>(i)], one)
              : draw_line(g, charts[static_cast<std::size_t>(i)], one);
    }
}

} // namespace top
