// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace vekml {

enum class number_search { found, no_key, no_number };

/** The decimal number right behind a key in a line; `*value` changes only when there is one. */
number_search find_number(const char *line, const char *key, std::uint64_t *value);

/** Time from one wall-clock reading to another; negative when the clock was set back. */
float elapsed_seconds(std::uint64_t from_sec, std::uint64_t from_usec, std::uint64_t to_sec, std::uint64_t to_usec);

/** Rate of an ever-growing counter; 0 when no time has passed. */
double commands_per_second(std::uint64_t from, std::uint64_t to, float seconds);

/** The whole part of a rate, or the nearest 32-bit value where it does not fit. */
std::int32_t whole_rate(double rate);

} // namespace vekml
