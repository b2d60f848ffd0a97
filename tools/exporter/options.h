// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readings/units.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace exporter {

inline constexpr int exit_done = 0;
inline constexpr int exit_refused = 1; // wrong usage or configuration; nothing was served

struct options {
    std::vector<std::string> listen{}; // empty: the sockets that were handed over, else default_address
    std::chrono::milliseconds deadline{500};
    unsigned processes = 0; // the largest of each GPU, each with series of its own
    std::string web_config{};
    std::string units = readings::units::file;
    bool once = false;
};
inline constexpr const char *default_address = "127.0.0.1:9899";

// What is wrong with the command line, a file or an address, in one line.
class refusal : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The text to print where the command line asks for nothing else: help, version.
std::optional<std::string> parse(int argc, char **argv, options &wanted);

} // namespace exporter
