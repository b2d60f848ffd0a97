// SPDX-License-Identifier: Apache-2.0
// What a result of the library, or the state of a GPU, means to the caller of the client.
#include "host_facts.h"
#include "output.h"

#include <chrono>

int exit_status(int result)
{
    return result >= 0 && result <= 254 ? result : 255;
}

std::string what_became_of(const answer &gpu)
{
    return what_became_of(gpu.state, gpu.since, gpu.detail, std::chrono::system_clock::now());
}

int status_of(const answers &gpus)
{
    int status = exit_done;
    for (const answer &gpu : gpus) {
        if (is_sick(gpu.state))
            complain(fmt::format("GPU {}{}{}{} {}", gpu.index, gpu.bus_id.empty() ? "" : " (", gpu.bus_id,
                                 gpu.bus_id.empty() ? "" : ")", what_became_of(gpu)));
        else if (gpu.state == gpu_state::ok && gpu.result != VEKML_SUCCESS)
            complain(fmt::format("GPU {}: not everything could be read: {}", gpu.index, meaning(gpu.result)));
        if (is_sick(gpu.state))
            status = exit_sick;
        else if (status == exit_done)
            status = exit_status(gpu.result);
    }
    return status;
}

const char *meaning(int result)
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
        return "the driver has no such node; veksmi why tells more";
    case VEKML_ERROR_INSUFFICIENT_SIZE:
        return "text too long";
    case VEKML_ERROR_LIBRARY_NOT_FOUND:
        return "video libraries not found";
    case VEKML_ERROR_NO_DATA:
        return "no data";
    case VEKML_ERROR_NODE_IO:
        return "reading or writing failed; veksmi why tells more";
    default:
        return "unknown failure";
    }
}

std::string hint_without_gpu(const options &wanted)
{
    return wanted.out_of_band ? "" : without_driver();
}
