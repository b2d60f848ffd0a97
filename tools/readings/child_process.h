// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

namespace readings::child_process {

inline constexpr int channel = 3; // the one descriptor of the program that its child keeps

// Takes a child away from everything that is PROGRAM's: descriptors but KEPT, which becomes the channel, terminal,
// signals. It ends with the program.
void leave(pid_t program, int kept);

} // namespace readings::child_process
