// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include "readings/number.h"
#include "readings/value.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <fmt/format.h>
#include <functional>

namespace exporter {
namespace {

constexpr const char *usage = R"(vekgpu-exporter [OPTION...]: serves the readings of this host's GPUs to Prometheus

  --listen ADDRESS     HOST:PORT, [IPV6]:PORT, :PORT for every interface, or
                       unix:PATH; may be repeated (default 127.0.0.1:9899, or
                       the sockets that systemd hands over)
  --deadline SECONDS   how long a GPU may take to answer, 0.01 to 60 (default 0.5)
  --processes N        series for the N largest processes of each GPU, 0 to 5
                       (default 0)
  --web-config FILE    TLS, client certificates and users
  --units FILE         the units that the driver counts in
                       (default /etc/vekgpu/units.conf)
  --once               print the metrics and exit
  -h, --help           this text
  --version            the version

/metrics is for Prometheus, / for people, /healthz for whatever watches the
exporter. Exit status: 0 done, 1 wrong usage or configuration; see
vekgpu-exporter(1).
)";

// False when the text is none of the values that an option takes.
using value_taker = std::function<bool(const std::string &text)>;

void add_option(CLI::App &app, const char *name, const char *values, bool repeatable, const value_taker &take)
{
    const auto take_all = [=](const CLI::results_t &given) {
        if (given.size() > 1 && !repeatable)
            throw refusal(fmt::format("{} can be given only once", name));
        for (const std::string &text : given) {
            if (!take(text))
                throw refusal(fmt::format("{} takes {}, not \"{}\"", name, values, readings::printable(text)));
        }
        return true;
    };
    app.add_option(name, CLI::callback_t(take_all))->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

std::string wording(const CLI::ParseError &error, const CLI::App &app)
{
    const std::vector<std::string> unknown = app.remaining(true);
    const std::string fault =
        !unknown.empty() ? fmt::format("unknown argument \"{}\"", unknown.front())
        : dynamic_cast<const CLI::ArgumentMismatch *>(&error) != nullptr
            ? fmt::format("{} needs one value",
                          std::string(error.what()).substr(0, std::string(error.what()).find(':')))
            : std::string(error.what());
    return fmt::format("{}; vekgpu-exporter --help shows what there is", readings::printable(fault));
}

} // namespace

std::optional<std::string> parse(int argc, char **argv, options &wanted)
{
    CLI::App app("", "vekgpu-exporter");
    bool help = false, version = false;
    app.set_help_flag();
    app.add_flag("-h,--help", help)->disable_flag_override();
    app.add_flag("--version", version)->disable_flag_override();
    app.add_flag("--once", wanted.once)->disable_flag_override();
    add_option(app, "--listen", "HOST:PORT or unix:PATH", true, [&](const std::string &text) {
        wanted.listen.push_back(text);
        return text.find(':') != text.npos;
    });
    add_option(app, "--deadline", "0.01 to 60 seconds", false, [&](const std::string &text) {
        const double seconds = readings::to_number<double>(text).value_or(0);
        const bool is_fit = seconds >= 0.01 && seconds <= 60;
        wanted.deadline = std::chrono::milliseconds(is_fit ? std::lround(seconds * 1000) : 0);
        return is_fit;
    });
    add_option(app, "--processes", "a number from 0 to 5", false, [&](const std::string &text) {
        wanted.processes = readings::to_number<unsigned>(text).value_or(6);
        return wanted.processes <= 5;
    });
    const auto file_option = [&](const char *name, std::string &path) {
        add_option(app, name, "the name of a file", false, [&path](const std::string &text) {
            path = text;
            return !text.empty();
        });
    };
    file_option("--web-config", wanted.web_config);
    file_option("--units", wanted.units);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        throw refusal(wording(error, app));
    }
    if (help)
        return usage;
    return version ? std::optional<std::string>("vekgpu-exporter " VEKGPU_ML_VERSION "\n") : std::nullopt;
}

} // namespace exporter
