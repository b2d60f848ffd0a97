// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "frame.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

// The argument library is large; only the files that speak to it include it.
namespace CLI {
class App;
class Option;
} // namespace CLI

// What there is to run, and what it stands on.
struct entry {
    const char *name;
    const char *description;
    action run;
    bool without_gpu = false; // works where there is none
    bool by_driver = false;   // makes no sense out of band
};
inline constexpr entry summary = {"", "", show_summary};
std::span<const entry> all_commands();

struct format_name {
    const char *name;
    format shape;
};
inline constexpr format_name formats[] = {{"table", format::table}, {"csv", format::csv}, {"json", format::json}};

// What the command line asked for.
struct request_line {
    options wanted;
    const entry *what = &summary;
    const char *set_family = nullptr; // of the value to change, if any
};

// An exit status where nothing is left to do. What cannot be understood is thrown as usage_error; the format is known
// then, if the line had told it.
std::optional<int> parse(int argc, char **argv, request_line &asked);

// Tells APP of every command and option; what it then parses goes to the other two.
void describe(CLI::App &app, request_line &asked, std::vector<std::string> &help_topic);
CLI::App *find_command(CLI::App &parent, const std::string &name);
const CLI::Option *find_option(const CLI::App &command, const std::string &name);
std::vector<const CLI::Option *> options_of(const CLI::App &command); // with those of the commands above it
std::vector<std::string> names_of(const CLI::Option &option);         // the long ones first

// The help on a command, or on what it sets; without a topic, on the client.
void explain(CLI::App &app, const std::vector<std::string> &topic);
