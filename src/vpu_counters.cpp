// SPDX-License-Identifier: Apache-2.0
#include "vpu_counters.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace vekml {

number_search find_number(const char *line, const char *key, std::uint64_t *value)
{
    const char *at = strstr(line, key);
    if (at == nullptr)
        return number_search::no_key;
    at += strlen(key);
    char *end = nullptr;
    const std::uint64_t number = strtoull(at, &end, 10);
    if (end == at)
        return number_search::no_number;
    *value = number;
    return number_search::found;
}

float elapsed_seconds(std::uint64_t from_sec, std::uint64_t from_usec, std::uint64_t to_sec, std::uint64_t to_usec)
{
    const auto usec = static_cast<std::int64_t>(to_usec - from_usec);
    const auto sec = static_cast<std::int64_t>(to_sec - from_sec);
    return static_cast<float>(static_cast<double>(usec) / 1e6 + static_cast<double>(sec));
}

double commands_per_second(std::uint64_t from, std::uint64_t to, float seconds)
{
    if (seconds <= 0)
        return 0;
    // A counter that went back counts one less than its wrap-around; monitoring tools rely on the figure.
    const std::uint64_t commands = from <= to ? to - from : to - 1 - from;
    return static_cast<double>(static_cast<float>(commands)) / static_cast<double>(seconds);
}

std::int32_t whole_rate(double rate)
{
    using limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(
        std::clamp(rate, static_cast<double>(limits::min()), static_cast<double>(limits::max())));
}

} // namespace vekml
