// SPDX-License-Identifier: Apache-2.0
// What a tree has in a node's place to say what goes wrong there: a link that says so, an entry by the node's name below
// host/stuck, or a pipe.
#pragma once

#include "../fault_link.h"
#include "tree.h"

#include <fcntl.h>

namespace veksim {

planted planted_at(const char *path);

// Opens what PATH leads to. Where reading will fail or hang, the descriptor is that of the fault itself: it bears the
// node's name, and ready() has to precede each call on it.
int open_led(const host_path &path, int flags, mode_t mode);

// Waits until the node of a descriptor is itself again, and puts it in the descriptor's place; false, with errno, when
// reading fails.
bool ready(int fd);

// A moment of real time, whatever clock the tree plays. As with a driver that hangs, signals end the waiting only by
// ending the process.
void nap();
// Waits while PATH hangs: for those whose reading nobody sees.
void outwait(const host_path &path);

} // namespace veksim
