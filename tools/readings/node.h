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

// Why there is no whole number between the bounds in the node; no reason when there is.
const missing *lacks_number(const std::string &path, missing &why,
                            std::int64_t lowest = std::numeric_limits<std::int32_t>::min(),
                            std::int64_t highest = std::numeric_limits<std::int32_t>::max());
value number_in(const std::string &path);

} // namespace readings
