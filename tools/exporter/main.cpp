// SPDX-License-Identifier: Apache-2.0
// vekgpu-exporter: serves what the GPUs of this host report to Prometheus.
#include "collection.h"
#include "listener.h"
#include "metrics.h"
#include "options.h"
#include "server.h"

#include <csignal>
#include <cstdio>
#include <fmt/format.h>

namespace exporter {
namespace {

int print_once(const options &wanted)
{
    collection gpus(wanted);
    const std::string page = metrics_page(*gpus.once(), wanted.processes, dialect::text);
    std::fwrite(page.data(), 1, page.size(), stdout);
    if (std::fflush(stdout) == 0)
        return exit_done;
    std::perror("vekgpu-exporter: cannot write");
    return exit_refused;
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
        fmt::print(stderr, "vekgpu-exporter: listening on {}\n", l.address);
    running.run();
    return exit_done;
}

int run(int argc, char **argv)
{
    options wanted;
    if (const auto status = parse(argc, argv, wanted))
        return *status;
    const std::string fault = readings::present_units().read(wanted.units);
    if (!fault.empty())
        throw refusal(fault);
    return wanted.once ? print_once(wanted) : serve(wanted);
}

} // namespace
} // namespace exporter

int main(int argc, char **argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return exporter::run(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "vekgpu-exporter: %s\n", error.what());
        return exporter::exit_refused;
    }
}
