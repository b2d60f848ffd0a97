// SPDX-License-Identifier: Apache-2.0
#include "completion.h"

#include "command_line.h"
#include "output.h"
#include "session.h"

#include <CLI/CLI.hpp>

namespace {

// Where the words so far have led.
struct place {
    CLI::App *command;
    const CLI::Option *open = nullptr; // the option whose value comes next
    std::vector<std::string> positionals{};
};

bool is_option(const std::string &word)
{
    return word.size() > 1 && word.front() == '-';
}

void step(place &at, const std::string &word)
{
    if (at.open != nullptr) {
        at.open = nullptr;
    } else if (is_option(word)) {
        const CLI::Option *option = find_option(*at.command, word);
        if (option != nullptr && option->get_items_expected_min() > 0)
            at.open = option;
    } else if (CLI::App *sub = find_command(*at.command, word); sub != nullptr && at.positionals.empty()) {
        at.command = sub;
    } else {
        at.positionals.push_back(word);
    }
}

candidates all_options(const place &at)
{
    candidates found;
    for (const CLI::Option *option : options_of(*at.command)) {
        for (const std::string &name : names_of(*option))
            found.push_back({name, option->get_description()});
    }
    return found;
}

candidates gpus_of_host()
{
    candidates found;
    reader_pool readers({.deadline = std::chrono::milliseconds(500)});
    for (const answer &gpu : readers.round({}))
        found.push_back({std::to_string(gpu.index), gpu.bus_id});
    return found;
}

candidates values_of(const CLI::Option &option)
{
    candidates found;
    if (option.check_name("--gpu"))
        return gpus_of_host();
    if (option.check_name("--format")) {
        for (const format_name &f : formats)
            found.push_back({f.name, "output format"});
    } else if (option.check_name("--fields")) {
        for (const field &f : all_fields)
            found.push_back({f.key, f.help});
    }
    return found;
}

std::vector<CLI::App *> subcommands_of(CLI::App &parent)
{
    return parent.get_subcommands([](const CLI::App *) { return true; });
}

candidates words_behind(const place &at)
{
    if (at.command->get_name() == "set")
        return next_of_setting(at.command->get_parent()->get_name(), at.positionals);
    candidates found;
    if (at.positionals.empty()) {
        for (const CLI::App *sub : subcommands_of(*at.command))
            found.push_back({sub->get_name(), sub->get_description()});
    }
    return found;
}

// What "help" explains are lines of their own, without options.
candidates topics(const place &help)
{
    place at{help.command->get_parent()};
    for (const std::string &word : help.positionals)
        step(at, word);
    return at.command == help.command ? candidates{} : words_behind(at);
}

candidates arguments(const place &at)
{
    if (at.command->get_name() == "help")
        return topics(at);
    const bool takes_words = at.command->get_name() == "set" || !subcommands_of(*at.command).empty();
    return takes_words ? words_behind(at) : all_options(at);
}

// Only what begins with TYPED; an option's values follow what stands before them in their word.
candidates matching(candidates all, const std::string &before, const std::string &typed)
{
    for (candidate &c : all)
        c.word.insert(0, before);
    std::erase_if(all, [&](const candidate &c) { return c.word.compare(0, typed.size(), typed) != 0; });
    return all;
}

candidates complete(CLI::App &root, std::span<const std::string> words)
{
    place at{&root};
    const std::string typed = words.empty() ? "" : words.back();
    for (const std::string &word : words.first(words.empty() ? 0 : words.size() - 1))
        step(at, word);
    const std::size_t equals = is_option(typed) ? typed.find('=') : std::string::npos;
    if (at.open == nullptr && equals != std::string::npos)
        at.open = find_option(*at.command, typed.substr(0, equals));
    if (at.open != nullptr) {
        // A list goes on behind its last comma.
        const std::size_t start = typed.find_last_of(equals == std::string::npos ? "," : ",=");
        const std::string before = typed.substr(0, start == std::string::npos ? 0 : start + 1);
        return matching(values_of(*at.open), before, typed);
    }
    const bool wants_option = !typed.empty() && typed.front() == '-';
    return matching(wants_option ? all_options(at) : arguments(at), "", typed);
}

} // namespace

int print_candidates(std::span<const std::string> words)
{
    CLI::App app("", "veksmi");
    request_line asked;
    std::vector<std::string> help_topic;
    describe(app, asked, help_topic);
    open_output(format::csv); // keeps the library's lines out of it
    for (const auto &[word, description] : complete(app, words))
        print("{}\t{}\n", word, description);
    return exit_done;
}
