// SPDX-License-Identifier: Apache-2.0
// vekgpu-exporter: serves what the GPUs of this host report to Prometheus.
#include "collection.h"
#include "listener.h"
#include "log.h"
#include "metrics.h"
#include "options.h"
#include "server.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>

namespace exporter {
namespace {

// A reader that went away early took what it wanted.
int print(std::string_view text)
{
    errno = 0;
    const bool is_out = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    if (is_out || errno == EPIPE)
        return exit_done;
    log_line(fmt::format("cannot write: {}", std::strerror(errno)));
    return exit_refused;
}

int print_once(const options &wanted)
{
    collection gpus(wanted);
    return print(metrics_page(*gpus.once(), wanted.processes, dialect::text));
}

int serve(const options &wanted)
{
    web_config access;
    if (!wanted.web_config.empty())
        access = read_web_config(wanted.web_config);
    listeners where;
    where.take_inherited();
    for (const std::string &address : wanted.listen)
        where.open(address);
    if (where.all().empty())
        where.open(default_address);
    collection gpus(wanted);
    server running(wanted, std::move(access), where, gpus);
    for (const listeners::listener &l : where.all())
        log_line(fmt::format("listening on {}", l.address));
    running.run();
    return exit_done;
}

int run(int argc, char **argv)
{
    options wanted;
    if (const auto text = parse(argc, argv, wanted))
        return print(*text);
    const std::string fault = readings::present_units().read(wanted.units);
    if (!fault.empty())
        throw refusal(fault);
    return wanted.once ? print_once(wanted) : serve(wanted);
}

} // namespace
} // namespace exporter

int main(int argc, char **argv)
{
    readings::keep_standard_descriptors();
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return exporter::run(argc, argv);
    } catch (const std::exception &error) {
        exporter::log_line(error.what());
        return exporter::exit_refused;
    }
}
