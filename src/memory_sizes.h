// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vekml {

/** The sizes of local and system memory in a debugfs dump. */
inline constexpr char memory_sizes_pattern[] =
    "GPU_LOCAL.*Free Size: ([0-9]*), Total Size: ([0-9]*).*\\s.*SYSMEM.*Free Size: ([0-9]*), Total Size: "
    "([0-9]*)";

/** Cut a dump down to the lines in which the pattern matches, from the start of the match on, in plain ASCII; to an
 *  empty text when it matches nowhere. A matcher let loose on the whole dump takes seconds where many lines nearly
 *  match. */
const char *cut_to_memory_sizes(char *dump);

} // namespace vekml
