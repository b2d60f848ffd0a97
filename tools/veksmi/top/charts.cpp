// SPDX-License-Identifier: Apache-2.0
#include "charts.h"

#include <algorithm>
#include <cmath>

namespace top {
namespace {

int steps_in(glyphs set) // that a cell has from empty to full
{
    constexpr int steps[] = {4, 8, 3};
    return steps[static_cast<int>(set)];
}

// How far a column reaches into the cell whose floor is at BASE steps.
int filled(int level, int base, int steps)
{
    return std::clamp(level - base, 0, steps);
}

char32_t braille(int left, int right)
{
    constexpr unsigned left_dots[] = {0, 0x40, 0x44, 0x46, 0x47};
    constexpr unsigned right_dots[] = {0, 0x80, 0xa0, 0xb0, 0xb8};
    return U'\x2800' + left_dots[left] + right_dots[right];
}

char32_t bar(int level, glyphs set)
{
    return set == glyphs::blocks ? U'\x2580' + static_cast<char32_t>(level) : U" .:|"[level];
}

// A value that is there shows, even the lowest.
int level_of(float value, const scale &shown, int most)
{
    if (std::isnan(value))
        return 0;
    const double share = (value - shown.low) / (shown.high - shown.low);
    return std::clamp(static_cast<int>(std::ceil(share * most)), 1, most);
}

} // namespace

glyphs fitting(std::string_view encoding, std::string_view terminal)
{
    if (encoding != "UTF-8")
        return glyphs::ascii;
    if (terminal.starts_with("vt") || terminal == "ansi" || terminal == "dumb")
        return glyphs::ascii;
    return terminal == "linux" ? glyphs::blocks : glyphs::braille; // a console's font has 512 glyphs at most
}

std::size_t columns_in(glyphs set, int width)
{
    return static_cast<std::size_t>(std::max(width, 0)) * (set == glyphs::braille ? 2 : 1);
}

double round_end(double value)
{
    if (!(value > 0))
        return 1;
    const double power = std::pow(10, std::floor(std::log10(value)));
    for (const double step : {1, 2, 5}) {
        if (value <= step * power * (1 + 1e-6))
            return step * power;
    }
    return 10 * power;
}

std::vector<chart_cell> draw_chart(const std::vector<float> &values, int width, int height, const scale &shown,
                                   const std::vector<double> &limits, glyphs set)
{
    if (width <= 0 || height <= 0)
        return {};
    std::vector<chart_cell> cells(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    const int steps = steps_in(set), most = steps * height;
    const int per_cell = set == glyphs::braille ? 2 : 1;
    const double lowest = limits.empty() ? HUGE_VAL : *std::min_element(limits.begin(), limits.end());
    const auto cell_at = [&](int x, int y) -> chart_cell & {
        return cells[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
    };
    for (const double limit : limits) {
        const int level = level_of(static_cast<float>(limit), shown, most);
        for (int x = 0; x < width; ++x)
            cell_at(x, height - 1 - (level - 1) / steps) = {set == glyphs::ascii ? U'-' : U'\x2504', mark::limit};
    }
    for (int x = 0; x < width; ++x) {
        const auto value_at = [&](int i) {
            const int column = x * per_cell + i;
            return column < std::ssize(values) ? values[static_cast<std::size_t>(column)] : NAN;
        };
        const float left = value_at(0), right = per_cell == 2 ? value_at(1) : NAN;
        const mark what = std::fmax(left, right) >= lowest ? mark::over : mark::value;
        const int left_level = level_of(left, shown, most), right_level = level_of(right, shown, most);
        for (int y = 0; y < height; ++y) {
            const int base = (height - 1 - y) * steps;
            const int l = filled(left_level, base, steps), r = filled(right_level, base, steps);
            if (l != 0 || r != 0)
                cell_at(x, y) = {set == glyphs::braille ? braille(l, r) : bar(l, set), what};
        }
    }
    return cells;
}

} // namespace top
