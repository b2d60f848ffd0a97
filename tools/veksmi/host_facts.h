// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

// What this host shows of the maker's GPUs when no driver has made a card of them, and what to type next; goes on from
// "no GPU found".
std::string without_driver();
