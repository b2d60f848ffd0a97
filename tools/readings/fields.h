// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "units.h"
#include "value.h"

#include <algorithm>
#include <initializer_list>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace readings {

enum class metric_kind : std::uint8_t {
    none, // not for the exporter
    gauge,
    counter,
    label, // a label of the one metric that says what a GPU is
};

struct metric {
    metric_kind kind = metric_kind::none;
    const char *name = "";  // behind "vekgpu_"; of a label, its name
    const char *label = ""; // what tells siblings apart, "engine"; a list is told apart by it, by position
    const char *label_value = "";
};

constexpr metric not_exported()
{
    return {};
}
constexpr metric gauge(const char *name, const char *label = "", const char *label_value = "")
{
    return {metric_kind::gauge, name, label, label_value};
}
constexpr metric counter(const char *name, const char *label = "")
{
    return {metric_kind::counter, name, label, ""};
}
constexpr metric info(const char *label)
{
    return {metric_kind::label, label, "", ""};
}

struct field {
    const char *key; // as in CSV and JSON
    unit in;
    metric exported;
    const char *help;
};

inline constexpr field all_fields[] = {
#define VEKGPU_FIELD(key, in, exported, help, ...) {key, unit::in, exported, help},
#include "fields.inc"
#undef VEKGPU_FIELD
};
inline constexpr std::size_t field_count = std::size(all_fields);

constexpr const field *find_field(std::string_view key)
{
    const auto found = std::find_if(std::begin(all_fields), std::end(all_fields),
                                    [&](const field &f) { return std::string_view(f.key) == key; });
    return found == std::end(all_fields) ? nullptr : found;
}

// A key that there is; any other does not compile.
class known_key {
public:
    consteval known_key(const char *key) : index_(std::size(all_fields)) // NOLINT: a literal is a key
    {
        for (std::size_t i = 0; i < std::size(all_fields); ++i) {
            if (std::string_view(all_fields[i].key) == key)
                index_ = i;
        }
        if (index_ == std::size(all_fields))
            throw std::invalid_argument("no such field");
    }
    constexpr const field &operator*() const { return all_fields[index_]; }

private:
    std::size_t index_;
};
constexpr const field &field_of(known_key key)
{
    return *key;
}

constexpr std::size_t index_of(const field &f)
{
    return static_cast<std::size_t>(&f - all_fields);
}

using field_list = std::vector<const field *>;

// What to ask for: pick<"temperature", "power">() does not compile with a key that there is not.
template <std::size_t Size>
struct key_text {
    char text[Size]{};
    consteval key_text(const char (&key)[Size]) { std::copy_n(key, Size, text); } // NOLINT: a literal is a key
};
template <key_text... Keys>
field_list pick()
{
    return {&field_of(Keys.text)...};
}

std::string label(const field &f); // the key as a person writes it

} // namespace readings
