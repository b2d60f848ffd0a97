// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

namespace readings {

// From where on a reading means that something is wrong: the one table behind verdicts and alert rules. A rule quotes
// its number, and a test holds the two together.
namespace thresholds {

inline constexpr double slowdown_margin_celsius = 5; // this close below the limit that slows the GPU down: a warning
inline constexpr double critical_margin_celsius = 0; // at the limit or beyond: a fault
inline constexpr double memory_full_ratio = 0.95;    // of the GPU's memory in use
inline constexpr double crc_errors_per_hour = 10;    // of one memory device, reads and writes each
inline constexpr double corrected_errors_per_hour = 1000; // on the PCIe link, mended by the hardware
inline constexpr double fatal_errors_per_hour = 0;        // on the PCIe link: any is too many
inline constexpr double fan_still_rpm = 100;              // slower than this counts as standing still ...
inline constexpr double fan_needed_celsius = 60;          // ... which is wrong from this temperature on
inline constexpr double link_width_ratio = 1;             // of the lanes that the link could have

} // namespace thresholds

// Which rule of packaging/prometheus/vekgpu-alerts.yml quotes which number.
struct alert_threshold {
    std::string_view alert;
    double value;
};
inline constexpr alert_threshold alert_thresholds[] = {
    {"VekgpuNearSlowdown", thresholds::slowdown_margin_celsius},
    {"VekgpuTooHot", thresholds::critical_margin_celsius},
    {"VekgpuMemoryNearlyFull", thresholds::memory_full_ratio},
    {"VekgpuMemoryErrors", thresholds::crc_errors_per_hour},
    {"VekgpuPcieErrors", thresholds::corrected_errors_per_hour},
    {"VekgpuPcieFatalErrors", thresholds::fatal_errors_per_hour},
    {"VekgpuFanStill", thresholds::fan_still_rpm},
    {"VekgpuFanStill", thresholds::fan_needed_celsius},
    {"VekgpuLinkNarrow", thresholds::link_width_ratio},
};

} // namespace readings
