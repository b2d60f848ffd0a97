// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "fields.h"
#include "value.h"

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace readings {

using json = nlohmann::ordered_json;

enum class gpu_state : std::uint8_t { ok, asleep, stuck, crashed, lost };
inline constexpr gpu_state all_states[] = {gpu_state::ok, gpu_state::asleep, gpu_state::stuck, gpu_state::crashed,
                                           gpu_state::lost};
const char *name_of(gpu_state state); // as in JSON: "stuck"
bool is_sick(gpu_state state);        // stuck, crashed or lost
reason reason_of(gpu_state state);    // of every value that a GPU in this state does not give; not for ok

std::string time_of_day(std::chrono::system_clock::time_point at); // "14:02:11", local
// "stuck since 14:02:11: reading fan_speed (...)", fit for a terminal; with the date when it is long before NOW.
std::string what_became_of(gpu_state state, std::chrono::system_clock::time_point since, const std::string &detail,
                           std::chrono::system_clock::time_point now);

// What the readers are asked for.
struct request {
    field_list fields{};
    bool processes = false; // with user, command and unit
    bool codecs = false;    // what the video engines can do
    // What a command alone wants, by its name: {"set": {...}}. The answer's `more` has the same keys.
    json more = json::object();
    std::chrono::milliseconds extra{0}; // what it may take beyond the deadline
};

// What one GPU said, or what became of it.
struct answer {
    unsigned index = 0;             // the same for as long as the program runs
    std::optional<unsigned> card{}; // N of cardN; none out of band
    std::string bus_id{};           // "0000:03:00.0"; empty when nothing tells it
    bool driverless = false;        // read through BAR0
    gpu_state state = gpu_state::ok;
    std::chrono::system_clock::time_point since{}; // of a state that is not ok
    std::string detail{}; // of it: "reading fan_speed (/sys/.../fan1_input)", "signal 11 (Segmentation fault)"

    // One for each of all_fields; those that were not asked for are missing.
    std::vector<value> values = std::vector<value>(field_count);
    json processes{}; // an array of objects, null when not to be had
    json codecs{};    // likewise, with "vendor" and "profiles"
    json more = json::object();
    int result = 0;        // the first failing result of the library
    std::string printed{}; // what the library said on its standard output

    const value &operator[](const field &f) const { return values[index_of(f)]; }
};

// One round: every GPU of ours in the order of its index.
using answers = std::vector<answer>;

} // namespace readings
