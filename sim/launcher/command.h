// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "options.h"

#include "driver_model.h"

#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

// The command, behind the emulator that a cross-built one needs; what it is to find in its environment is in ours then.
std::vector<std::string> prepare_command(const options &wanted, const std::filesystem::path &tree,
                                         const std::filesystem::path &interposer);
int spawn(const std::vector<std::string> &command, pid_t *pid); // an error number
// Waits for the command and gives its exit status. What it writes is answered within 20 ms; the readings move ten times a
// second.
int attend(pid_t pid, std::unique_ptr<veksim::driver_model> &model, bool still);
