// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "value.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace readings {

enum class unit : std::uint8_t {
    none,
    celsius,
    rpm,
    watt,
    millivolt,
    milliampere,
    byte,
    mebibyte,
    gibibyte,
    megahertz,
    percent,
    per_second,
    gigatransfers,
    lanes,
    nanometre,
    bit,
    gigatexels,
    gigapixels,
};

struct unit_facts {
    const char *symbol; // "°C"; empty for none
    const char *base;   // as it ends a metric's name: "celsius"; empty for none
    double to_base;     // what one of ours is in the base unit
};
const unit_facts &facts_of(unit u);

// A quantity whose unit the driver's interface leaves open; what we take it to be in can be said anew for a host.
enum class quantity : std::uint8_t {
    fixed,
    temperature,
    fan_speed,
    power,
    total_power,
    voltage,
    current,
    memory,
    memory_size,
    clock
};

// The units that the driver's numbers are taken to be in.
class units {
public:
    static constexpr const char *file = "/etc/vekgpu/units.conf";

    // Reads TEXT, lines of "QUANTITY = UNIT" with comments behind "#". Empty when understood, else what is wrong, with
    // the line's number; nothing is changed then.
    std::string override_with(std::string_view text);
    // Likewise from a file; a missing one changes nothing.
    std::string read(const std::string &path);

    double scale(quantity q) const { return scales_[static_cast<std::size_t>(q)]; }
    // The driver's number in our unit; a whole one stays whole where it can.
    value scaled(quantity q, std::int64_t number) const;
    value scaled(quantity q, std::uint64_t number) const;

private:
    double scales_[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
};
units &present_units(); // one table for the program; set up before the first reader starts

// As a person writes it: "48 °C", "1.9 GiB", "730 MHz"; missing is "N/A", but what became of a GPU is said.
std::string human(const value &v, unit u);
std::string human_bytes(double bytes); // "1.9 GiB", "393 MiB"

} // namespace readings
