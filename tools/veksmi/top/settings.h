// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "charts.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace top {

enum class column : std::uint8_t { gpu, pid, user, memory, all_memory, command };
inline constexpr std::size_t column_count = 6;
inline constexpr const char *column_names[] = {"gpu", "pid", "user", "memory", "all_memory", "command"};

// What a person chose, and finds again next time.
struct settings {
    std::chrono::milliseconds interval{1000};
    std::chrono::seconds span{0}; // across a chart; 0 is as much as fits with a value a second
    column sort = column::memory, then_sort = column::gpu;
    bool reversed = false;
    std::optional<glyphs> drawn_with{}; // what fits the terminal unless chosen
    bool operator==(const settings &) const = default;
};
inline constexpr std::chrono::milliseconds shortest_interval{100}, longest_interval{3600 * 1000};
inline constexpr std::chrono::seconds spans[] = {std::chrono::seconds(0), std::chrono::minutes(5),
                                                 std::chrono::minutes(15), std::chrono::minutes(60)};

std::string text_of(const settings &chosen);
std::optional<settings> settings_from(const std::string &text); // nothing when it makes no sense

// Where they are kept: STATE_HOME, else below HOME; empty when neither is an absolute path.
std::string settings_path(const char *state_home, const char *home);
// What the file holds; the defaults and a word in TROUBLE when it cannot be used. A missing one is no trouble.
settings load_settings(const std::string &path, std::string &trouble);
bool save_settings(const std::string &path, const settings &chosen);

} // namespace top
