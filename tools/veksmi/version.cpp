// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include <cstdlib>
#include <dlfcn.h>
#include <memory>

namespace {

// The library says its version in the name of its file alone.
value library_version()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void *>(&vekml_init), &info) == 0 || info.dli_fname == nullptr)
        return {};
    const std::unique_ptr<char, decltype(&std::free)> path(realpath(info.dli_fname, nullptr), &std::free);
    const std::string_view name = path ? path.get() : info.dli_fname;
    const std::size_t suffix = name.rfind(".so.");
    return suffix == name.npos ? value{} : text_value(name.substr(suffix + 4));
}

value package_version()
{
    char text[64] = {};
    vekml_device_get_driver_release_version(text, sizeof text - 1);
    return text_value(text);
}

} // namespace

int show_versions(const options &wanted, gpu_list &gpus)
{
    const std::vector<std::pair<std::string, value>> versions = {
        {"client", VEKGPU_ML_VERSION}, {"library", library_version()}, {"package", package_version()}};
    const field_list driver = pick({"driver_kmd", "driver_umd", "driver_ddk"});
    if (wanted.shape == format::json) {
        print_json(pick({"index", "driver_kmd", "driver_umd", "driver_ddk"}), gpus, {.head = versions});
        return exit_done;
    }
    if (wanted.shape == format::csv) {
        put("name,version\n");
        for (const auto &[name, held] : versions)
            put(csv_row({name, text_of(held)}));
        for (gpu &g : gpus) {
            for (const field *f : driver)
                put(csv_row({fmt::format("gpu{}_{}", g.index(), f->key), text_of(f->get(g))}));
        }
        return exit_done;
    }
    for (const auto &[name, held] : versions)
        print("{:<9}{}\n", name, cell(held));
    if (gpus.empty())
        print("{:<9}N/A\n", "driver");
    for (gpu &g : gpus)
        print("{:<9}GPU {}: kernel mode {}, user mode {}, development kit {}\n", "driver", g.index(),
              cell(driver[0]->get(g)), cell(driver[1]->get(g)), cell(driver[2]->get(g)));
    return exit_done;
}
