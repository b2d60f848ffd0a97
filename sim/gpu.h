// SPDX-License-Identifier: Apache-2.0
// What a simulated GPU is and what it reads.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#ifndef VEKGPU_PCI_VENDOR_ID
#define VEKGPU_PCI_VENDOR_ID 0x7665
#endif

namespace veksim {

enum class fan_kind {
    pwm,    // has pwm1, pwm1_min, pwm1_max
    target, // has fan1_target and no pwm1
};

constexpr int slowest_fan_rpm = 900;
constexpr int fastest_fan_rpm = 4800;
constexpr int slowest_pwm = 1950;
constexpr int fastest_pwm = 5998;

struct process_entry {
    std::uint32_t pid = 0;
    std::string name;
    std::int64_t local_bytes = 0; // MemoryUsageAllocGPUMemLMA
    std::int64_t total_bytes = 0; // MemoryUsageTotal
};

// Busy share of one counter pair; the driver publishes times, so active / cumulative is the load.
struct busy_time {
    std::uint64_t active = 0;
    std::uint64_t cumulative = 1000000;
};

// What a client can set, as it stands when the host starts.
struct gpu_settings {
    int temperature_min = 0; // degrees Celsius
    int temperature_max = 90;
    int temperature_critical = 100;
    int slowdown_temperature = 95;
    int shutdown_temperature = 105;
    int power_cap_w = 150;
    int fan_target = 50; // percent
    int fan_min_rpm = slowest_fan_rpm;
    int fan_max_rpm = fastest_fan_rpm;
    int pwm = 3200;
    int pwm_min = slowest_pwm;
    int pwm_max = fastest_pwm;
};

// What a GPU is. The defaults make a healthy display card.
struct gpu_config {
    int card = -1;             // DRM card number; -1: the GPU's position
    int hwmon = -1;            // hwmon number; -1: position + 1
    std::string pci_address{}; // empty: 0000:(03 + position):00.0
    std::uint32_t vendor_id = VEKGPU_PCI_VENDOR_ID;
    std::uint32_t device_id = 0x4a1f;
    std::uint32_t subsystem_vendor_id = VEKGPU_PCI_VENDOR_ID;
    std::uint32_t subsystem_device_id = 0;
    std::string product_name = "TALON-M1";
    std::string model = "VEK M310";
    std::uint32_t asic_id = 0; // also the architecture number behind the model
    std::uint32_t core_count = 4;
    std::uint32_t memory_gib = 8;
    std::uint32_t memory_count = 4;
    std::uint64_t memory_speed = 14000000000;
    std::uint32_t memory_vendor = 0;
    std::uint32_t memory_package = 0x21;
    std::uint32_t primary_id = 0;
    std::uint32_t primary_core_id = 0;
    std::uint32_t vendor_index = 0; // 0 VEK, 1 BITLAND, 2 GOODTIMES, 3 OTHERS
    std::uint32_t chip_id = 0;      // 0: 0x5e0a1c00 + position
    std::uint32_t card_type = 0;    // 0 display, 1 compute
    std::array<unsigned, 3> firmware_version{1, 2, 3};
    std::array<unsigned, 3> vbios_version{1, 0, 4};
    std::string static_text = "VEK GPU";
    std::uint64_t default_clock_hz = 1000000000;
    fan_kind fan = fan_kind::target;
    bool fan_support = true;
    bool power_support = true;
    std::string current_link_speed = "16.0 GT/s PCIe";
    std::string max_link_speed = "16.0 GT/s PCIe";
    unsigned current_link_width = 8;
    unsigned max_link_width = 8;
    int numa_node = 0;
    std::string local_cpulist = "0-7";
    bool hdmi_connected = true;
    bool dp_connected = false;
    gpu_settings settings{};
    std::uint64_t bar0 = 0; // 0: (1 + position) * 0x4000000
};

// What a GPU reads at one moment, in the driver's units.
struct gpu_state {
    int temperature = 48; // degrees Celsius
    int temperature_highest = 61;
    int memory_temperature = 52;
    int fan_rpm = 2400;
    int voltage_mv = 850;
    int current_ma = 24000;
    int power_w = 21;
    int total_power_w = 32;
    int memory_clock_mhz = 1750;
    int gfx_clock_mhz = 1000;
    int acpu_clock_mhz = 800;
    int cmcu_clock_mhz = 600;
    int ndf_clock_mhz = 500;
    busy_time gpu{370000};
    std::array<busy_time, 9> masters{
        {{0}, {120000}, {80000}, {310000}, {0}, {0}, {0}, {0}, {0}}}; // 1 TDM, 2 GEOM, 3 3D, 4 CDM
    std::uint64_t timestamp = 1000000;
    std::uint64_t local_total = 0; // bytes; 0: all of the configured memory
    std::uint64_t local_used = 1288490188;
    std::uint64_t system_total = 4294967296;
    std::uint64_t system_used = 134217728;
    std::vector<process_entry> processes{};
    std::array<unsigned, 3> aer_totals{0, 0, 0}; // correctable, fatal, nonfatal
    unsigned pcie_event = 0;
    // Per memory device: CRC errors on write and read, and the retries of each.
    std::array<std::array<unsigned, 4>, 4> memory_errors{};
};

// What the video engines of the whole host read.
struct video_state {
    std::uint64_t decoder_rate = 30;
    std::uint64_t encoder_rate = 60;
    std::uint64_t decoder_commands = 20000;
    std::uint64_t encoder_commands = 10000;
};

// The GPUs a simulated host has when nothing else is said: boards of different kinds in turn.
gpu_config sample_gpu(int position);

// A host no two numbers of which are equal, so that whoever takes one for another is found out: not within a GPU of
// up to 16, nor the same reading of two of them. Facts that have few values to choose from repeat across GPUs.
gpu_config distinct_gpu(int position);
gpu_state distinct_state(int position);
video_state distinct_video();

} // namespace veksim
