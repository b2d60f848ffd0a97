// SPDX-License-Identifier: Apache-2.0
#include "firmware_block.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace vekml {
namespace {

// Offsets of what only the snapshot reads.
constexpr std::uint32_t block_version = 0x13FF000;
constexpr std::uint32_t firmware_version = 0x13FF004;
constexpr std::uint32_t firmware_version_text = 0x13FF008;
constexpr std::uint32_t vbios_version = 0x13FF048;
constexpr std::uint32_t vbios_version_text = 0x13FF04C;
constexpr std::uint32_t memory = 0x13FF08C;
constexpr std::uint32_t memory_speed = 0x13FF08E; // 8 bits
constexpr std::uint32_t gpu = 0x13FF090;          // 16 bits for the clock, 32 for the voltage
constexpr std::uint32_t vendor = 0x13FF098;
constexpr std::uint32_t power_support = 0x13FF09C;
constexpr std::uint32_t fan_support = 0x13FF0A0;
constexpr std::uint32_t lowest_rpm = 0x13FF810;
constexpr std::uint32_t highest_rpm = 0x13FF814;

// The last three are the lowest clocks.
constexpr std::uint64_t clocks_hz[] = {
    800000000,  900000000,  1000000000, 1050000000, 1100000000, 1150000000, 1200000000, 1250000000,
    1300000000, 1350000000, 1400000000, 1450000000, 1500000000, 700000000,  600000000,  500000000,
};
constexpr std::uint64_t memory_speeds[] = {8000000000, 12000000000, 14000000000, 15200000000, 16000000000};
constexpr const char *board_vendors[] = {"VEK", "BITLAND", "GOODTIMES", "OTHERS"};

std::uint64_t entry_or_zero(const auto &table, std::uint32_t index)
{
    return index < std::size(table) ? table[index] : 0;
}

} // namespace

void firmware_block::read_text(std::uint32_t offset, firmware_text &text) const
{
    constexpr std::uint32_t length = sizeof text - 1;
    for (std::uint32_t at = 0; at < length; at += sizeof(std::uint32_t)) {
        const std::uint32_t four_characters = word(offset + at);
        std::memcpy(text + at, &four_characters, sizeof four_characters);
    }
    text[length] = '\0';
}

firmware_snapshot firmware_block::snapshot() const
{
    firmware_snapshot taken;
    taken.clock_index = (half(gpu) >> 4) & 0xff;
    taken.clock_hz = entry_or_zero(clocks_hz, taken.clock_index);
    taken.memory_gib = (word(memory) >> 12) & 0xff;
    taken.memory_speed_index = byte(memory_speed) >> 4;
    taken.memory_speed = entry_or_zero(memory_speeds, taken.memory_speed_index);
    taken.memory_temperature = word(firmware_word::memory_temperature);
    taken.core_voltage = (word(gpu) >> 12) & 0xfff;
    taken.present_voltage = word(firmware_word::present_voltage);
    taken.block_version = word(block_version);
    taken.firmware_version = word(firmware_version);
    read_text(firmware_version_text, taken.firmware_version_text);
    taken.vbios_version = word(vbios_version);
    read_text(vbios_version_text, taken.vbios_version_text);
    taken.board_vendor = board_vendors[std::min<std::size_t>(word(vendor), std::size(board_vendors) - 1)];
    taken.rpm = word(firmware_word::present_rpm);
    taken.lowest_rpm = word(lowest_rpm);
    taken.highest_rpm = word(highest_rpm);
    taken.fan_support = word(fan_support);
    taken.power_support = word(power_support);
    return taken;
}

} // namespace vekml
