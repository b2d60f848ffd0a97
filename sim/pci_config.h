// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace veksim {

constexpr std::uint64_t bar0_size = 0x2000000; // of a GPU

// What a PCI function's configuration space says.
struct pci_function {
    std::uint32_t vendor_id = 0;
    std::uint32_t device_id = 0;
    std::uint32_t subsystem_vendor_id = 0;
    std::uint32_t subsystem_device_id = 0;
    std::uint32_t class_code = 0;
    std::uint64_t bar0 = 0;
    std::string current_link_speed, max_link_speed; // "16.0 GT/s PCIe"
    unsigned current_link_width = 0;
    unsigned max_link_width = 0;
    unsigned secondary_bus = 0; // of a bridge; 0: an endpoint
};

std::string pci_config_space(const pci_function &function);

} // namespace veksim
