// SPDX-License-Identifier: Apache-2.0
#include "memory_use.h"

#include "library_value.h"
#include "node.h"
#include "units.h"

#include <algorithm>
#include <cmath>

namespace readings::memory_use {
namespace {

using library::looked_at;
using library::made_of;
using library::number;

constexpr const char *node = "device/gpu_mem_util_info";

} // namespace

value amount(gpu &g, std::uint64_t vekml_mem_info_t::*member)
{
    return made_of(g, &gpu::memory, node, [&](const auto &memory, const auto &path) -> value {
        if (memory.fb_total == 0) // a success without sizes
            return looked_at(path, {reason::malformed});
        return present_units().scaled(quantity::memory, memory.*member);
    });
}

value used_percent(gpu &g)
{
    value used = amount(g, &vekml_mem_info_t::fb_used);
    if (!is_present(used))
        return used;
    const vekml_mem_info_t &memory = g.memory().record;
    if (memory.fb_used > memory.fb_total)
        return missing{reason::malformed, 0, g.card_node(node)};
    return number(static_cast<std::uint64_t>(
        std::llround(100 * static_cast<double>(memory.fb_used) / static_cast<double>(memory.fb_total))));
}

value errors(gpu &g, std::uint32_t (vekml_gddr_crc_t::*member)[4])
{
    return made_of(g, &gpu::memory_errors, "device/gddr_crc", [&](const auto &errors, const auto &path) -> value {
        if (errors.crc_support != 1)
            return looked_at(path, {reason::unsupported});
        const auto &counts = errors.*member;
        const auto end = std::find(std::begin(counts), std::end(counts), gpu::uncounted);
        if (end == std::begin(counts))
            return looked_at(path, {reason::malformed});
        return std::vector<std::uint64_t>(std::begin(counts), end);
    });
}

value process_count(gpu &g)
{
    if (g.driverless())
        return library::driver_only();
    const auto &processes = g.processes();
    const std::string path = g.card_node(node);
    g.note(processes.result);
    if (!processes)
        return looked_at(path, library::refusal(processes.result));
    // A node that is there and cannot be read, or holds no list, gives an empty list as well.
    if (processes.record.process_num == 0) {
        const auto found = read_node(path);
        const auto *why = std::get_if<missing>(&found);
        if (why != nullptr && why->why != reason::absent)
            return *why;
        if (why == nullptr && !is_present(text_value(std::get<std::string>(found))))
            return missing{reason::malformed, 0, path};
    }
    return number(processes.record.process_num);
}

} // namespace readings::memory_use
