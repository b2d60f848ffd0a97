// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdarg>
#include <cstdio>
#include <string>

namespace veksim {

[[gnu::format(printf, 1, 2)]] inline std::string format(const char *pattern, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof text, pattern, arguments);
    va_end(arguments);
    return text;
}

} // namespace veksim
