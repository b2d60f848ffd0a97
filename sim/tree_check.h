// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace veksim {

// Whether the tree at ROOT is nothing but data: no link leads out of it but to a device that does nothing, no program or
// library waits to be run, no device node, no file of someone else's. Otherwise WHAT says what is the matter.
// Free of exceptions and of C++'s run-time library: foreign programs call this too.
bool tree_is_data(const char *root, char *what, std::size_t size);

} // namespace veksim
