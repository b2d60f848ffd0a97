// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

/** Lets the client take a command line, an argument a line, up to where it would start to work. */
void run_arguments(const std::string &lines);
