// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "answer.h"
#include "gpu.h"

namespace readings {

// The processes that hold memory of the GPU, the five largest at most: an array of objects with pid, name, memory,
// memory_total, user, command and unit; null where the driver does not tell.
json processes_of(gpu &g);

} // namespace readings
