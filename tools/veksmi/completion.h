// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "frame.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <span>

// What an option or positional of COMMAND takes, after the positionals that came before.
using value_source = std::function<candidates(const CLI::Option &, const CLI::App &command,
                                              const std::vector<std::string> &positionals)>;

// What can stand for the last of WORDS, the part of a command line that is already typed.
candidates complete(CLI::App &root, std::span<const std::string> words, const value_source &values);
