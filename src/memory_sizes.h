// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "debug_log.h"
#include "vekml.h"

#include <cstdint>

namespace vekml {

/** Fill in the used sizes, which follow from the others whatever those are, and log all six. */
void complete_memory(const trace_site &site, vekml_mem_info_t *memory);

/** Take a GPU's memory sizes out of its debugfs dump; false when that cannot be read. */
bool read_memory_dump(const trace_site &site, std::uint32_t table_index, vekml_mem_info_t *memory);

/** The sizes of local and system memory in a debugfs dump. */
inline constexpr char memory_sizes_pattern[] =
    "GPU_LOCAL.*Free Size: ([0-9]*), Total Size: ([0-9]*).*\\s.*SYSMEM.*Free Size: ([0-9]*), Total Size: "
    "([0-9]*)";

/** Cut a dump down to the lines in which the pattern matches, from the start of the match on, in plain ASCII; to an
 *  empty text when it matches nowhere. A matcher let loose on the whole dump takes seconds where many lines nearly
 *  match. */
const char *cut_to_memory_sizes(char *dump);

} // namespace vekml
