// SPDX-License-Identifier: Apache-2.0
#include "arguments.h"

#include "command_line.h"
#include "output.h"

#include <sstream>

void run_arguments(const std::string &lines)
{
    std::vector<std::string> words{"veksmi"};
    std::istringstream stream(lines);
    for (std::string word; std::getline(stream, word);)
        words.push_back(word.c_str()); // an argument ends at its first NUL
    std::vector<char *> arguments;
    for (std::string &word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    try {
        request_line asked;
        parse(static_cast<int>(words.size()), arguments.data(), asked);
    } catch (const usage_error &error) {
        complain(error.what());
    }
    flush_output();
}
