// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host_tree.h"

#include <functional>
#include <string>
#include <vector>

/** The least that the library's operations can cost: the files they read and the lines they log, by bare system calls. */
class floors {
public:
    /** Takes the lines from the log that one refresh leaves, the files from what the driver's contract makes it read. */
    floors(veksim::host_tree &host, const std::function<void()> &one_refresh);

    std::size_t files() const { return files_.size(); }
    std::size_t lines() const { return lines_.size(); }

    /** Open, write one ready line, close. */
    void write_line() const { write_line(lines_.front()); }
    /** Open, read, close. */
    void read_once(const std::string &path) const;
    /** All files of a refresh (open, two reads, close) and all its lines. */
    void refresh() const;

private:
    void write_line(const std::string &line) const;

    std::vector<std::string> lines_;
    std::vector<std::string> files_;
};
