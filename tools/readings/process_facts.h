// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "answer.h"
#include "gpu.h"

namespace readings {

// The processes that hold memory of the GPU, the five largest at most: an array of objects with pid, name, memory,
// memory_total, user, command and unit; null where the driver does not tell.
json processes_of(gpu &g);

// One of those, as a program takes it out of an answer.
struct process {
    std::uint64_t pid = 0;
    std::uint64_t memory = 0, memory_total = 0;    // bytes
    std::string name{}, user{}, command{}, unit{}; // empty where nothing tells
};
std::vector<process> processes_in(const answer &said); // without those that make no sense

} // namespace readings
