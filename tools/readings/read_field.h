// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "fields.h"
#include "gpu.h"

namespace readings {

// What a reader says of a field; missing for those that are known without one.
value read_field(const field &wanted, gpu &g);

} // namespace readings
