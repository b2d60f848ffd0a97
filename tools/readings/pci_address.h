// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string_view>

namespace readings {

struct pci_address {
    unsigned domain = 0, bus = 0, device = 0, function = 0;
    bool operator==(const pci_address &) const = default;
};

// "0000:03:00.0", or without the domain as lspci prints it.
std::optional<pci_address> pci_address_from(std::string_view text);
bool is_bus_id(std::string_view text); // a whole one, with its domain

} // namespace readings
