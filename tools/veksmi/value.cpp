// SPDX-License-Identifier: Apache-2.0
#include "value.h"

#include <algorithm>
#include <fmt/format.h>
#include <type_traits>

namespace {

bool is_blank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

} // namespace

bool is_present(const value &v)
{
    return !std::holds_alternative<std::monostate>(v);
}

std::string text_of(const value &v)
{
    return std::visit(
        [](const auto &held) -> std::string {
            using held_type = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<held_type, std::monostate>)
                return {};
            else if constexpr (std::is_same_v<held_type, std::vector<std::uint64_t>>)
                return fmt::format("{}", fmt::join(held, " "));
            else if constexpr (std::is_same_v<held_type, double>)
                return fmt::format("{:.1f}", held);
            else if constexpr (std::is_same_v<held_type, bool>)
                return held ? "yes" : "no";
            else
                return fmt::format("{}", held);
        },
        v);
}

value text_value(std::string_view text)
{
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    if (text.empty() || text == "N/A" || text == "unknown" || text == "UNKOWN")
        return {};
    return printable(text);
}

std::string printable(std::string_view text)
{
    std::string clean(text);
    const auto obeyed = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 127; };
    std::replace_if(clean.begin(), clean.end(), obeyed, '?');
    return clean;
}
