// SPDX-License-Identifier: Apache-2.0
// Control of the interposer (libveksim.so) from inside the process it stands in.
#ifndef VEKSIM_H
#define VEKSIM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Redirects the paths of the simulated host into TREE from now on and starts its clock afresh;
// NULL ends the redirection. Not to be called while other threads touch those paths.
void veksim_use(const char *tree);

// Moves the wall clock that this process sees.
void veksim_advance(int64_t usec);

// Calls back at each pause played on an instant clock ("sleep 3", "usleep 500000"); NULL: no more calls.
void veksim_on_pause(void (*callback)(void *context, const char *what), void *context);

#ifdef __cplusplus
}
#endif

#endif
