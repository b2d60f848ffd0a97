// SPDX-License-Identifier: Apache-2.0
#include "library.h"

#include "output.h"

#include <algorithm>
#include <cstdio>

namespace {

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

} // namespace

library::library(bool out_of_band)
    : driverless_(out_of_band ? vekml_out_of_band_init() != VEKML_SUCCESS : (vekml_init(), false))
{
    end_library_line();
}

library::~library()
{
    vekml_shutdown();
}

gpu_list library::gpus() const
{
    gpu_list list;
    vekml_device_t handle = nullptr;
    for (unsigned i = 0; vekml_device_get_handle_by_index(i, &handle) == VEKML_SUCCESS; ++i)
        list.emplace_back(handle, i, driverless_);
    return list;
}

gpu_list chosen(const options &wanted, gpu_list gpus)
{
    if (wanted.gpu.empty())
        return gpus;
    const auto index = to_number<unsigned>(wanted.gpu);
    const auto other = [&](const gpu &g) { return index ? g.index() != *index : !has_address(g, wanted.gpu); };
    const std::size_t count = gpus.size();
    std::erase_if(gpus, other);
    if (gpus.empty())
        throw usage_error(
            fmt::format("no GPU \"{}\": this host has {}; veksmi list shows them", printable(wanted.gpu), count));
    return gpus;
}
