// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>

// For the shells: what can stand for the last of WORDS, the part of a command line that is already typed. A line per
// candidate, with its description behind a tab.
int print_candidates(std::span<const std::string> words);
