// SPDX-License-Identifier: Apache-2.0
// What the numbers stand for by which the firmware names a clock and a memory's speed.
#pragma once

#include <cstdint>

namespace veksim {

constexpr std::uint64_t firmware_clocks[] = {800000000,  900000000,  1000000000, 1050000000, 1100000000, 1150000000,
                                             1200000000, 1250000000, 1300000000, 1350000000, 1400000000, 1450000000,
                                             1500000000, 700000000,  600000000,  500000000};
constexpr std::uint64_t firmware_memory_speeds[] = {8000000000, 12000000000, 14000000000, 15200000000, 16000000000};

} // namespace veksim
