// SPDX-License-Identifier: Apache-2.0
// veksmi: shows and sets what the GPUs of this host report.
#include "completion.h"
#include "frame.h"
#include "output.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

namespace {

constexpr const char *usage = R"(veksmi [-i GPU] [COMMAND] [OPTION...]: shows and sets the GPUs of this host

  veksmi                    a summary: every GPU at a glance, then its processes
  veksmi monitor            a line per GPU per second; -n SECONDS, -c COUNT
  veksmi query --format json --fields temperature,power    readings for scripts

  list  info                what there is; every static fact
  query  ps                 chosen fields (--help-fields lists them); processes
  temp  fan  power  clock   readings and limits
  thermal  dvfs  pcie  vpu  protection, frequency scaling, link, video engines
  version  help             versions; help COMMAND tells more of one

  fan set fan 60            sets a value, as root; so do temp, power, clock,
  dvfs set 1                thermal and dvfs: "help fan" lists what and how much

  -i, --gpu GPU             one GPU: its index or PCI address (0000:03:00.0)
  --format FORMAT           table, csv or json
  --out-of-band             without the driver, through the GPU's PCI window
  -h, --help                this text, or a command's

Exit status: 0 done, 1 wrong usage, else the library's result; see veksmi(1).
)";

constexpr const char *global_options = "-i GPU, --format FORMAT and --out-of-band may follow every command.";

struct format_name {
    const char *name;
    format shape;
};
constexpr format_name formats[] = {{"table", format::table}, {"csv", format::csv}, {"json", format::json}};

// What there is to run, and what it stands on.
struct entry {
    const char *name;
    const char *description;
    command run;
    bool without_gpu = false; // works where there is none
    bool by_driver = false;   // makes no sense out of band
};

constexpr entry summary = {"", "", show_summary};
constexpr entry commands[] = {
    {"list", "the GPUs of this host", list_gpus, true},
    {"info", "every static fact", show_info},
    {"query", "chosen fields of one snapshot", query},
    {"monitor", "one line per GPU and interval, until interrupted", monitor},
    {"ps", "processes by GPU memory, the five largest of each GPU", list_processes, false, true},
    {"temp", "temperatures and their limits", show_temperatures},
    {"fan", "fan speed and control", show_fan},
    {"power", "power, voltage and current", show_power},
    {"clock", "clocks", show_clocks},
    {"thermal", "slowdown and shutdown protection", show_thermal_limits, false, true},
    {"dvfs", "dynamic voltage and frequency scaling", show_dvfs, false, true},
    {"pcie", "PCIe link, errors and events", show_pcie, false, true},
    {"vpu", "video codecs and the load of the video engines", show_video, false, true},
    {"version", "versions of client, library, driver and package", show_versions, true},
};

class library {
public:
    explicit library(bool out_of_band)
        : driverless_(out_of_band ? vekml_out_of_band_init() != VEKML_SUCCESS : (vekml_init(), false))
    {
        end_library_line();
    }
    ~library() { vekml_shutdown(); }
    library(const library &) = delete;
    library &operator=(const library &) = delete;

    gpu_list gpus() const
    {
        gpu_list list;
        vekml_device_t handle = nullptr;
        for (unsigned i = 0; vekml_device_get_handle_by_index(i, &handle) == VEKML_SUCCESS; ++i)
            list.emplace_back(handle, i, driverless_);
        return list;
    }

private:
    bool driverless_;
};

std::optional<unsigned> as_index(const std::string &text)
{
    unsigned index = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(index) : std::nullopt;
}

bool has_address(const gpu &g, const std::string &text)
{
    unsigned long domain = 0, bus = 0, device = 0, function = 0;
    int length = -1;
    std::sscanf(text.c_str(), "%4lx:%2lx:%2lx.%1lx%n", &domain, &bus, &device, &function, &length);
    vekml_pci_info_t pci{};
    vekml_device_get_pci_info(g.handle(), &pci);
    return length == static_cast<int>(text.size()) && pci.domain == domain && pci.bus == bus && pci.device == device &&
           pci.function == function;
}

gpu_list chosen(const options &wanted, gpu_list gpus)
{
    if (wanted.gpu.empty())
        return gpus;
    const auto index = as_index(wanted.gpu);
    const auto other = [&](const gpu &g) { return index ? g.index() != *index : !has_address(g, wanted.gpu); };
    const std::size_t count = gpus.size();
    std::erase_if(gpus, other);
    if (gpus.empty())
        throw usage_error(fmt::format("no GPU {}: this host has {}", printable(wanted.gpu), count));
    return gpus;
}

// What the command line asked for.
struct request {
    options wanted;
    const entry *what = &summary;
    const char *set_family = nullptr;
    bool explained = false; // help was shown
};

int run_on_gpus(const request &asked)
{
    const options &wanted = asked.wanted;
    const library started(wanted.out_of_band);
    gpu_list gpus = started.gpus();
    if (gpus.empty() && wanted.gpu.empty() && !asked.what->without_gpu) {
        if (wanted.shape == format::json)
            print_json({}, gpus);
        complain(wanted.out_of_band ? "no GPU found"
                                    : "no GPU found; where its driver is not loaded, try --out-of-band as root");
        return exit_status(VEKML_ERROR_NO_DATA);
    }
    gpus = chosen(wanted, std::move(gpus));
    if (asked.set_family != nullptr)
        return change_setting(asked.set_family, wanted, gpus);
    if (asked.what->by_driver && !gpus.empty() && gpus.front().driverless())
        throw usage_error(fmt::format("{} is not to be had out of band", asked.what->name));
    return asked.what->run(wanted, gpus);
}

int run(const request &asked)
{
    if (asked.wanted.list_fields)
        return help_fields(asked.wanted);
    try {
        check_fields(asked.wanted);
        if (asked.set_family != nullptr)
            check_setting(asked.set_family, asked.wanted);
        return run_on_gpus(asked);
    } catch (const usage_error &error) {
        gpu_list none;
        if (asked.wanted.shape == format::json)
            print_json({}, none);
        complain(error.what());
        return exit_usage;
    }
}

void add_global_options(CLI::App &app, options &wanted)
{
    app.add_option("-i,--gpu", wanted.gpu, "index or PCI address of one GPU");
    app.add_flag("--out-of-band", wanted.out_of_band, "without the driver, through the GPU's PCI window");
    const auto take_format = [&wanted](const std::string &name) {
        const auto found =
            std::find_if(std::begin(formats), std::end(formats), [&](const format_name &f) { return f.name == name; });
        if (found == std::end(formats))
            throw usage_error(fmt::format("--format takes table, csv or json, not \"{}\"", printable(name)));
        wanted.shape = found->shape;
    };
    app.add_option_function<std::string>("--format", take_format, "table, csv or json");
}

void add_query_options(CLI::App &sub, options &wanted)
{
    sub.add_option("--fields", wanted.fields, "fields to show, separated by commas");
    sub.add_flag("--help-fields", wanted.list_fields, "list all fields and their units");
}

void add_monitor_options(CLI::App &sub, options &wanted)
{
    sub.add_option("-n,--interval", wanted.interval, "seconds from one line of a GPU to its next (default 1)");
    sub.add_option("-c,--count", wanted.count, "number of rounds (default: until interrupted)");
    sub.final_callback([&] {
        if (!(wanted.interval >= 0.01 && wanted.interval <= 86400))
            throw usage_error("--interval takes seconds from 0.01 to 86400");
        if (wanted.count < 0)
            throw usage_error("--count takes a number of rounds, 0 for no end");
    });
}

void add_set_command(CLI::App &sub, const char *family, request &asked)
{
    const std::string help = settings_help(family);
    if (help.empty())
        return;
    sub.footer("Settings:" + help + "\n\n" + global_options);
    CLI::App *set = sub.add_subcommand("set", "change a value, as root");
    set->footer("Settings:" + help);
    set->add_option("SETTING", asked.wanted.setting, "what to set, and the new value")->expected(0, 2);
    set->final_callback([family, &asked] { asked.set_family = family; });
}

void describe(CLI::App &app, request &asked, std::string &topic)
{
    options &wanted = asked.wanted;
    app.require_subcommand(0, 1);
    add_global_options(app, wanted);
    app.fallthrough(); // the commands inherit it: options may follow them
    for (const entry &e : commands) {
        CLI::App *sub = app.add_subcommand(e.name, e.description);
        sub->footer(global_options);
        sub->parse_complete_callback([&e, &asked] { asked.what = &e; });
        if (e.run == query)
            add_query_options(*sub, wanted);
        if (e.run == monitor)
            add_monitor_options(*sub, wanted);
        add_set_command(*sub, e.name, asked);
    }
    app.add_subcommand("help", "what a command does and takes")->add_option("COMMAND", topic, "the command");
}

void explain(CLI::App &app, const std::string &topic)
{
    if (topic.empty())
        return put(usage);
    const auto is_topic = [&](const entry &e) { return topic == e.name; };
    if (std::none_of(std::begin(commands), std::end(commands), is_topic))
        throw usage_error(fmt::format("unknown command \"{}\"", printable(topic)));
    put(app.get_subcommand(topic)->help("veksmi"));
}

std::string wording(const CLI::ParseError &error, const CLI::App &app)
{
    const std::vector<std::string> unknown = app.remaining(true);
    const bool extra = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
    const std::string text =
        extra && !unknown.empty() ? fmt::format("unknown command or option \"{}\"", unknown.front()) : error.what();
    return printable(text) + "; veksmi --help shows what there is";
}

std::optional<int> parse(int argc, char **argv, request &asked)
{
    CLI::App app("", "veksmi");
    std::string topic;
    describe(app, asked, topic);
    try {
        app.parse(argc, argv);
        if (app.got_subcommand("help")) {
            explain(app, topic);
            return exit_done;
        }
        return std::nullopt;
    } catch (const CLI::CallForHelp &) {
        const auto subs = app.get_subcommands();
        const bool of_command = !subs.empty() && subs.front()->get_name() != "help";
        explain(app, of_command ? subs.front()->get_name() : "");
        return exit_done;
    } catch (const CLI::ParseError &error) {
        complain(wording(error, app));
    } catch (const usage_error &error) {
        complain(error.what());
    }
    return exit_usage;
}

candidates gpus_of_host()
{
    candidates found;
    const library started(false);
    for (gpu &g : started.gpus())
        found.push_back({std::to_string(g.index()), text_of(pick({"bus_id"}).front()->get(g))});
    return found;
}

candidates values_of(const CLI::Option &option, const CLI::App &command, const std::vector<std::string> &positionals)
{
    candidates found;
    if (option.check_name("--gpu"))
        return gpus_of_host();
    if (option.check_name("--format")) {
        for (const format_name &f : formats)
            found.push_back({f.name, "output format"});
    } else if (option.check_name("--fields")) {
        for (const field &f : all_fields())
            found.push_back({f.key, f.help});
    } else if (option.check_name("SETTING")) {
        return next_of_setting(command.get_parent()->get_name(), positionals);
    } else if (option.check_name("COMMAND") && positionals.empty()) {
        for (const entry &e : commands)
            found.push_back({e.name, e.description});
    }
    return found;
}

// For the shells: a line per candidate, with its description behind a tab.
int print_candidates(std::span<const std::string> words)
{
    CLI::App app("", "veksmi");
    request asked;
    std::string topic;
    describe(app, asked, topic);
    open_output(format::csv); // keeps the library's lines out of it
    for (const auto &[word, description] : complete(app, words, values_of))
        print("{}\t{}\n", word, description);
    return exit_done;
}

} // namespace

int exit_status(vekml_return_t result)
{
    const int code = static_cast<int>(result);
    return code >= 0 && code <= 254 ? code : 255;
}

int status_of(const gpu_list &gpus)
{
    for (const gpu &g : gpus) {
        if (g.result() != VEKML_SUCCESS)
            complain(fmt::format("GPU {}: not everything could be read: {}", g.index(), meaning(g.result())));
    }
    return exit_status(first_failure(gpus));
}

const char *meaning(vekml_return_t result)
{
    switch (result) {
    case VEKML_SUCCESS:
        return "done";
    case VEKML_ERROR_INVALID_ARGUMENT:
        return "invalid argument";
    case VEKML_ERROR_NOT_SUPPORTED:
        return "not supported";
    case VEKML_ERROR_NO_PERMISSION:
        return "not permitted; root may be needed";
    case VEKML_ERROR_NOT_FOUND:
        return "not found";
    case VEKML_ERROR_INSUFFICIENT_SIZE:
        return "text too long";
    case VEKML_ERROR_LIBRARY_NOT_FOUND:
        return "video libraries not found";
    case VEKML_ERROR_NO_DATA:
        return "no data";
    case VEKML_ERROR_UNKNOWN:
        return "unknown failure";
    case VEKML_ERROR_NODE_IO:
        return "the driver's node could not be read or written";
    }
    return "unknown failure";
}

int main(int argc, char **argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    try {
        if (argc > 1 && std::strcmp(argv[1], "--complete") == 0)
            return close_output(print_candidates(std::vector<std::string>(argv + 2, argv + argc)));
        request asked;
        if (const std::optional<int> status = parse(argc, argv, asked))
            return close_output(*status);
        open_output(asked.wanted.shape);
        return close_output(run(asked));
    } catch (const std::exception &error) { // memory ran out
        std::fprintf(stderr, "veksmi: %s\n", error.what());
        return exit_status(VEKML_ERROR_UNKNOWN);
    }
}
