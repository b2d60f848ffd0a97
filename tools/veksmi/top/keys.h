// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "model.h"

#include <vector>

namespace top {

enum class key : std::uint8_t {
    character,
    up,
    down,
    left,
    right,
    page_up,
    page_down,
    enter,
    escape,
    tab,
    backspace,
    click,
    wheel_up,
    wheel_down,
    redraw,
};
struct press {
    key what = key::character;
    char32_t character = 0;
    int x = 0, y = 0; // of the mouse
};

// What the screen shows where, for the mouse, and how the keys move about in it.
struct region {
    int x, y, width, height;
    std::optional<unsigned> gpu{};
    std::optional<column> sort{}; // the heading of a column of the processes
    bool of_processes = false;
};
struct layout {
    std::vector<region> regions{};
    int gpu_columns = 1;           // side by side
    std::size_t process_rows = 0;  // that fit
    std::size_t process_count = 0; // that there are
};

enum class outcome : std::uint8_t { go_on, quit };
outcome apply(const press &pressed, const layout &now, glyphs fit, model &m);

struct key_help {
    const char *keys;
    const char *what;
};
extern const std::vector<key_help> all_keys;
// The bottom line: as many as fit in WIDTH cells.
std::string key_line(int width, const model &m);

} // namespace top
