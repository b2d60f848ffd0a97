// SPDX-License-Identifier: Apache-2.0
// What a tree has in a node's place to say what goes wrong there: a link to "errno:13", "errno:5:read", "stuck" or
// "stuck:open", an entry by the node's name below host/stuck, or a pipe.
#pragma once

#include "tree.h"

#include <cstdint>
#include <fcntl.h>

namespace veksim {

enum class moment : std::uint8_t { never, opening, reading };

struct planted {
    int error = 0;
    moment fails = moment::never;
    moment sticks = moment::never;
};
planted planted_at(const char *path);

// Opens what PATH leads to. Where reading will fail or hang, the descriptor is that of the fault itself: it bears the
// node's name, and settle() has to precede each call on it.
int open_led(const host_path &path, int flags, mode_t mode);

// Waits until the node is itself again and puts it in the descriptor's place; false, with errno, when reading fails.
bool settle(int fd);

// A moment of real time, whatever clock the tree plays. As with a driver that hangs, signals end the waiting only by
// ending the process.
void nap();
// Waits while PATH hangs: for those whose reading nobody sees.
void outwait(const host_path &path);

} // namespace veksim
