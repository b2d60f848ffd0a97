// SPDX-License-Identifier: Apache-2.0
//
// A program of targets is run as PROGRAM --target=NAME FOLDER [libFuzzer's options]. PROGRAM --seeds=FOLDER fills
// FOLDER/NAME for every target and prints a line for each: its name, and the source that it is meant to reach.
#pragma once

#include "host_tree.h"

#include <functional>
#include <string>
#include <vector>

using inputs = std::vector<std::string>;

struct target {
    std::string name;
    std::string source;
    std::function<void(const std::string &input)> run;
    inputs seeds;
    std::function<void()> prepare = [] {}; // once, before the first input
};

std::vector<target> all_targets(); // the program's own

extern veksim::host_tree *const host; // that the program reads, as root
inputs single_values();               // GPU 0's nodes of one value but the vendor id, without which there is no GPU
void link_to_first(const inputs &nodes);

// What must hold whatever the input is.
inline void must(bool holds)
{
    if (!holds)
        __builtin_trap();
}
