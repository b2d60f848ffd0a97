// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "debug_log.h"
#include "vekml.h"

#include <cstdint>

namespace vekml {

/** The driver's busy counters with the time of the sample: what the node lists and the request delivers. */
struct vekml_gpu_util_state_t {
    vekml_util_counters_t counters;
    std::uint64_t ui64TimeStamp;
};
static_assert(sizeof(vekml_gpu_util_state_t) == 336);

/** Take the counters out of the node's text, which lists the data masters one after the other. What a short text lacks
 *  stays 0. */
vekml_gpu_util_state_t parse_util_node(const char *text);

/** Ask the driver for the counters, on behalf of `site`; they are left alone when it cannot be asked. */
bool request_util_counters(const trace_site &site, std::uint32_t card_index, vekml_util_counters_t *counters);

void trace_util_counters(const trace_site &site, const vekml_util_counters_t &counters);

/** Shares of the driver's own measuring period. */
vekml_util_info_t percentages(const vekml_util_counters_t &counters);

/** Take the percentages out of the debugfs status text; false when it lacks any of them. */
bool parse_util_status(const char *text, vekml_util_info_t *util);

/** Take the percentages from the debugfs status file. */
vekml_return_t read_util_status(const trace_site &site, vekml_util_info_t *util);

} // namespace vekml
