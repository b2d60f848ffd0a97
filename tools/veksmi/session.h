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

    // What the GPUs say. Where there is none, no_gpu_found is thrown; but CSV still has its header, and JSON its
    // document, so there the command goes on with nothing, and found_none tells. STOP ends it early once it is readable.
    answers ask(const request &asked, int stop = -1);
    // The same, content with nothing.
    answers ask_any(const request &asked, int stop = -1);

    bool found_none() const { return found_none_; }

    // For a command with an event loop of its own.
    reader_pool &readers() { return readers_; }
    const std::vector<unsigned> &indexes() const { return indexes_; } // empty: all

private:
    void choose(const std::string &wanted);
    void tell_library_lines(const answers &said);

    reader_pool readers_;
    format shape_;
    bool found_none_ = false;
    std::vector<unsigned> indexes_{};
    std::set<std::string> told_{}; // what the library printed is told once
};

// What readers do for a command beyond reading fields.
extern const extension setting_extension;
extern const extension topology_extension;
