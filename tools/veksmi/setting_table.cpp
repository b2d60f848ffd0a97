// SPDX-License-Identifier: Apache-2.0
// What can be set, and how. All of it runs in the reader of the GPU.
#include "setting_table.h"

#include "readings/node.h"
#include "session.h"

#include <cstring>

namespace {

template <std::size_t Size>
void copy(char (&field)[Size], const char *text)
{
    std::strncpy(field, text, Size - 1);
}

template <typename Record, auto Setter, auto Type, auto Member>
vekml_return_t set_member(vekml_device_t handle, const char *text)
{
    Record record{};
    copy(record.*Member, text);
    return Setter(handle, &record, Type);
}

template <tem_type Type, auto Member>
constexpr auto set_temperature = set_member<temper_set, vekml_device_set_temper_info, Type, Member>;
template <thm_type Type, auto Member>
constexpr auto set_thermal = set_member<thm_set, vekml_device_set_thermal_info, Type, Member>;

// The library reports this write as done whatever became of it.
vekml_return_t set_temperature_mode(vekml_device_t handle, const char *text)
{
    const vekml_return_t result = set_temperature<crtl_mode_type, &temper_set::ctrl_mode>(handle, text);
    temper_info now{};
    vekml_device_get_temper(handle, &now, crtl_mode_type);
    const std::string node = gpu(handle, false).hwmon_node("temp1_ctrl_mode");
    const bool taken = is_present(number_in(node)) && std::to_string(now.ctrl_mode) == text;
    return result == VEKML_SUCCESS && !taken ? VEKML_ERROR_NODE_IO : result;
}

constexpr setting settings[] = {
    {.family = "fan",
     .what = "fan",
     .description = "fan speed",
     .unit = "%",
     .lowest = 0,
     .highest = 100,
     .step = 1,
     .pause = 0,
     .apply = vekml_device_set_fan1_speed,
     .node = "fan1_target"},
    {.family = "fan",
     .what = "pwm",
     .description = "fan PWM value",
     .unit = "",
     .lowest = 1950,
     .highest = 5998,
     .step = 1,
     .pause = 0,
     .apply = vekml_device_set_fan_pwm1,
     .node = "pwm1"},
    {.family = "fan",
     .what = "mode",
     .description = "fan control mode",
     .unit = "",
     .lowest = 0,
     .highest = 1,
     .step = 1,
     .pause = 0,
     .apply = vekml_device_set_fan_ctrl_mode,
     .node = "fan1_ctrl_mode",
     .values = "0 firmware, 1 host",
     .reset = "0"},
    {.family = "temp",
     .what = "min",
     .description = "lower temperature limit",
     .unit = "",
     .lowest = -999,
     .highest = 9999,
     .step = 1,
     .pause = 7000,
     .apply = set_temperature<temper_min_type, &temper_set::temp_min>,
     .node = "temp1_min",
     .usual_lowest = -40,
     .usual_highest = 60,
     .measured_in = quantity::temperature},
    {.family = "temp",
     .what = "max",
     .description = "upper temperature limit",
     .unit = "",
     .lowest = -999,
     .highest = 9999,
     .step = 1,
     .pause = 7000,
     .apply = set_temperature<temper_max_type, &temper_set::temp_max>,
     .node = "temp1_max",
     .usual_lowest = 40,
     .usual_highest = 110,
     .measured_in = quantity::temperature},
    {.family = "temp",
     .what = "crit",
     .description = "critical temperature limit",
     .unit = "",
     .lowest = -999,
     .highest = 9999,
     .step = 1,
     .pause = 7000,
     .apply = set_temperature<temper_crit_type, &temper_set::temp_crit>,
     .node = "temp1_crit",
     .usual_lowest = 40,
     .usual_highest = 115,
     .measured_in = quantity::temperature},
    {.family = "temp",
     .what = "ctrl",
     .description = "temperature control mode",
     .unit = "",
     .lowest = 0,
     .highest = 1,
     .step = 1,
     .pause = 0,
     .apply = set_temperature_mode,
     .node = "temp1_ctrl_mode",
     .values = "0 or 1"},
    {.family = "power",
     .what = "cap",
     .description = "power cap",
     .unit = "",
     .lowest = 1,
     .highest = 19999,
     .step = 1,
     .pause = 0,
     .apply = vekml_device_set_power_warn,
     .node = "power1_cap",
     .usual_lowest = 10,
     .usual_highest = 600,
     .measured_in = quantity::power},
    {.family = "power",
     .what = "volt",
     .description = "core voltage",
     .unit = "",
     .lowest = 1,
     .highest = 99999999,
     .step = 1,
     .pause = 500,
     .apply = vekml_device_set_power_volt,
     .node = "in0_input",
     .usual_lowest = 500,
     .usual_highest = 1200,
     .measured_in = quantity::voltage},
    {.family = "clock",
     .what = "gfx",
     .description = "graphics clock",
     .unit = "Hz",
     .lowest = 50000000,
     .highest = 1500000000,
     .step = 50000000,
     .pause = 0,
     .apply = vekml_device_set_gfx_clock,
     .node = "vek_gfx_freq_mhz",
     .node_scale = 1000000},
    {.family = "thermal",
     .what = "slowdown",
     .description = "slowdown temperature",
     .unit = "",
     .lowest = -999,
     .highest = 9999,
     .step = 1,
     .pause = 1000,
     .apply = set_thermal<temp_slowdown_type, &thm_set::temp_slowdown>,
     .node = "vek_slowdown_temp",
     .usual_lowest = 40,
     .usual_highest = 110,
     .measured_in = quantity::temperature},
    {.family = "thermal",
     .what = "shutdown",
     .description = "shutdown temperature",
     .unit = "",
     .lowest = -999,
     .highest = 9999,
     .step = 1,
     .pause = 1000,
     .apply = set_thermal<temp_shutdown_type, &thm_set::temp_shutdown>,
     .node = "vek_shutdown_temp",
     .usual_lowest = 50,
     .usual_highest = 115,
     .measured_in = quantity::temperature},
    {.family = "thermal",
     .what = "enable-slowdown",
     .description = "slowdown protection",
     .unit = "",
     .lowest = 0,
     .highest = 1,
     .step = 1,
     .pause = 1000,
     .apply = set_thermal<enable_thm_slowdown_type, &thm_set::enable_thm_slowdown>,
     .node = "vek_enable_thm_slowdown",
     .values = "0 off, 1 on",
     .usual_lowest = 1,
     .usual_highest = 1},
    {.family = "thermal",
     .what = "enable-shutdown",
     .description = "shutdown protection",
     .unit = "",
     .lowest = 0,
     .highest = 1,
     .step = 1,
     .pause = 1000,
     .apply = set_thermal<enable_thm_shutdown_type, &thm_set::enable_thm_shutdown>,
     .node = "vek_enable_thm_shutdown",
     .values = "0 off, 1 on",
     .usual_lowest = 1,
     .usual_highest = 1},
    {.family = "dvfs",
     .what = "",
     .description = "DVFS switch",
     .unit = "",
     .lowest = 0,
     .highest = 1,
     .step = 1,
     .pause = 1000,
     .apply = vekml_device_set_dvfs_enable,
     .node = "../../../vek_enable_dvfs",
     .values = "0 off, 1 on"},
};

// Its present value, read off its node; null where none is to be had.
json present(const gpu &g, const setting &s)
{
    const bool is_of_the_card = std::string_view(s.family) == "dvfs";
    const value held = number_in(is_of_the_card ? g.card_node("vek_enable_dvfs") : g.hwmon_node(s.node));
    const auto *number = std::get_if<std::int64_t>(&held);
    return number == nullptr ? json() : json(*number * s.node_scale);
}

// {"setting": a row, "text": the new value}; without a text it is only looked at. Back go what it was and is, and the
// library's result.
json apply(gpu &g, const json &argument)
{
    const setting &s = settings[argument.at("setting").get<std::size_t>()];
    json outcome = {{"old", present(g, s)}, {"new", nullptr}, {"result", VEKML_SUCCESS}};
    if (!argument.contains("text"))
        return outcome;
    outcome["result"] = s.apply(g.handle(), argument.at("text").get<std::string>().c_str());
    outcome["new"] = present(g, s);
    return outcome;
}

} // namespace

std::span<const setting> all_settings()
{
    return settings;
}

const extension setting_extension = {"set", apply};
