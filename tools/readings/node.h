// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "value.h"

#include <limits>
#include <string>
#include <variant>

namespace readings {

// What a node of the driver or the kernel holds, or why that cannot be told. Waits for as long as the driver does.
std::variant<std::string, missing> read_node(const std::string &path);
missing lacking(const std::string &path, int error); // what ERROR of a call on a node means

// The whole number between the bounds in the node.
value number_in(const std::string &path, std::int64_t lowest = std::numeric_limits<std::int64_t>::min(),
                std::int64_t highest = std::numeric_limits<std::int64_t>::max());

} // namespace readings
