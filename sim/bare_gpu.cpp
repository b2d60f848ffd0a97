// SPDX-License-Identifier: Apache-2.0
// GPUs on a host without the driver: PCI devices, and firmware in physical memory.
#include "driver_text.h"
#include "firmware_tables.h"
#include "format.h"
#include "host_tree.h"
#include "pci_config.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace fs = std::filesystem;

namespace veksim {
namespace {

template <typename Table, typename Value>
std::uint32_t table_index(const Table &table, Value value)
{
    auto found = std::find(std::begin(table), std::end(table), value);
    return found == std::end(table) ? 0 : static_cast<std::uint32_t>(found - std::begin(table));
}

} // namespace

int host_tree::add_bare_gpu(const gpu_config &config, const gpu_state &state)
{
    gpu &board = add(config, state, true);
    add_pci_device(board.config.pci_address, board.config, display_class);
    publish_bus_errors(pci_device(board.position), board.state);
    publish_firmware(board);
    publish_firmware_readings(board);
    return board.position;
}

void host_tree::publish_firmware(const gpu &board)
{
    const gpu_config &c = board.config;
    const int position = board.position;
    fs::path memory = path("/dev/mem");
    std::uint64_t needed = c.bar0 + bar0_size;
    if (!fs::exists(memory))
        write("/dev/mem", "");
    if (fs::file_size(memory) < needed)
        fs::resize_file(memory, needed); // sparse: only the blocks below take room
    auto voltage = static_cast<std::uint32_t>(board.state.voltage_mv);
    set_firmware(position, 0x13FF000, 1);
    set_firmware(position, 0x13FF004, packed_version(c.firmware_version));
    set_firmware_text(position, 0x13FF008, dotted_version(c.firmware_version), 64);
    set_firmware(position, 0x13FF048, packed_version(c.vbios_version));
    set_firmware_text(position, 0x13FF04C, dotted_version(c.vbios_version), 64);
    set_firmware(position, 0x13FF08C,
                 (c.memory_gib << 12) | (table_index(firmware_memory_speeds, c.memory_speed) << 20));
    set_firmware(position, 0x13FF090, (table_index(firmware_clocks, c.default_clock_hz) << 4) | (voltage << 12));
    set_firmware(position, 0x13FF098, c.vendor_index);
    set_firmware(position, 0x13FF09C, c.power_support);
    set_firmware(position, 0x13FF0A0, c.fan_support);
}

void host_tree::publish_firmware_readings(const gpu &board)
{
    const int position = board.position;
    const gpu_state &s = board.state;
    const std::pair<std::uint32_t, int> readings[] = {
        {0x13FF800, s.voltage_mv},
        {0x13FF804, s.current_ma},
        {0x13FF808, s.power_w},
        {0x13FF80C, s.fan_rpm},
        {0x13FF810, board.config.settings.fan_min_rpm},
        {0x13FF814, board.config.settings.fan_max_rpm},
        {0x13FF818, s.temperature},
        {0x13FF838, s.memory_temperature},
        {0x13FF844, s.total_power_w},
    };
    for (const auto &[offset, value] : readings)
        set_firmware(position, offset, static_cast<std::uint32_t>(value));
}

void host_tree::set_firmware(int position, std::uint32_t offset, std::uint32_t value)
{
    overwrite("/dev/mem", config(position).bar0 + offset, &value, sizeof value);
}

void host_tree::set_firmware_text(int position, std::uint32_t offset, const std::string &text, std::size_t size)
{
    std::string field = text;
    field.resize(size, '\0');
    overwrite("/dev/mem", config(position).bar0 + offset, field.data(), size);
}

} // namespace veksim
