// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace veksim {

// A command as exec and its like take it, for as long as its words stay where they are.
inline std::vector<char *> argument_vector(const std::vector<std::string> &words)
{
    std::vector<char *> pointers;
    pointers.reserve(words.size() + 1);
    for (const std::string &word : words)
        pointers.push_back(const_cast<char *>(word.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace veksim
