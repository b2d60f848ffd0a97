// SPDX-License-Identifier: Apache-2.0
//
// What stands in a fuzzed program for what would take its time: a shell, a pause, the log's file.
#pragma once

#include <string>

extern std::string command_output; // of whatever command is run

// The library's own, behind the one that only formats.
[[gnu::format(printf, 4, 5)]] void write_to_log(const char *file, int line, const char *function, const char *format,
                                                ...) __asm__("__real__ZN5vekml15vekml_debug_logEPKciS1_S1_z");
