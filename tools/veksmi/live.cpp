// SPDX-License-Identifier: Apache-2.0
#include "session.h"
#include "top/top.h"

#include <cmath>

int show_live(const options &wanted, session &gpus)
{
    if (wanted.shape != format::table)
        throw usage_error("top shows a screen; monitor and query write CSV and JSON");
    top::pool_source readers(gpus.readers(), gpus.indexes());
    top::options live{.deadline = wanted.deadline, .ascii = wanted.ascii, .once = wanted.once};
    if (wanted.interval_given)
        live.interval = std::chrono::milliseconds(std::lround(wanted.interval * 1000));
    switch (top::run(readers, live)) {
    case top::ending::done:
        return exit_done;
    case top::ending::ill:
        return exit_sick;
    case top::ending::no_gpu:
        throw no_gpu_found();
    case top::ending::no_terminal:
        break;
    }
    return exit_usage;
}
