// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace readings {

// Why there is no value.
enum class reason : std::uint8_t {
    absent,      // the driver has no such node
    denied,      // the node wants root or a group
    failed,      // an input or output error
    malformed,   // the node holds something else
    unsupported, // the GPU says that it has no such thing
    driverless,  // only the driver could tell
    asleep,
    stuck,
    crashed,
    lost,
};
inline constexpr reason all_reasons[] = {
    reason::absent,     reason::denied, reason::failed, reason::malformed, reason::unsupported,
    reason::driverless, reason::asleep, reason::stuck,  reason::crashed,   reason::lost,
};
const char *name_of(reason why); // as in JSON: "absent"

struct missing {
    reason why = reason::absent;
    int error = 0;      // errno of what was denied or failed, 0 where there is none
    std::string node{}; // the file that was looked at, empty where it is no single one
    bool operator==(const missing &) const = default;
};

// A number, a text or a list; or missing, with the reason.
using value = std::variant<missing, std::int64_t, std::uint64_t, double, bool, std::string, std::vector<std::uint64_t>>;

bool is_present(const value &v);
const missing *why_missing(const value &v); // null when there is a value
// As in CSV; empty when missing. Shortest form of a fraction that reads back as the same number.
std::string text_of(const value &v);
// The number that a value is; a list and a text are none.
bool as_number(const value &v, double &number);

std::string_view trimmed(std::string_view text); // without the blanks around it
// A text of the driver without the blanks around it; malformed when it says nothing.
value text_value(std::string_view text);
template <std::size_t Size>
value text_value(const char (&text)[Size])
{
    const std::string_view whole(text, Size);
    return text_value(whole.substr(0, whole.find('\0')));
}

// TEXT without anything that a terminal would obey: control characters of every kind (C0, DEL, C1 in both forms,
// overrides of the direction of writing) and what is not UTF-8 become "?".
std::string printable(std::string_view text);

} // namespace readings
