// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "canvas.h"
#include "keys.h"
#include "model.h"

namespace top {

struct picture {
    canvas cells;
    layout where;
};

// The whole screen; without its line of keys when nobody is there to press them.
picture draw(const model &m, int width, int height, glyphs set, bool interactive = true);

} // namespace top
