// SPDX-License-Identifier: Apache-2.0
#include "programs.h"

#include "target.h"

#include "command_line.h"
#include "completion.h"
#include "output.h"
#include "report_mask.h"

#include <sstream>

namespace {

std::vector<std::string> words_in(const std::string &lines)
{
    std::vector<std::string> words;
    std::istringstream stream(lines);
    for (std::string word; std::getline(stream, word);)
        words.push_back(word.c_str()); // an argument ends at its first NUL
    return words;
}

} // namespace

void take_arguments(const std::string &lines)
{
    std::vector<std::string> words = words_in("veksmi\n" + lines);
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

void complete(const std::string &lines)
{
    must(print_candidates(words_in(lines)) == 0);
    flush_output();
}

void mask(const std::string &input)
{
    constexpr std::uint32_t last = static_cast<std::uint32_t>(content::seen_not_recorded);
    if (input.empty())
        return;
    const auto what = static_cast<content>(static_cast<unsigned char>(input[0]) % (last + 1));
    const std::string text = input.substr(1), chip = "9b7f3a52";
    report_mask masking(false);
    masking.learn(content::chip_id, chip + "\n");
    masking.learn(what, text);
    const std::string masked = masking.masked(what, text + "\n" + chip + "\n");
    must(what == content::configuration || masked.find("\n" + chip + "\n") == std::string::npos);
    must(report_mask(true).masked(content::trace, text) == text);
    processes_in(what, text);
}
