// SPDX-License-Identifier: Apache-2.0
// A host on which every number tells which reading of which GPU it is.
#include "firmware_tables.h"
#include "format.h"
#include "gpu.h"

#include <iterator>

namespace veksim {
namespace {

constexpr int gpus = 16;
constexpr std::uint64_t mebibyte = 1 << 20;

// Readings stand in blocks of 16 numbers, one for each GPU.
int in_block(int block, int position)
{
    return block * gpus + position;
}

std::uint64_t bytes(int block, int position)
{
    return static_cast<std::uint64_t>(in_block(block, position)) * mebibyte + 4096;
}

gpu_settings distinct_settings(int position)
{
    gpu_settings s;
    s.fan_target = in_block(0, position) + 1; // percent
    s.temperature_min = in_block(6, position) + 1;
    s.temperature_max = in_block(10, position) + 1;
    s.slowdown_temperature = in_block(11, position) + 1;
    s.temperature_critical = in_block(12, position) + 1;
    s.shutdown_temperature = in_block(13, position) + 1;
    s.power_cap_w = in_block(16, position) + 1;
    s.fan_min_rpm = in_block(75, position) + 1;
    s.pwm_min = in_block(122, position) + 1;
    s.pwm = in_block(200, position) + 1;
    s.fan_max_rpm = in_block(300, position) + 1;
    s.pwm_max = in_block(370, position) + 1;
    return s;
}

} // namespace

gpu_config distinct_gpu(int position)
{
    static constexpr const char *speeds[] = {"2.5 GT/s PCIe",  "5.0 GT/s PCIe",  "8.0 GT/s PCIe",
                                             "16.0 GT/s PCIe", "32.0 GT/s PCIe", "64.0 GT/s PCIe"};
    const auto number = static_cast<std::uint32_t>(position);
    const auto byte = static_cast<unsigned>(position);
    gpu_config c;
    c.device_id = 0x4a00 + number;
    c.subsystem_vendor_id = 0x5100 + number;
    c.subsystem_device_id = 0x5200 + number;
    c.product_name = format("TALON-D%02d", position);
    c.model = format("VEK D3%02d", position);
    c.asic_id = 900 + number;
    c.core_count = 700 + number;
    c.memory_gib = 17 + number;
    c.memory_count = 33 + number;
    c.memory_speed = firmware_memory_speeds[number % std::size(firmware_memory_speeds)];
    c.memory_vendor = 1 + number % 3;
    c.memory_package = 0x31 + number;
    c.primary_id = 500 + number;
    c.primary_core_id = 600 + number;
    c.vendor_index = number % 4;
    c.card_type = number % 2;
    c.firmware_version = {0x10 + byte, 0x20 + byte, 0x30 + byte};
    c.vbios_version = {0x40 + byte, 0x50 + byte, 0x60 + byte};
    c.static_text = format("distinct %d", position);
    c.default_clock_hz = firmware_clocks[number % std::size(firmware_clocks)];
    c.fan = position % 2 == 0 ? fan_kind::target : fan_kind::pwm;
    c.current_link_speed = speeds[number % 5];
    c.max_link_speed = speeds[number % 5 + 1];
    c.current_link_width = 2 + number;
    c.max_link_width = 2 + gpus + number;
    c.hdmi_connected = position % 2 == 0;
    c.dp_connected = position % 3 == 0;
    c.numa_node = position;
    c.local_cpulist = format("%d-%d", position * 8, position * 8 + 7);
    c.settings = distinct_settings(position);
    return c;
}

gpu_state distinct_state(int position)
{
    const auto number = static_cast<unsigned>(position);
    const auto share = [&](int block) {
        return busy_time{static_cast<std::uint64_t>(in_block(block, position) + 1) * 10000, 1000000};
    };
    gpu_state s;
    s.gpu = share(1);
    s.masters[1] = share(2);
    s.masters[2] = share(3);
    s.masters[3] = share(4);
    s.masters[4] = share(5);
    s.temperature = in_block(7, position) + 1;
    s.memory_temperature = in_block(8, position) + 1;
    s.temperature_highest = in_block(9, position) + 1;
    s.power_w = in_block(14, position) + 1;
    s.total_power_w = in_block(15, position) + 1;
    s.ndf_clock_mhz = in_block(32, position) + 1;
    s.cmcu_clock_mhz = in_block(38, position) + 1;
    s.acpu_clock_mhz = in_block(50, position) + 1;
    s.voltage_mv = in_block(55, position) + 1;
    s.gfx_clock_mhz = in_block(63, position) + 1;
    s.memory_clock_mhz = in_block(109, position) + 1;
    s.fan_rpm = in_block(150, position) + 1;
    s.current_ma = in_block(1500, position) + 1;
    s.timestamp = 7000000 + number;
    s.local_total = bytes(1400, position);
    s.local_used = bytes(340, position);
    s.system_total = bytes(900, position);
    s.system_used = bytes(230, position);
    s.aer_totals = {2000 + number, 2100 + number, 2200 + number};
    s.pcie_event = 2300 + number;
    for (unsigned device = 0; device < s.memory_errors.size(); ++device) {
        for (unsigned kind = 0; kind < 4; ++kind)
            s.memory_errors[device][kind] = 3000 + (device * 4 + kind) * gpus + number;
    }
    for (std::uint32_t i = 0; i < 3; ++i) {
        const auto local = static_cast<std::int64_t>(bytes(20 + static_cast<int>(i), position));
        const auto total = static_cast<std::int64_t>(bytes(30 + static_cast<int>(i), position));
        s.processes.push_back({4100000 + number * 10 + i, format("task%u-%u", number, i), local, total});
    }
    return s;
}

video_state distinct_video()
{
    return {61, 62, 60001, 60002};
}

} // namespace veksim
