// SPDX-License-Identifier: Apache-2.0
#include "host_facts.h"

#include <array>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

namespace {

constexpr const char *devices = "/sys/bus/pci/devices";

unsigned long number_in(const std::string &path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
        return 0;
    std::array<char, 32> text{};
    const ssize_t length = read(file, text.data(), text.size() - 1);
    close(file);
    return length <= 0 ? 0 : std::strtoul(text.data(), nullptr, 16);
}

unsigned controllers_of_ours()
{
    constexpr unsigned long display = 0x03;
    unsigned count = 0;
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir(devices), closedir);
    while (const dirent *entry = directory ? readdir(directory.get()) : nullptr) {
        const std::string device = fmt::format("{}/{}", devices, entry->d_name);
        if (number_in(device + "/vendor") == VEKGPU_PCI_VENDOR_ID && number_in(device + "/class") >> 16 == display)
            ++count;
    }
    return count;
}

} // namespace

std::string without_driver()
{
    const unsigned count = controllers_of_ours();
    if (count == 0)
        return ": PCI shows no controller of the maker (see lspci)";
    const std::string seen = fmt::format(": PCI shows {} controller{} of the maker", count, count == 1 ? "" : "s");
    const bool is_loaded = access("/sys/module/vekgpu", F_OK) == 0;
    return seen + (is_loaded ? ", and the module vekgpu is loaded but made no card of it: dmesg may tell why"
                             : ", but the module vekgpu is not loaded: modprobe vekgpu loads it, and --out-of-band "
                               "reads without it, both as root");
}
