// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

constexpr int exit_usage = 1;

struct options {
    int gpus = 2;
    bool driver = true;
    bool still = false;
    bool distinct = false;
    bool keep = false;
    bool trust = false;
    std::filesystem::path tree;
    std::vector<char *> command;
};

// What the command line asks for; the exit status when there is nothing to run.
std::optional<int> parse(int argc, char **argv, options &wanted);

int complain(const std::string &what); // exit_usage
