// SPDX-License-Identifier: Apache-2.0
// veksmi: shows and sets what the GPUs of this host report.
#include "command_line.h"
#include "completion.h"
#include "library.h"
#include "output.h"

#include <csignal>
#include <cstdio>
#include <cstring>

namespace {

int run_on_gpus(const request &asked)
{
    const options &wanted = asked.wanted;
    const library started(wanted.out_of_band);
    gpu_list gpus = started.gpus();
    if (gpus.empty() && wanted.gpu.empty() && !asked.what->without_gpu) {
        if (wanted.shape == format::json)
            print_json({}, gpus);
        complain(fmt::format("no GPU found{}", hint_without_gpu(wanted)));
        return exit_status(VEKML_ERROR_NO_DATA);
    }
    gpus = chosen(wanted, std::move(gpus));
    if (asked.set_family != nullptr)
        return change_setting(asked.set_family, wanted, gpus);
    if (asked.what->by_driver && !gpus.empty() && gpus.front().driverless())
        throw usage_error(fmt::format("{} is not to be had out of band: it needs the driver", asked.what->name));
    return asked.what->run(wanted, gpus);
}

int run(int argc, char **argv, request &asked)
{
    if (const std::optional<int> status = parse(argc, argv, asked))
        return *status;
    open_output(asked.wanted.shape);
    return asked.wanted.list_fields ? help_fields() : run_on_gpus(asked);
}

int refuse(const usage_error &error, const options &wanted)
{
    gpu_list none;
    if (wanted.shape == format::json)
        print_json({}, none);
    complain(error.what());
    return exit_usage;
}

} // namespace

int main(int argc, char **argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    try {
        if (argc > 1 && std::strcmp(argv[1], "--complete") == 0)
            return close_output(print_candidates(std::vector<std::string>(argv + 2, argv + argc)));
        request asked;
        try {
            return close_output(run(argc, argv, asked));
        } catch (const usage_error &error) {
            return close_output(refuse(error, asked.wanted));
        }
    } catch (const std::exception &error) { // memory ran out
        std::fprintf(stderr, "veksmi: %s\n", error.what());
        return exit_status(VEKML_ERROR_UNKNOWN);
    }
}
