// SPDX-License-Identifier: Apache-2.0
#include "cards.h"

#include "number.h"
#include "pci_address.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <unistd.h>

namespace readings {
namespace {

constexpr const char *folder = "/sys/class/drm";

std::optional<unsigned> number_of(std::string_view entry)
{
    constexpr std::string_view prefix = "card";
    return entry.starts_with(prefix) ? to_number<unsigned>(entry.substr(prefix.size())) : std::nullopt;
}

std::string bus_id_of(unsigned number)
{
    std::array<char, PATH_MAX> target;
    const std::string link = fmt::format("{}/card{}/device", folder, number);
    const ssize_t length = readlink(link.c_str(), target.data(), target.size());
    const std::string_view path(target.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    const std::string_view name = path.substr(path.rfind('/') + 1);
    return is_bus_id(name) ? std::string(name) : std::string();
}

// An attribute of the kernel, which always answers at once; whatever else may stand in its place is not waited for.
std::string attribute_of(unsigned number, const char *name)
{
    const int file = open(fmt::format("{}/card{}/device/{}", folder, number, name).c_str(),
                          O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file < 0)
        return {};
    std::array<char, 32> text;
    const ssize_t length = read(file, text.data(), text.size());
    close(file);
    std::string held(text.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    held.erase(std::min(held.find('\n'), held.size()));
    return held;
}

} // namespace

std::optional<std::vector<card>> cards_of_host()
{
    std::vector<card> cards;
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir(folder), closedir);
    if (!directory && errno != ENOENT && errno != ENOTDIR) // out of descriptors, say
        return std::nullopt;
    while (const dirent *entry = directory ? readdir(directory.get()) : nullptr) {
        if (const auto number = number_of(entry->d_name))
            cards.push_back({*number, bus_id_of(*number)});
    }
    std::sort(cards.begin(), cards.end(), [](const card &a, const card &b) { return a.number < b.number; });
    return cards;
}

bool is_asleep(unsigned card)
{
    return attribute_of(card, "power/runtime_status") == "suspended";
}

bool is_of_another_maker(unsigned card)
{
    const std::string vendor = attribute_of(card, "vendor");
    return !vendor.empty() && vendor != fmt::format("0x{:04x}", VEKGPU_PCI_VENDOR_ID);
}

} // namespace readings
