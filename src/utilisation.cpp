// SPDX-License-Identifier: Apache-2.0
#include "utilisation.h"

#include "drm_card.h"
#include "number_scan.h"
#include "regular_expression.h"
#include "vek_smi_utils.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>

namespace vekml {
namespace {

constexpr std::size_t data_masters = std::size(vekml_util_counters_t{}.DMOSStatActive);

std::uint32_t percentage(std::uint64_t active, std::uint64_t cumulative)
{
    return cumulative == 0 ? 0 : static_cast<std::uint32_t>(active * 100 / cumulative);
}

} // namespace

vekml_gpu_util_state_t parse_util_node(const char *text)
{
    vekml_gpu_util_state_t state{};
    vekml_util_counters_t &counters = state.counters;
    number_scan scan(text);
    std::int32_t valid = 0;
    scan >> valid;
    counters.bValid = static_cast<std::uint32_t>(valid);
    scan >> counters.GpuStatActive >> counters.GpuStatBlocked >> counters.GpuStatIdle >> counters.GpuStatCumulative;
    for (std::size_t i = 0; i < data_masters; ++i)
        scan >> counters.DMOSStatActive[i] >> counters.DMOSStatBlocked[i] >> counters.DMOSStatIdle[i] >>
            counters.DMOSStatCumulative[i];
    scan >> state.ui64TimeStamp;
    return state;
}

bool request_util_counters(const trace_site &site, std::uint32_t card_index, vekml_util_counters_t *counters)
{
    TRACE_FOR(site, "device->index:%d", card_index);
    drm_card card(card_index);
    TRACE_FOR(site, "gpu_path: %s", card.path());
    if (!card.open()) {
        TRACE_FOR(site, "Failed in opening GPU's char file");
        return false;
    }
    vekml_gpu_util_state_t reply{};
    const int result = card.request(utilisation_counters, &reply);
    if (result < 0) {
        TRACE_FOR(site, "Failed in reading data through ioctl, ret = %d", result);
        return false;
    }
    *counters = reply.counters;
    trace_util_counters(site, *counters);
    return true;
}

void trace_util_counters(const trace_site &site, const vekml_util_counters_t &counters)
{
    TRACE_FOR(site, "bValid %lu, GpuStatActive %lu, GpuStatBlocked %lu, GpuStatIdle %lu, GpuStatCumulative %lu",
              counters.bValid, counters.GpuStatActive, counters.GpuStatBlocked, counters.GpuStatIdle,
              counters.GpuStatCumulative);
    for (std::size_t i = 0; i < data_masters; ++i)
        TRACE_FOR(site, "%d DMOSStatActive %ld, DMOSStatBlocked %ld, DMOSStatIdle %ld, DMOSStatCumulative %ld",
                  static_cast<int>(i), counters.DMOSStatActive[i], counters.DMOSStatBlocked[i],
                  counters.DMOSStatIdle[i], counters.DMOSStatCumulative[i]);
}

vekml_util_info_t percentages(const vekml_util_counters_t &counters)
{
    const auto master = [&](std::size_t i) {
        return percentage(counters.DMOSStatActive[i], counters.DMOSStatCumulative[i]);
    };
    return {percentage(counters.GpuStatActive, counters.GpuStatCumulative), master(1), master(2), master(3), master(4)};
}

bool parse_util_status(const char *text, vekml_util_info_t *util)
{
    // A "." crosses lines here: the five labels stand on lines of their own.
    constexpr char pattern[] = "GPU[ ]*Utilisation:[ ]*([0-9]*)%.*TDM[ ]*Utilisation:[ ]*([0-9]*)%"
                               ".*GEOM[ ]*Utilisation:[ ]*([0-9]*)%.*3D[ ]*Utilisation:[ ]*([0-9]*)%"
                               ".*CDM[ ]*Utilisation:[ ]*([0-9]*)%.*";
    const regular_expression compiled(pattern, REG_EXTENDED | REG_ICASE);
    regmatch_t matches[6];
    if (compiled.error() != 0 || regexec(compiled.get(), text, std::size(matches), matches, 0) != 0)
        return false;
    const auto group = [&](std::size_t i) { return static_cast<std::uint32_t>(decimal(text + matches[i].rm_so)); };
    *util = {group(1), group(2), group(3), group(4), group(5)};
    return true;
}

vekml_return_t read_util_status(const trace_site &site, vekml_util_info_t *util)
{
    constexpr char path[] = "/sys/kernel/debug/vekgpu/status";

    const unique_fd status(open(path, O_RDONLY | O_CLOEXEC));
    if (!status) {
        TRACE_FOR(site, "get gpu ultilization, open %s(fd:%d) error! errmsg:%s", path, status.get(), strerror(errno));
        return VEKML_ERROR_NODE_IO;
    }
    char text[500];
    const ssize_t length = read(status.get(), text, sizeof text);
    if (length < 0) {
        TRACE_FOR(site, "get gpu ultilization, read %s(fd:%d) error! errmsg:%s", path, status.get(), strerror(errno));
        return VEKML_ERROR_NODE_IO;
    }
    text[std::max<ssize_t>(length, 1) - 1] = '\0'; // the last line's end
    if (!parse_util_status(text, util)) {
        TRACE_FOR(site, "get gpu ultilization, read %s(fd:%d) not find matched info!", path, status.get());
        return VEKML_ERROR_NOT_FOUND;
    }
    return VEKML_SUCCESS;
}

} // namespace vekml
