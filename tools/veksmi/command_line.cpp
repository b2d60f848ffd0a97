// SPDX-License-Identifier: Apache-2.0
#include "command_line.h"

#include "output.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>

namespace {

constexpr entry version = {"version", "versions of client, library, driver and package", show_versions, true};
constexpr entry commands[] = {
    {"list", "the GPUs of this host", list_gpus, true},
    {"info", "every static fact", show_info},
    {"query", "chosen fields of one snapshot", query},
    {"monitor", "one line per GPU and interval, until interrupted", monitor},
    {"top", "the live screen: charts over time, and the processes", show_live, true},
    {"ps", "processes by GPU memory, the five largest of each GPU", list_processes, false, true},
    {"temp", "temperatures and their limits", show_temperatures},
    {"fan", "fan speed and control", show_fan},
    {"power", "power, voltage and current", show_power},
    {"clock", "clocks", show_clocks},
    {"thermal", "slowdown and shutdown protection", show_thermal_limits, false, true},
    {"dvfs", "dynamic voltage and frequency scaling", show_dvfs, false, true},
    {"pcie", "PCIe link, errors and events", show_pcie, false, true},
    {"vpu", "video codecs and the load of the video engines", show_video, false, true},
    {"topology", "NUMA node, CPUs and the way through the PCI bridges", show_topology, false, true},
    {"health", "a verdict per GPU: ok, warning, critical or unknown", show_health, true},
    {"why", "why values are missing, and what to do", explain_missing},
    {"report", "a file for a bug report, which veksim plays back", write_report, true, true},
    version,
};

// False when the text is none of the values that an option takes.
using value_taker = std::function<bool(const std::string &text)>;

// An option with one value. VALUES says which in a refusal, in the help and to the shells.
void add_option(CLI::App &command, const std::string &names, const char *placeholder, const std::string &values,
                const value_taker &take)
{
    const std::string name = names.substr(names.find("--"));
    const auto take_one = [=](const CLI::results_t &given) {
        if (given.size() > 1)
            throw usage_error(name + " can be given only once");
        if (!take(given.front()))
            throw usage_error(fmt::format("{} takes {}, not \"{}\"", name, values, printable(given.front())));
        return true;
    };
    command.add_option(names, CLI::callback_t(take_one), values)
        ->type_name(placeholder)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void add_global_options(CLI::App &app, options &wanted)
{
    app.set_help_flag("-h,--help", "help on the command");
    add_option(app, "-i,--gpu", "GPU", "GPUs by index, range, PCI address or UUID", [&](const std::string &text) {
        wanted.gpu = text;
        return !text.empty() && text.front() != '-';
    });
    add_option(app, "--format", "FORMAT", "table, csv or json", [&](const std::string &text) {
        const auto is_meant = [&](const format_name &f) { return f.name == text; };
        const auto *const found = std::find_if(std::begin(formats), std::end(formats), is_meant);
        if (found != std::end(formats))
            wanted.shape = found->shape;
        return found != std::end(formats);
    });
    app.add_flag("--out-of-band", wanted.out_of_band, "without the driver, through the GPU's PCI window")
        ->disable_flag_override();
    app.add_flag("--wake", wanted.wake, "reads GPUs that sleep as well, which wakes them")->disable_flag_override();
    add_option(app, "--deadline", "SECONDS", "seconds to wait for a GPU, 0.01 to 3600 (default 5)",
               [&](const std::string &text) {
                   const double seconds = to_number<double>(text).value_or(0);
                   wanted.deadline = std::chrono::milliseconds(
                       static_cast<long>(seconds >= 0.01 && seconds <= 3600 ? seconds * 1000 : 0));
                   return seconds >= 0.01 && seconds <= 3600;
               });
    app.add_flag("--version", wanted.version, "versions, as version shows them")->disable_flag_override();
}

void add_fields_option(CLI::App &command, options &wanted)
{
    add_option(command, "--fields", "FIELD,...", "names of fields, separated by commas", [&](const std::string &text) {
        if (!text.empty())
            wanted.fields = parse_fields(text);
        return !text.empty();
    });
}

void add_query_options(CLI::App &query, options &wanted)
{
    add_fields_option(query, wanted);
    query.add_flag("--help-fields", wanted.list_fields, "lists all fields and their units")->disable_flag_override();
}

void add_monitor_options(CLI::App &monitor, options &wanted)
{
    add_fields_option(monitor, wanted);
    add_option(monitor, "-n,--interval", "SECONDS", "seconds between rounds, 0.01 to 86400 (default 1)",
               [&](const std::string &text) {
                   wanted.interval = to_number<double>(text).value_or(0);
                   return wanted.interval >= 0.01 && wanted.interval <= 86400;
               });
    add_option(monitor, "-c,--count", "COUNT", "a number of rounds, 0 for no end (default)",
               [&](const std::string &text) {
                   wanted.count = to_number<long>(text).value_or(-1);
                   return wanted.count >= 0;
               });
    monitor.add_flag("--until-lost", wanted.until_lost, "ends when a GPU is lost")->disable_flag_override();
}

void add_top_options(CLI::App &top, options &wanted)
{
    add_option(top, "-n,--interval", "SECONDS", "seconds between rounds, 0.1 to 3600 (as last time, else 1)",
               [&](const std::string &text) {
                   wanted.interval = to_number<double>(text).value_or(0);
                   wanted.interval_given = true;
                   return wanted.interval >= 0.1 && wanted.interval <= 3600;
               });
    top.add_flag("--once", wanted.once, "prints one screen as text")->disable_flag_override();
    top.add_flag("--ascii", wanted.ascii, "draws with ASCII")->disable_flag_override();
}

void add_report_options(CLI::App &report, options &wanted)
{
    add_option(report, "-o,--output", "FILE", "where to write it, - for standard output", [&](const std::string &text) {
        wanted.output = text;
        return !text.empty();
    });
    report.add_flag("--full", wanted.full, "masks nothing: chip ids, processes and host name are in it")
        ->disable_flag_override();
}

void add_set_command(CLI::App &family, const char *name, request_line &asked)
{
    if (!has_settings(name))
        return;
    CLI::App *set = family.add_subcommand("set", "change a value, as root");
    set->add_option("SETTING", asked.wanted.setting, "what to set, and the new value");
    set->add_flag("--yes", asked.wanted.yes, "also a value outside the usual range")->disable_flag_override();
    set->final_callback([name, &asked] { asked.set_family = name; });
    const char *what = nullptr;
    if (const char *value = reset_of(name, what)) {
        CLI::App *reset = family.add_subcommand("reset", "back to the driver's own control, as root");
        reset->final_callback([=, &asked] {
            asked.set_family = name;
            asked.wanted.setting = {what, value};
        });
    }
}

// The commands that the line has named so far: none, "fan" or "fan set".
std::vector<CLI::App *> named_commands(CLI::App &app)
{
    std::vector<CLI::App *> path;
    for (CLI::App *command = &app; !command->get_subcommands().empty();) {
        command = command->get_subcommands().front();
        path.push_back(command);
    }
    return path;
}

std::vector<std::string> names_of(const std::vector<CLI::App *> &path)
{
    std::vector<std::string> names(path.size());
    std::transform(path.begin(), path.end(), names.begin(),
                   [](const CLI::App *command) { return command->get_name(); });
    return names;
}

std::string unknown_word(const CLI::App &app, const std::string &command)
{
    const std::string word = printable(app.remaining(true).front());
    if (word.size() > 1 && word.front() == '-')
        return fmt::format("unknown option \"{}\"", word);
    return command.empty() ? fmt::format("unknown command \"{}\"", word)
                           : fmt::format("{} takes no \"{}\"", command, word);
}

// An option without its value, which the error names, or a flag with one.
std::string value_mismatch(const CLI::App &command, const std::string &error)
{
    const std::string name = error.substr(0, error.find_first_of(": "));
    const CLI::Option *option = find_option(command, name);
    return option == nullptr ? fmt::format("--{} takes no value", name)
                             : fmt::format("{} needs a value: {}", name, option->get_description());
}

// The argument library's errors in this client's words, and what to type next.
std::string wording(const CLI::ParseError &error, CLI::App &app)
{
    const std::vector<CLI::App *> path = named_commands(app);
    const std::string command = fmt::format("{}", fmt::join(names_of(path), " "));
    std::string fault = printable(error.what());
    if (dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr && app.remaining_size(true) > 0)
        fault = unknown_word(app, command);
    else if (dynamic_cast<const CLI::ArgumentMismatch *>(&error) != nullptr)
        fault = value_mismatch(path.empty() ? app : *path.back(), fault);
    const bool has_own_help = !command.empty() && command != "help";
    return fmt::format("{}; veksmi {} shows what there is", fault, has_own_help ? "help " + command : "--help");
}

bool asks_for_json(const CLI::App &app)
{
    const CLI::results_t &given = app.get_option("--format")->results();
    return std::find(given.begin(), given.end(), "json") != given.end();
}

} // namespace

std::span<const entry> all_commands()
{
    return commands;
}

CLI::App *find_command(CLI::App &parent, const std::string &name)
{
    const auto found = parent.get_subcommands([&](const CLI::App *sub) { return sub->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

std::vector<const CLI::Option *> options_of(const CLI::App &command)
{
    std::vector<const CLI::Option *> all;
    for (const CLI::App *holder = &command; holder != nullptr; holder = holder->get_parent()) {
        for (const CLI::Option *option : holder->get_options()) {
            const bool repeated = option == holder->get_help_ptr() && holder != &command;
            if (!repeated)
                all.push_back(option);
        }
    }
    return all;
}

const CLI::Option *find_option(const CLI::App &command, const std::string &name)
{
    const std::vector<const CLI::Option *> options = options_of(command);
    const auto found = std::find_if(options.begin(), options.end(), [&](const auto *o) { return o->check_name(name); });
    return found == options.end() ? nullptr : *found;
}

std::vector<std::string> names_of(const CLI::Option &option)
{
    std::vector<std::string> names;
    for (const std::string &name : option.get_lnames())
        names.push_back("--" + name);
    for (const std::string &name : option.get_snames())
        names.push_back("-" + name);
    return names;
}

void describe(CLI::App &app, request_line &asked, std::vector<std::string> &help_topic)
{
    app.require_subcommand(0, 1);
    add_global_options(app, asked.wanted);
    app.fallthrough(); // the commands inherit it: options may follow them
    for (const entry &e : commands) {
        CLI::App *sub = app.add_subcommand(e.name, e.description);
        sub->parse_complete_callback([&e, &asked] { asked.what = &e; });
        if (e.run == query)
            add_query_options(*sub, asked.wanted);
        if (e.run == monitor)
            add_monitor_options(*sub, asked.wanted);
        if (e.run == list_processes)
            add_option(*sub, "--sort", "KEY", "memory, pid or user", [&](const std::string &text) {
                constexpr const char *orders[] = {"memory", "pid", "user"};
                const auto *const found = std::find(std::begin(orders), std::end(orders), text);
                asked.wanted.order = static_cast<process_order>(found - orders);
                return found != std::end(orders);
            });
        if (e.run == show_live)
            add_top_options(*sub, asked.wanted);
        if (e.run == write_report)
            add_report_options(*sub, asked.wanted);
        if (e.run == explain_missing)
            sub->add_option("FIELD", asked.wanted.words, "fields to explain; without one, all that are missing");
        add_set_command(*sub, e.name, asked);
    }
    app.add_subcommand("help", "what a command does and takes")->add_option("TOPIC", help_topic, "the command");
}

std::optional<int> parse(int argc, char **argv, request_line &asked)
{
    CLI::App app("", "veksmi");
    std::vector<std::string> help_topic;
    describe(app, asked, help_topic);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &) {
        explain(app, names_of(named_commands(app)));
        return exit_done;
    } catch (const std::runtime_error &error) {
        if (asks_for_json(app))
            asked.wanted.shape = format::json;
        const auto *not_ours = dynamic_cast<const CLI::ParseError *>(&error);
        throw usage_error(not_ours == nullptr ? error.what() : wording(*not_ours, app));
    }
    if (app.got_subcommand("help")) {
        explain(app, help_topic);
        return exit_done;
    }
    if (asked.wanted.version)
        asked = {.wanted = asked.wanted, .what = &version};
    if (asked.set_family != nullptr)
        check_setting(asked.set_family, asked.wanted);
    return std::nullopt;
}
