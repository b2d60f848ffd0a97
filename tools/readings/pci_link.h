// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "gpu.h"
#include "value.h"

#include <string_view>

// The GPU's PCI device and its link, as the kernel tells of them.
namespace readings::pci_link {

value id(gpu &g, std::uint64_t known, const char *node); // as "0x4a1f"
value speed(gpu &g, const char *node);                   // in GT/s
value width(gpu &g, const char *node);
value generation(const value &speed);
value errors(gpu &g, const char *node, std::string_view key); // the whole sum, of which the library gives one digit
value event(gpu &g);
value event_flags(gpu &g);
value numa_node(gpu &g);
value power_state(gpu &g);

} // namespace readings::pci_link
