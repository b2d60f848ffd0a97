// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "answer.h"
#include "gpu.h"

namespace readings {

// What the video engines can do: {"vendor", "profiles": [{"profile", "decoder", "encoder"}]}, each null where there is
// none; null as a whole where it is not to be had.
json codecs_of(gpu &g);

} // namespace readings
