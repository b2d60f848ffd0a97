// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace top {

enum class tone : std::uint8_t { plain, warning, alarm };
struct look {
    tone colour = tone::plain;
    bool bold = false;
    bool reversed = false;
    bool operator==(const look &) const = default;
};
inline constexpr look plain{}, heading{tone::plain, true, false}, inverse{tone::plain, true, true},
    alarming{tone::alarm, true, false}, warning{tone::warning, true, false};

// A screen's content before it is on any screen.
class canvas {
public:
    struct cell {
        char32_t glyph = U' '; // 0 where a wide one began in the cell before
        char32_t accents[2] = {0, 0};
        look as{};
        bool operator==(const cell &) const = default;
    };

    canvas(int width, int height, bool ascii_only);

    int width() const { return width_; }
    int height() const { return height_; }
    const cell &at(int x, int y) const;

    void set(int x, int y, char32_t glyph, look as);
    // Writes UTF-8 without control characters, at most MOST cells wide; what is too long ends with a mark. Gives the
    // place behind it.
    int put(int x, int y, std::string_view text, look as = {}, int most = 1 << 20);
    void put_right(int end, int y, std::string_view text, look as = {}); // the last cell lies before END
    void paint(int x, int y, int width, look as);

    std::string text() const; // line by line, without the blanks behind each

private:
    bool holds(int x, int y) const { return x >= 0 && y >= 0 && x < width_ && y < height_; }
    int cells_for(char32_t glyph) const;
    int shown_width(std::string_view text) const;
    void place(int x, int y, char32_t glyph, int cells, look as);

    int width_, height_;
    bool ascii_only_;
    std::vector<cell> cells_;
};

int width_of(std::string_view text); // in cells
std::u32string decoded(std::string_view text);
std::string encoded(char32_t glyph);

} // namespace top
