// SPDX-License-Identifier: Apache-2.0
#include "value.h"

#include <algorithm>
#include <fmt/format.h>
#include <type_traits>

namespace readings {
namespace {

// A character of UTF-8 text and how many bytes it takes; 0 bytes where there is none.
struct character {
    char32_t code = 0;
    std::size_t length = 0;
};

character first_of(std::string_view text)
{
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return {lead, 1};
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || text.size() < length)
        return {};
    char32_t code = lead & (0xff >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80)
            return {};
        code = (code << 6) | (byte(i) & 0x3f);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xd800 && code <= 0xdfff;
    return code < smallest[length] || code > 0x10ffff || surrogate ? character{} : character{code, length};
}

// What a terminal, a pager or a spreadsheet would obey instead of showing it.
bool is_obeyed(char32_t code)
{
    const bool control = code < 0x20 || (code >= 0x7f && code <= 0x9f);
    const bool direction = code == 0x61c || code == 0x200e || code == 0x200f || (code >= 0x202a && code <= 0x202e) ||
                           (code >= 0x2066 && code <= 0x2069);
    const bool line = code == 0x2028 || code == 0x2029 || code == 0xfeff;
    return control || direction || line;
}

} // namespace

const char *name_of(reason why)
{
    constexpr const char *names[] = {"absent",     "denied", "failed", "malformed", "unsupported",
                                     "driverless", "asleep", "stuck",  "crashed",   "lost"};
    return names[static_cast<std::size_t>(why)];
}

bool is_present(const value &v)
{
    return !std::holds_alternative<missing>(v);
}

const missing *why_missing(const value &v)
{
    return std::get_if<missing>(&v);
}

std::string text_of(const value &v)
{
    return std::visit(
        [](const auto &held) -> std::string {
            using held_type = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<held_type, missing>)
                return {};
            else if constexpr (std::is_same_v<held_type, std::vector<std::uint64_t>>)
                return fmt::format("{}", fmt::join(held, " "));
            else if constexpr (std::is_same_v<held_type, bool>)
                return held ? "yes" : "no";
            else
                return fmt::format("{}", held);
        },
        v);
}

bool as_number(const value &v, double &number)
{
    return std::visit(
        [&](const auto &held) {
            constexpr bool is_number = std::is_arithmetic_v<std::decay_t<decltype(held)>>;
            if constexpr (is_number)
                number = static_cast<double>(held);
            return is_number;
        },
        v);
}

std::string_view trimmed(std::string_view text)
{
    constexpr const char *blanks = " \t\r\n\v\f";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == text.npos ? std::string_view() : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

value text_value(std::string_view text)
{
    text = trimmed(text);
    if (text.empty())
        return missing{reason::malformed};
    if (text == "N/A" || text == "unknown" || text == "UNKOWN")
        return missing{reason::unsupported};
    return std::string(text);
}

std::string printable(std::string_view text)
{
    std::string clean;
    clean.reserve(text.size());
    while (!text.empty()) {
        const character c = first_of(text);
        if (c.length == 0 || is_obeyed(c.code))
            clean += '?';
        else
            clean += text.substr(0, c.length);
        text.remove_prefix(std::max<std::size_t>(c.length, 1));
    }
    return clean;
}

} // namespace readings
