// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace vekml {

/** How much of BAR0 is mapped; the firmware information block lies near the end of the first 20 MiB. */
inline constexpr std::size_t bar0_window = 0x2000000;

/** The words of the firmware information block that callers read live: offsets from the start of BAR0. */
namespace firmware_word {
inline constexpr std::uint32_t present_voltage = 0x13FF800;
inline constexpr std::uint32_t present_current = 0x13FF804;
inline constexpr std::uint32_t present_power = 0x13FF808;
inline constexpr std::uint32_t present_rpm = 0x13FF80C;
inline constexpr std::uint32_t present_temperature = 0x13FF818; // 16 bits
inline constexpr std::uint32_t memory_temperature = 0x13FF838;
inline constexpr std::uint32_t total_power = 0x13FF844;
} // namespace firmware_word

/** A text of the firmware block; the block's own 64 bytes may all be in use. */
using firmware_text = char[65];

/** What the firmware block held at one moment. */
struct firmware_snapshot {
    std::uint32_t clock_index;
    std::uint64_t clock_hz; /**< 0 for an index that no clock is known for */
    std::uint32_t memory_gib;
    std::uint32_t memory_speed_index;
    std::uint64_t memory_speed; /**< 0 for an index that no speed is known for */
    std::uint32_t memory_temperature;
    std::uint32_t core_voltage;
    std::uint32_t present_voltage;
    std::uint32_t block_version;
    std::uint32_t firmware_version;
    firmware_text firmware_version_text;
    std::uint32_t vbios_version;
    firmware_text vbios_version_text;
    const char *board_vendor;
    std::uint32_t rpm;
    std::uint32_t lowest_rpm;
    std::uint32_t highest_rpm;
    std::uint32_t fan_support;
    std::uint32_t power_support;
};

/** The firmware information block in a mapped BAR0. The firmware writes it while it is read and the window is
 *  device memory, so every access is one aligned load of the stated width. */
class firmware_block {
public:
    explicit firmware_block(const void *bar0) : bar0_(static_cast<const volatile unsigned char *>(bar0)) {}

    std::uint8_t byte(std::uint32_t offset) const { return load<std::uint8_t>(offset); }
    std::uint16_t half(std::uint32_t offset) const { return load<std::uint16_t>(offset); }
    std::uint32_t word(std::uint32_t offset) const { return load<std::uint32_t>(offset); }
    firmware_snapshot snapshot() const;

private:
    template <typename Number>
    Number load(std::uint32_t offset) const
    {
        return *reinterpret_cast<const volatile Number *>(bar0_ + offset);
    }
    void read_text(std::uint32_t offset, firmware_text &text) const;

    const volatile unsigned char *bar0_;
};

} // namespace vekml
