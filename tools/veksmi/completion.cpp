// SPDX-License-Identifier: Apache-2.0
// What a shell offers for the word that is being typed, out of the tree of commands.
#include "completion.h"

#include <set>

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

// A command takes the options of those above it as well.
const CLI::Option *find_option(CLI::App *command, const std::string &name)
{
    for (; command != nullptr; command = command->get_parent()) {
        if (const CLI::Option *found = command->get_option_no_throw(name))
            return found;
    }
    return nullptr;
}

CLI::App *find_command(CLI::App &parent, const std::string &name)
{
    const auto found = parent.get_subcommands([&](const CLI::App *sub) { return sub->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

void step(place &at, const std::string &word)
{
    if (at.open != nullptr) {
        at.open = nullptr;
    } else if (is_option(word)) {
        const CLI::Option *option = find_option(at.command, word);
        if (option != nullptr && option->get_items_expected_min() > 0)
            at.open = option;
    } else if (CLI::App *sub = find_command(*at.command, word); sub != nullptr && at.positionals.empty()) {
        at.command = sub;
    } else {
        at.positionals.push_back(word);
    }
}

candidates options_of(CLI::App *command)
{
    candidates found;
    std::set<std::string> known;
    for (; command != nullptr; command = command->get_parent()) {
        for (const CLI::Option *option : command->get_options()) {
            std::vector<std::string> names;
            for (const std::string &name : option->get_lnames())
                names.push_back("--" + name);
            for (const std::string &name : option->get_snames())
                names.push_back("-" + name);
            for (const std::string &name : names) {
                if (known.insert(name).second)
                    found.push_back({name, option->get_description()});
            }
        }
    }
    return found;
}

candidates arguments_of(const place &at, const value_source &values)
{
    candidates found;
    const auto subs = at.command->get_subcommands([](const CLI::App *) { return true; });
    const auto positionals = at.command->get_options([](const CLI::Option *o) { return o->get_positional(); });
    if (at.positionals.empty()) {
        for (const CLI::App *sub : subs)
            found.push_back({sub->get_name(), sub->get_description()});
    }
    for (const CLI::Option *positional : positionals) {
        for (candidate &value : values(*positional, *at.command, at.positionals))
            found.push_back(std::move(value));
    }
    return subs.empty() && positionals.empty() ? options_of(at.command) : found;
}

// Only what begins with TYPED; an option's values follow what stands before them in their word.
candidates matching(candidates all, const std::string &before, const std::string &typed)
{
    for (candidate &c : all)
        c.word.insert(0, before);
    std::erase_if(all, [&](const candidate &c) { return c.word.compare(0, typed.size(), typed) != 0; });
    return all;
}

} // namespace

candidates complete(CLI::App &root, std::span<const std::string> words, const value_source &values)
{
    place at{&root};
    const std::string typed = words.empty() ? "" : words.back();
    for (const std::string &word : words.first(words.empty() ? 0 : words.size() - 1))
        step(at, word);
    const std::size_t equals = is_option(typed) ? typed.find('=') : std::string::npos;
    if (at.open == nullptr && equals != std::string::npos)
        at.open = find_option(at.command, typed.substr(0, equals));
    if (at.open != nullptr) {
        // A list goes on behind its last comma.
        const std::size_t start = typed.find_last_of(equals == std::string::npos ? "," : ",=");
        const std::string before = typed.substr(0, start == std::string::npos ? 0 : start + 1);
        return matching(values(*at.open, *at.command, at.positionals), before, typed);
    }
    const bool wants_option = !typed.empty() && typed.front() == '-';
    return matching(wants_option ? options_of(at.command) : arguments_of(at, values), "", typed);
}
