// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace readings {

// What the kernel itself tells of the cards of this host, without asking a driver or waking a device.
struct card {
    unsigned number;    // N of /sys/class/drm/cardN
    std::string bus_id; // that its link to the device names; empty without one
    bool operator==(const card &) const = default;
};

std::optional<std::vector<card>> cards_of_host(); // in the order of their numbers; nothing where none can tell now
bool is_asleep(unsigned card);                    // its device is suspended
bool is_of_another_maker(unsigned card);

} // namespace readings
