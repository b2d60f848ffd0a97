// SPDX-License-Identifier: Apache-2.0
// What a link in a node's place says goes wrong there: "errno:13", "errno:5:read", "stuck" or "stuck:open".
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace veksim {

enum class moment : std::uint8_t { never, opening, reading };

struct planted {
    int error = 0;
    moment fails = moment::never;
    moment sticks = moment::never;
};

// No fault where TARGET says anything else: a link that only begins like one leads somewhere.
inline planted fault_in(const char *target)
{
    constexpr char error[] = "errno:";
    constexpr std::size_t prefix = sizeof error - 1;
    if (strcmp(target, "stuck") == 0)
        return {0, moment::never, moment::reading};
    if (strcmp(target, "stuck:open") == 0)
        return {0, moment::never, moment::opening};
    const std::size_t digits = strncmp(target, error, prefix) == 0 ? strspn(target + prefix, "0123456789") : 0;
    const char *rest = target + prefix + digits;
    if (digits == 0 || (*rest != '\0' && strcmp(rest, ":read") != 0))
        return {};
    return {atoi(target + prefix), *rest == '\0' ? moment::opening : moment::reading, moment::never};
}

} // namespace veksim
