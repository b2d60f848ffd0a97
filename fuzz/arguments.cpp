// SPDX-License-Identifier: Apache-2.0
#include "arguments.h"

// Taking arguments apart is nobody else's business in the client, so its main file is compiled into this one.
#define main client_main
#include "../tools/veksmi/main.cpp"
#undef main

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

    request asked;
    if (!parse(static_cast<int>(words.size()), arguments.data(), asked)) {
        try {
            check_fields(asked.wanted);
            if (asked.set_family != nullptr)
                check_setting(asked.set_family, asked.wanted);
            chosen(asked.wanted, {});
        } catch (const usage_error &error) {
            complain(error.what());
        }
    }
    flush_output();
}
