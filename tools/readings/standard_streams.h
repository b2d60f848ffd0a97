// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace readings {

// A program may be started with any of the three closed; what is opened later must not take their place.
void keep_standard_descriptors();

// One line on standard error. Whoever closed it, or let its disk fill up, does not want it: that is no failure.
void tell_error(std::string_view line);

} // namespace readings
