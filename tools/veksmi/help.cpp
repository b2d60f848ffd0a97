// SPDX-License-Identifier: Apache-2.0
#include "command_line.h"
#include "output.h"

#include <CLI/CLI.hpp>

namespace {

constexpr const char *usage = R"(veksmi [-i GPU] [COMMAND] [OPTION...]: shows and sets the GPUs of this host

  veksmi                    a summary: every GPU at a glance, then its processes
  veksmi monitor            a line per GPU per second; -n SECONDS, -c COUNT
  veksmi query --format json --fields temperature,power    readings for scripts

  list  info  top           what there is; every static fact; the live screen
  query  ps                 chosen fields (--help-fields lists them); processes
  temp  fan  power  clock   readings and limits
  thermal  dvfs  pcie  vpu  protection, frequency scaling, link, video engines
  health  why  topology     a verdict; why values are missing; the PCIe path
  report  version  help     a file for a bug report; versions; help COMMAND

  fan set fan 60            sets a value, as root; so do temp, power, clock,
  dvfs set 1                thermal and dvfs: "help fan" lists what and how much

  -i, --gpu GPU,...         some GPUs: 0, 0-3, 03:00.0, a UUID
  --format FORMAT           table, csv or json
  --out-of-band             without the driver, through the GPU's PCI window
  --deadline SECONDS        how long to wait for a GPU that does not answer
  -h, --help                this text, or a command's

Exit status: 0 done, 1 wrong usage, 5 a GPU is sick, else the library's result.
)";

std::string option_rows(const CLI::App &command)
{
    std::vector<std::pair<std::string, std::string>> rows;
    std::size_t width = 0;
    for (const CLI::Option *option : options_of(command)) {
        if (option->get_positional())
            continue;
        const std::vector<std::string> names = names_of(*option);
        std::string left = fmt::format("{}", fmt::join(names.rbegin(), names.rend(), ", "));
        if (option->get_items_expected_max() > 0)
            left += " " + option->get_type_name();
        width = std::max(width, left.size());
        rows.emplace_back(left, option->get_description());
    }
    std::string text;
    for (const auto &[left, right] : rows)
        text += fmt::format("  {:<{}}  {}\n", left, width, right);
    return text;
}

std::string help_on_command(const CLI::App &command)
{
    const std::string &name = command.get_name();
    const bool is_help = name == "help";
    std::string text = fmt::format("veksmi {} {}: {}\n", name, is_help ? "[COMMAND [set [WHAT]]]" : "[OPTION...]",
                                   command.get_description());
    if (has_settings(name))
        text += "\n" + settings_help(name, "");
    return text + (is_help ? "" : "\n" + option_rows(command));
}

} // namespace

void explain(CLI::App &app, const std::vector<std::string> &topic)
{
    if (topic.empty())
        return put_wrapped(usage);
    const std::string &name = topic.front();
    const CLI::App *command = find_command(app, name);
    if (command == nullptr) {
        std::string known;
        for (const entry &e : all_commands())
            known += fmt::format("{}, ", e.name);
        throw usage_error(fmt::format("unknown command \"{}\"; there are {}help", printable(name), known));
    }
    if (topic.size() == 1)
        return put_wrapped(help_on_command(*command));
    const bool is_set = has_settings(name) && topic[1] == "set";
    if (!is_set || topic.size() > 3)
        throw usage_error(fmt::format("no help on \"{}\"; there is veksmi help {}",
                                      printable(fmt::format("{}", fmt::join(topic, " "))),
                                      is_set ? name + " set WHAT" : name));
    put_wrapped(settings_help(name, topic.size() == 3 ? topic[2] : ""));
}
