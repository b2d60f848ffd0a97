// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sim_host.h"

#include <array>
#include <bit>

// What a client sees of one call: its result and what it prints.
using outcome = std::pair<int, std::string>;
inline const outcome done{VEKML_SUCCESS, ""};
inline outcome failed(const std::string &printed)
{
    return {VEKML_ERROR_NODE_IO, printed};
}

// The fields of a record that has nothing but 32-bit integers.
using numbers = std::vector<std::int32_t>;
template <typename Record>
numbers fields(const Record &record)
{
    const auto all = std::bit_cast<std::array<std::int32_t, sizeof(Record) / sizeof(std::int32_t)>>(record);
    return {all.begin(), all.end()};
}

// A host with one GPU on which pauses take no time.
class sensor_host : public sim_host {
protected:
    sensor_host()
    {
        host.add_gpu();
        host.instant_pauses();
        gpu = start();
    }
    std::string node(const std::string &name) const { return host.hwmon(0, name); }
    std::string text_of(const std::string &name) const { return host.read(node(name)); }
    template <typename Function, typename... Arguments>
    outcome call(Function function, Arguments... arguments)
    {
        outcome seen;
        seen.second = standard_output([&] { seen.first = function(gpu, arguments...); });
        return seen;
    }
    vekml_device_t gpu = nullptr;
};
