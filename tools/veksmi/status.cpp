// SPDX-License-Identifier: Apache-2.0
// What a result of the library means to the caller of the client.
#include "output.h"

#include <algorithm>

int exit_status(vekml_return_t result)
{
    const int code = static_cast<int>(result);
    return code >= 0 && code <= 254 ? code : 255;
}

int status_of(const gpu_list &gpus)
{
    const auto failed = [](const gpu &g) { return g.result() != VEKML_SUCCESS; };
    for (const gpu &g : gpus) {
        if (failed(g))
            complain(fmt::format("GPU {}: not everything could be read: {}", g.index(), meaning(g.result())));
    }
    const auto first = std::find_if(gpus.begin(), gpus.end(), failed);
    return first == gpus.end() ? exit_done : exit_status(first->result());
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
        return "the driver has no such node; see /tmp/smi.log";
    case VEKML_ERROR_INSUFFICIENT_SIZE:
        return "text too long";
    case VEKML_ERROR_LIBRARY_NOT_FOUND:
        return "video libraries not found";
    case VEKML_ERROR_NO_DATA:
        return "no data";
    case VEKML_ERROR_UNKNOWN:
        return "unknown failure";
    case VEKML_ERROR_NODE_IO:
        return "reading or writing failed; see /tmp/smi.log";
    }
    return "unknown failure";
}

const char *hint_without_gpu(const options &wanted)
{
    return wanted.out_of_band ? "" : "; where its driver is not loaded, try --out-of-band as root";
}
