// SPDX-License-Identifier: Apache-2.0
#include "sensors.h"

#include "library_value.h"
#include "node.h"

namespace readings::sensors {
namespace {

using library::driver_only;

// A word of the firmware block; all ones is a window that went away.
value firmware_word(const gpu &g, quantity q, std::int64_t word)
{
    if (!g.mapped())
        return missing{reason::denied};
    return word == -1 || word == 0xffff ? value(missing{reason::lost}) : present_units().scaled(q, word);
}

// The number in NODE. Nothing but a temperature is ever below zero.
value number_at(const std::string &node, quantity q)
{
    constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
    return number_in(node, q == quantity::temperature ? -most - 1 : 0, most);
}

value sensor(gpu &g, bool supported, const char *node, quantity q, const number_reader &read)
{
    return g.driverless() ? firmware_word(g, q, read()) : driver_sensor(g, supported, node, q, read);
}

} // namespace

value driver_sensor(gpu &g, bool supported, const char *node, quantity q, const number_reader &read)
{
    if (g.driverless())
        return driver_only();
    const std::string path = g.hwmon_node(node);
    value held = number_at(path, q);
    if (!is_present(held))
        return held;
    if (!supported)
        return missing{reason::unsupported, 0, path};
    return present_units().scaled(q, read());
}

value temperature(gpu &g)
{
    return sensor(g, g.has_temperature(), "temp1_input", quantity::temperature,
                  [&] { return g.temperatures().temp_input; });
}

value temperature_highest(gpu &g)
{
    return driver_sensor(g, g.has_temperature(), "temp1_highest", quantity::temperature,
                         [&] { return g.temperatures().temp_highest; });
}

value memory_temperature(gpu &g)
{
    return sensor(g, g.has_temperature(), "vek_gddr_temp", quantity::temperature,
                  [&] { return g.temperatures().gddr_temp; });
}

value temperature_setting(gpu &g, const char *node, quantity q, std::int32_t temper_info::*member)
{
    return driver_sensor(g, true, node, q, [&] { return g.temperatures().*member; });
}

value thermal_limit(gpu &g, thm_type type, const char *node, quantity q)
{
    if (g.driverless())
        return driver_only();
    thermal limits{};
    g.note(vekml_device_get_thermal(g.handle(), &limits, type));
    const std::int32_t values[] = {limits.vek_temp_slowdown, limits.vek_temp_shutdown, limits.vek_enable_thm_slowdown,
                                   limits.vek_enable_thm_shutdown};
    return driver_sensor(g, true, node, q, [&] { return values[type]; });
}

value dvfs(gpu &g)
{
    if (g.driverless())
        return driver_only();
    dvfs_t state{};
    const vekml_return_t result = vekml_device_get_dvfs_info(g.handle(), &state);
    g.note(result);
    const std::string node = g.card_node("vek_enable_dvfs");
    value held = number_at(node, quantity::fixed);
    if (!is_present(held))
        return held;
    return result == VEKML_SUCCESS ? library::number(state.vek_enable_dvfs) : value(library::refusal(result, node));
}

value fan_speed(gpu &g)
{
    return sensor(g, g.has_fan(), "fan1_input", quantity::fan_speed,
                  [&] { return static_cast<std::int32_t>(g.fan_speed()); });
}

value fan_bound(gpu &g, bool highest)
{
    return driver_sensor(g, g.has_fan(), highest ? "fan1_max" : "fan1_min", quantity::fan_speed, [&] {
        std::uint32_t bounds[2] = {};
        vekml_device_get_min_max_fan_speed(g.handle(), &bounds[0], &bounds[1]);
        return static_cast<std::int32_t>(bounds[highest ? 1 : 0]);
    });
}

value fan_control(gpu &g, const char *node, vekml_return_t (*getter)(vekml_device_t, std::uint32_t *))
{
    return driver_sensor(g, g.has_fan(), node, quantity::fixed, [&] {
        std::uint32_t n = 0;
        getter(g.handle(), &n);
        return static_cast<std::int32_t>(n);
    });
}

value power_of(gpu &g, const char *node, quantity q, std::int32_t power_info::*member)
{
    return sensor(g, g.has_power(), node, q, [&] { return g.power().*member; });
}

// The library hands out a thousand times the driver's number in band, the firmware's own out of band.
value power_total(gpu &g)
{
    return sensor(g, g.has_power(), "vek_total_power", quantity::total_power,
                  [&] { return g.driverless() ? g.power().total_power : g.power().total_power / 1000; });
}

value power_cap(gpu &g)
{
    if (g.driverless())
        return driver_only();
    value cap = number_at(g.hwmon_node("power1_cap"), quantity::power);
    return is_present(cap) ? present_units().scaled(quantity::power, std::get<std::int64_t>(cap)) : cap;
}

value clock_of(gpu &g, const char *node, std::int32_t clock_info::*member)
{
    return driver_sensor(g, true, node, quantity::clock, [&] { return g.clocks().*member; });
}

value graphics_clock(gpu &g)
{
    if (!g.driverless())
        return clock_of(g, "vek_gfx_freq_mhz", &clock_info::gfx_clk);
    return g.mapped() ? library::nonzero(g.clocks().gfx_clk) : value(missing{reason::denied});
}

} // namespace readings::sensors
