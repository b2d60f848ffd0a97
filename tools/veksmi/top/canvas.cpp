// SPDX-License-Identifier: Apache-2.0
#include "canvas.h"

#include <algorithm>
#include <cwchar>

namespace top {
namespace {

int cells_of(char32_t glyph) // 0 for an accent; what the locale does not know takes one
{
    const int width = wcwidth(static_cast<wchar_t>(glyph));
    return width < 0 ? 1 : width;
}

constexpr char32_t degree = U'\xb0';

} // namespace

std::u32string decoded(std::string_view text)
{
    std::u32string glyphs;
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i++]);
        const int more = byte >= 0xf0 ? 3 : byte >= 0xe0 ? 2 : byte >= 0xc0 ? 1 : 0;
        char32_t glyph = more == 0 ? byte : byte & (0x3fU >> more);
        for (int left = more; left > 0 && i < text.size(); --left)
            glyph = (glyph << 6) | (static_cast<unsigned char>(text[i++]) & 0x3f);
        glyphs += glyph;
    }
    return glyphs;
}

std::string encoded(char32_t glyph)
{
    if (glyph < 0x80)
        return {static_cast<char>(glyph)};
    std::string text;
    const int more = glyph >= 0x10000 ? 3 : glyph >= 0x800 ? 2 : 1;
    constexpr unsigned leads[] = {0, 0xc0, 0xe0, 0xf0};
    text += static_cast<char>(leads[more] | (glyph >> (6 * more)));
    for (int left = more - 1; left >= 0; --left)
        text += static_cast<char>(0x80 | ((glyph >> (6 * left)) & 0x3f));
    return text;
}

int width_of(std::string_view text)
{
    int width = 0;
    for (const char32_t glyph : decoded(text))
        width += cells_of(glyph);
    return width;
}

canvas::canvas(int width, int height, bool ascii_only)
    : width_(std::max(width, 0)), height_(std::max(height, 0)), ascii_only_(ascii_only),
      cells_(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_))
{}

const canvas::cell &canvas::at(int x, int y) const
{
    return cells_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x)];
}

void canvas::set(int x, int y, char32_t glyph, look as)
{
    if (holds(x, y))
        place(x, y, glyph, 1, as);
}

// Half of a wide glyph that is written over leaves a blank.
void canvas::place(int x, int y, char32_t glyph, int cells, look as)
{
    const auto here = cells_.begin() + y * width_ + x;
    if (here->glyph == 0 && x > 0)
        (here - 1)->glyph = U' ';
    if (x + cells < width_ && (here + cells)->glyph == 0)
        (here + cells)->glyph = U' ';
    *here = {glyph, {0, 0}, as};
    if (cells == 2)
        *(here + 1) = {0, {0, 0}, as};
}

int canvas::cells_for(char32_t glyph) const
{
    if (!ascii_only_ || glyph < 0x80)
        return cells_of(glyph);
    return glyph == degree ? 0 : 1;
}

int canvas::shown_width(std::string_view text) const
{
    int width = 0;
    for (const char32_t glyph : decoded(text))
        width += cells_for(glyph);
    return width;
}

int canvas::put(int x, int y, std::string_view text, look as, int most)
{
    const int end = std::min(width_, x + most);
    const bool cut = shown_width(text) > end - x;
    const int last = cut ? end - 1 : end;
    cell *before = nullptr;
    for (char32_t glyph : decoded(text)) {
        const int cells = cells_for(glyph);
        if (ascii_only_ && glyph >= 0x80)
            glyph = U'?';
        if (cells == 0) {
            if (before != nullptr && !ascii_only_)
                before->accents[before->accents[0] == 0 ? 0 : 1] = glyph;
            continue;
        }
        if (x + cells > last)
            break;
        if (holds(x, y)) {
            place(x, y, glyph, cells, as);
            before = &cells_[static_cast<std::size_t>(y * width_ + x)];
        }
        x += cells;
    }
    if (cut && x < end && holds(x, y)) {
        place(x, y, ascii_only_ ? U'~' : U'\x2026', 1, as);
        ++x;
    }
    return x;
}

void canvas::put_right(int end, int y, std::string_view text, look as)
{
    put(end - shown_width(text), y, text, as);
}

void canvas::paint(int x, int y, int width, look as)
{
    for (; width > 0; --width, ++x) {
        if (holds(x, y))
            cells_[static_cast<std::size_t>(y * width_ + x)].as = as;
    }
}

std::string canvas::text() const
{
    std::string whole;
    for (int y = 0; y < height_; ++y) {
        std::string line;
        for (int x = 0; x < width_; ++x) {
            const cell &c = at(x, y);
            if (c.glyph == 0)
                continue;
            line += encoded(c.glyph);
            for (const char32_t accent : c.accents)
                line += accent == 0 ? "" : encoded(accent);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        whole += line + "\n";
    }
    return whole;
}

} // namespace top
