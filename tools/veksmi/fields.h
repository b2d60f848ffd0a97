// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "gpu.h"
#include "value.h"

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct field {
    const char *key;  // as in CSV and JSON; ends in the unit where that is known
    const char *unit; // as in text; empty where it is the driver's or there is none
    const char *help;
    value (*get)(gpu &);
};

using field_list = std::vector<const field *>;

std::span<const field> all_fields();
const field &field_of(std::string_view key); // a key that there is
field_list pick(std::initializer_list<std::string_view> keys);
// Keys separated by commas. An unknown one is thrown as usage_error.
field_list parse_fields(std::string_view keys);

std::string label(const field &f); // the key as a person writes it
