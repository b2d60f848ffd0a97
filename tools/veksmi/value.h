// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// Nothing at all stands for a value that is not to be had.
using value =
    std::variant<std::monostate, std::int64_t, std::uint64_t, double, bool, std::string, std::vector<std::uint64_t>>;

bool is_present(const value &v);
std::string text_of(const value &v); // as in CSV; empty when absent

// A text of the driver without the blanks around it and without anything that a terminal would obey; absent when it
// says nothing.
value text_value(std::string_view text);
std::string printable(std::string_view text);
