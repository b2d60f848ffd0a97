// SPDX-License-Identifier: Apache-2.0
#include "pci_config.h"

#include <cstdlib>
#include <cstring>
#include <iterator>

namespace veksim {
namespace {

constexpr std::size_t space_size = 4096;
constexpr std::size_t power_capability = 0x40;
constexpr std::size_t express_capability = 0x50;
constexpr std::size_t error_capability = 0x100;

// The number that link registers have for a speed; 0 when there is none.
std::uint32_t speed_code(const std::string &speed)
{
    static constexpr double speeds[] = {2.5, 5, 8, 16, 32, 64};
    const double wanted = std::strtod(speed.c_str(), nullptr);
    for (std::size_t i = 0; i < std::size(speeds); ++i) {
        if (speeds[i] == wanted)
            return static_cast<std::uint32_t>(i + 1);
    }
    return 0;
}

class register_file {
public:
    void put(std::size_t offset, std::uint32_t word) { std::memcpy(&bytes_[offset], &word, sizeof word); }
    std::string take() { return std::move(bytes_); }

private:
    std::string bytes_ = std::string(space_size, '\0');
};

void put_header(register_file &space, const pci_function &f)
{
    constexpr std::uint32_t bar_64bit_prefetchable = 0xC;
    constexpr std::uint32_t revision = 1;
    const bool bridge = f.secondary_bus != 0;
    space.put(0x00, f.vendor_id | (f.device_id << 16));
    space.put(0x04, 0x00100006); // memory space and bus master enabled, capability list
    space.put(0x08, (f.class_code << 8) | revision);
    space.put(0x0C, bridge ? 0x00010000 : 0);
    space.put(0x10, f.bar0 == 0 ? 0 : static_cast<std::uint32_t>(f.bar0) | bar_64bit_prefetchable);
    space.put(0x14, static_cast<std::uint32_t>(f.bar0 >> 32));
    if (bridge)
        space.put(0x18, (f.secondary_bus << 16) | (f.secondary_bus << 8));
    else
        space.put(0x2C, f.subsystem_vendor_id | (f.subsystem_device_id << 16));
    space.put(0x34, power_capability);
}

void put_capabilities(register_file &space, const pci_function &f)
{
    constexpr std::uint32_t power_id = 0x01, express_id = 0x10, error_id = 0x0001;
    const std::uint32_t port = f.secondary_bus != 0 ? 4 : 0; // a root port, or an endpoint
    const std::uint32_t fastest = speed_code(f.max_link_speed);
    space.put(power_capability, power_id | (express_capability << 8) | 0x00030000);
    space.put(power_capability + 4, 0x8); // D0, state kept over a change of it
    space.put(express_capability, express_id | ((2 | (port << 4)) << 16));
    space.put(express_capability + 0x04, 0x8001);
    space.put(express_capability + 0x0C, fastest | (f.max_link_width << 4));
    space.put(express_capability + 0x10, (speed_code(f.current_link_speed) | (f.current_link_width << 4)) << 16);
    space.put(express_capability + 0x2C, ((1U << fastest) - 1) << 1);
    space.put(express_capability + 0x30, fastest);
    space.put(error_capability, error_id | (2 << 16));
}

} // namespace

std::string pci_config_space(const pci_function &function)
{
    register_file space;
    put_header(space, function);
    put_capabilities(space, function);
    return space.take();
}

} // namespace veksim
