// SPDX-License-Identifier: Apache-2.0
// veksmi: shows and sets what the GPUs of this host report.
#include "command_line.h"
#include "completion.h"
#include "output.h"
#include "readings/standard_streams.h"
#include "session.h"

#include <csignal>
#include <cstring>

namespace {

std::string nothing_found(const options &wanted)
{
    return fmt::format("no GPU found{}", hint_without_gpu(wanted));
}

int run_on_gpus(const request_line &asked)
{
    const options &wanted = asked.wanted;
    session gpus(wanted);
    if (asked.set_family != nullptr)
        return change_setting(asked.set_family, wanted, gpus);
    if (asked.what->by_driver && wanted.out_of_band) {
        const answers known = gpus.ask_any({});
        if (!known.empty() && known.front().driverless)
            throw usage_error(fmt::format("{} is not to be had out of band: it needs the driver", asked.what->name));
    }
    const int status = asked.what->run(wanted, gpus);
    if (gpus.found_none()) {
        complain(nothing_found(wanted));
        return exit_status(VEKML_ERROR_NO_DATA);
    }
    return status;
}

int run(int argc, char **argv, request_line &asked)
{
    if (const std::optional<int> status = parse(argc, argv, asked))
        return *status;
    open_output(asked.wanted.shape);
    if (asked.wanted.list_fields)
        return help_fields(asked.wanted);
    if (const std::string fault = present_units().read(units::file); !fault.empty())
        complain(fault);
    return run_on_gpus(asked);
}

int refuse(const std::string &why, const options &wanted, int status)
{
    if (wanted.shape == format::json)
        print_json({}, {});
    complain(why);
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    keep_standard_descriptors();
    std::signal(SIGPIPE, SIG_IGN);
    try {
        if (argc > 1 && std::strcmp(argv[1], "--complete") == 0)
            return close_output(print_candidates(std::vector<std::string>(argv + 2, argv + argc)));
        request_line asked;
        try {
            return close_output(run(argc, argv, asked));
        } catch (const usage_error &error) {
            return close_output(refuse(error.what(), asked.wanted, exit_usage));
        } catch (const no_gpu_found &) {
            return close_output(refuse(nothing_found(asked.wanted), asked.wanted, exit_status(VEKML_ERROR_NO_DATA)));
        }
    } catch (const std::exception &error) { // memory ran out
        complain(error.what());
        return exit_status(VEKML_ERROR_UNKNOWN);
    }
}
