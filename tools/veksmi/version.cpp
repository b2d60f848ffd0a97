// SPDX-License-Identifier: Apache-2.0
#include "output.h"
#include "session.h"

#include <cstdlib>
#include <dlfcn.h>
#include <memory>

namespace {

// The library says its version in the name of its file alone.
value library_version()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void *>(&vekml_init), &info) == 0 || info.dli_fname == nullptr)
        return missing{};
    const std::unique_ptr<char, decltype(&std::free)> path(realpath(info.dli_fname, nullptr), &std::free);
    const std::string_view name = path ? path.get() : info.dli_fname;
    const std::size_t suffix = name.rfind(".so.");
    return suffix == name.npos ? value(missing{}) : text_value(name.substr(suffix + 4));
}

value package_version()
{
    char text[64] = {};
    vekml_device_get_driver_release_version(text, sizeof text - 1);
    return text_value(text);
}

} // namespace

int show_versions(const options &wanted, session &gpus)
{
    const std::vector<std::pair<std::string, value>> versions = {
        {"client", std::string(VEKGPU_ML_VERSION)}, {"library", library_version()}, {"package", package_version()}};
    const field_list fields = pick<"index", "driver_kmd", "driver_umd", "driver_ddk">();
    const answers said = gpus.ask_any({.fields = fields});
    if (wanted.shape == format::json) {
        print_json(fields, said, {.head = versions});
        return status_of(said);
    }
    if (wanted.shape == format::csv) {
        put("name,version\n");
        for (const auto &[name, held] : versions)
            put(csv_row({name, text_of(held)}));
        for (const answer &gpu : said) {
            for (auto f = fields.begin() + 1; f != fields.end(); ++f)
                put(csv_row({fmt::format("gpu{}_{}", gpu.index, (*f)->key), text_of(gpu[**f])}));
        }
        return status_of(said);
    }
    for (const auto &[name, held] : versions)
        print("{:<9}{}\n", name, human(held, unit::none));
    if (said.empty())
        print("{:<9}N/A\n", "driver");
    for (const answer &gpu : said)
        print("{:<9}GPU {}: kernel mode {}, user mode {}, development kit {}\n", "driver", gpu.index,
              shown(gpu, *fields[1]), shown(gpu, *fields[2]), shown(gpu, *fields[3]));
    return status_of(said);
}
