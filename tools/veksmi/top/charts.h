// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace top {

enum class glyphs { braille, blocks, ascii };
inline constexpr const char *glyph_names[] = {"braille", "blocks", "ascii"};
// What a terminal of this name shows in this encoding.
glyphs fitting(std::string_view encoding, std::string_view terminal);
std::size_t columns_in(glyphs set, int width); // how many values WIDTH cells show side by side

enum class mark : unsigned char { nothing, value, over, limit };
struct chart_cell {
    char32_t glyph = U' ';
    mark what = mark::nothing;
};

struct scale {
    double low = 0, high = 1;
};
// The end of a scale that holds VALUE: 1, 2 or 5 and zeros.
double round_end(double value);

// Areas under VALUES, one a column, row by row from the top; a gap stays empty, while the lowest value shows. LIMITS are
// lines across; values at or above the lowest of them are marked.
std::vector<chart_cell> draw_chart(const std::vector<float> &values, int width, int height, const scale &shown,
                                   const std::vector<double> &limits, glyphs set);

} // namespace top
