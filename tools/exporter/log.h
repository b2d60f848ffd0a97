// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readings/standard_streams.h"

#include <fmt/format.h>
#include <string_view>

namespace exporter {

inline void log_line(std::string_view event)
{
    readings::tell_error(fmt::format("vekgpu-exporter: {}", event));
}

} // namespace exporter
