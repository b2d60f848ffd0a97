// SPDX-License-Identifier: Apache-2.0
#include "units.h"

#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <iterator>

namespace readings {
namespace {

constexpr double gibi = 1024.0 * 1024.0 * 1024.0;

constexpr unit_facts all_units[] = {
    {"", "", 1},
    {"°C", "celsius", 1},
    {"RPM", "rpm", 1},
    {"W", "watts", 1},
    {"mV", "volts", 1e-3},
    {"mA", "amperes", 1e-3},
    {"B", "bytes", 1},
    {"MiB", "bytes", 1024.0 * 1024.0},
    {"GiB", "bytes", gibi},
    {"MHz", "hertz", 1e6},
    {"%", "ratio", 1e-2},
    {"/s", "per_second", 1},
    {"GT/s", "transfers_per_second", 1e9},
    {"lanes", "lanes", 1},
    {"nm", "meters", 1e-9},
    {"bits", "bits", 1},
    {"Gtexel/s", "texels_per_second", 1e9},
    {"Gpixel/s", "pixels_per_second", 1e9},
};

// What a driver may count in, in terms of the unit that we show.
struct spelling {
    quantity of;
    const char *name;
    const char *unit;
    double scale;
};
constexpr spelling spellings[] = {
    {quantity::temperature, "temperature", "celsius", 1},
    {quantity::temperature, "temperature", "decicelsius", 0.1},
    {quantity::temperature, "temperature", "millicelsius", 1e-3},
    {quantity::fan_speed, "fan_speed", "rpm", 1},
    {quantity::power, "power", "watt", 1},
    {quantity::power, "power", "milliwatt", 1e-3},
    {quantity::power, "power", "microwatt", 1e-6},
    {quantity::total_power, "power_total", "watt", 1},
    {quantity::total_power, "power_total", "milliwatt", 1e-3},
    {quantity::total_power, "power_total", "microwatt", 1e-6},
    {quantity::voltage, "voltage", "volt", 1e3},
    {quantity::voltage, "voltage", "millivolt", 1},
    {quantity::voltage, "voltage", "microvolt", 1e-3},
    {quantity::current, "current", "ampere", 1e3},
    {quantity::current, "current", "milliampere", 1},
    {quantity::current, "current", "microampere", 1e-3},
    {quantity::memory, "memory", "byte", 1},
    {quantity::memory, "memory", "kibibyte", 1024},
    {quantity::memory, "memory", "mebibyte", 1024.0 * 1024.0},
    {quantity::memory_size, "memory_size", "gibibyte", 1},
    {quantity::memory_size, "memory_size", "mebibyte", 1.0 / 1024},
    {quantity::memory_size, "memory_size", "byte", 1 / gibi},
    {quantity::clock, "clock", "hertz", 1e-6},
    {quantity::clock, "clock", "kilohertz", 1e-3},
    {quantity::clock, "clock", "megahertz", 1},
};

// What is wrong with QUANTITY = UNIT; empty when FOUND says what it means.
std::string look_up(std::string_view name, std::string_view unit, const spelling *&found)
{
    constexpr std::size_t longest_shown = 40;
    std::string units_of_it, quantities;
    for (const spelling &s : spellings) {
        if (name == s.name && unit == s.unit) {
            found = &s;
            return {};
        }
        if (name == s.name)
            units_of_it += fmt::format(" {}", s.unit);
        if (!quantities.ends_with(s.name))
            quantities += fmt::format(" {}", s.name);
    }
    return units_of_it.empty() ? fmt::format("unknown quantity \"{}\"; there are{}",
                                             printable(name.substr(0, longest_shown)), quantities)
                               : fmt::format("unknown unit \"{}\"; {} takes{}",
                                             printable(unit.substr(0, longest_shown)), name, units_of_it);
}

std::string amount(double number, const char *symbol)
{
    const int digits = number != std::floor(number) && std::abs(number) < 1000 ? 1 : 0;
    return fmt::format("{:.{}f}{}{}", number, digits, *symbol == '\0' || *symbol == '/' ? "" : " ", symbol);
}

} // namespace

const unit_facts &facts_of(unit u)
{
    return all_units[static_cast<std::size_t>(u)];
}

std::string units::override_with(std::string_view text)
{
    units changed = *this;
    for (std::size_t line = 1; !text.empty(); ++line) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view entry = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        entry = trimmed(entry.substr(0, entry.find('#')));
        if (entry.empty())
            continue;
        const std::size_t equals = entry.find('=');
        const spelling *found = nullptr;
        const std::string fault =
            equals == entry.npos ? "it takes QUANTITY = UNIT"
                                 : look_up(trimmed(entry.substr(0, equals)), trimmed(entry.substr(equals + 1)), found);
        if (!fault.empty())
            return fmt::format("line {}: {}", line, fault);
        changed.scales_[static_cast<std::size_t>(found->of)] = found->scale;
    }
    *this = changed;
    return {};
}

std::string units::read(const std::string &path)
{
    constexpr std::size_t most = 65536;
    errno = 0;
    std::ifstream stream(path, std::ios::binary);
    if (!stream)
        return errno == ENOENT ? "" : fmt::format("{}: {}", path, std::strerror(errno));
    std::string text(most, '\0');
    stream.read(text.data(), most);
    if (stream.bad())
        return fmt::format("{}: {}", path, std::strerror(errno));
    text.resize(static_cast<std::size_t>(stream.gcount()));
    if (text.size() == most)
        return fmt::format("{}: longer than {} bytes", path, most - 1);
    const std::string fault = override_with(text);
    return fault.empty() ? "" : fmt::format("{}: {}", path, fault);
}

value units::scaled(quantity q, std::int64_t number) const
{
    const double factor = scale(q);
    if (factor == 1)
        return number;
    const double product = static_cast<double>(number) * factor;
    // Sums of tenths and thousandths come out as they would be written.
    return factor > 1 && std::abs(product) < 9e15 ? value(static_cast<std::int64_t>(product))
                                                  : value(std::round(product * 1e6) / 1e6);
}

value units::scaled(quantity q, std::uint64_t number) const
{
    const double factor = scale(q);
    if (factor == 1)
        return number;
    const double product = static_cast<double>(number) * factor;
    return factor > 1 && product < 9e15 ? value(static_cast<std::uint64_t>(product))
                                        : value(std::round(product * 1e6) / 1e6);
}

units &present_units()
{
    static units table;
    return table;
}

std::string human_bytes(double bytes)
{
    constexpr const char *symbols[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    std::size_t step = 0;
    while (std::abs(bytes) >= 1023.5 && step + 1 < std::size(symbols)) { // 1023.5 MiB would be shown as 1024
        bytes /= 1024;
        ++step;
    }
    return fmt::format("{:.{}f} {}", bytes, step >= 3 ? 1 : 0, symbols[step]);
}

std::string human(const value &v, unit u)
{
    if (const missing *why = why_missing(v)) {
        const bool is_of_the_gpu = why->why >= reason::asleep;
        return is_of_the_gpu ? name_of(why->why) : "N/A";
    }
    double number = 0;
    if (!as_number(v, number) || std::holds_alternative<bool>(v))
        return printable(text_of(v));
    return u == unit::byte ? human_bytes(number) : amount(number, facts_of(u).symbol);
}

} // namespace readings
