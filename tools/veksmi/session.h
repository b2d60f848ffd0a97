// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "frame.h"
#include "readings/reader_pool.h"

#include <set>

// The GPUs that a command is for, and what it asks them.
class session {
public:
    // Those that were asked for, or all; one that is not there is thrown as usage_error.
    explicit session(const options &wanted);

    // What the GPUs say; no_gpu_found is thrown where there is none. STOP ends it early once it is readable.
    answers ask(const request &asked, int stop = -1);
    // The same, content with nothing.
    answers ask_any(const request &asked, int stop = -1);

private:
    void choose(const std::string &wanted);
    void tell_library_lines(const answers &said);

    reader_pool readers_;
    bool chosen_ = false;
    std::vector<unsigned> indexes_{};
    std::set<std::string> told_{}; // what the library printed is told once
};

// What readers do for a command beyond reading fields.
extern const extension setting_extension;
