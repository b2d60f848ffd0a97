// SPDX-License-Identifier: Apache-2.0
// The commands that change something.
#include "output.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <span>
#include <unistd.h>

namespace {

struct setting {
    const char *family;
    const char *what; // empty where a family has one setting alone
    const char *description;
    const char *unit;
    std::int64_t lowest, highest, step;
    const char *pause; // how long the library blocks after the write; empty for not at all
    vekml_return_t (*apply)(vekml_device_t, const char *text);
};

template <std::size_t Size>
void copy(char (&field)[Size], const char *text)
{
    std::strncpy(field, text, Size - 1);
}

template <tem_type Type, auto Member>
vekml_return_t set_temperature(vekml_device_t handle, const char *text)
{
    temper_set set{};
    copy(set.*Member, text);
    return vekml_device_set_temper_info(handle, &set, Type);
}

template <thm_type Type, auto Member>
vekml_return_t set_thermal(vekml_device_t handle, const char *text)
{
    thm_set set{};
    copy(set.*Member, text);
    return vekml_device_set_thermal_info(handle, &set, Type);
}

// The library reports this write as done whatever became of it.
vekml_return_t set_temperature_mode(vekml_device_t handle, const char *text)
{
    const vekml_return_t result = set_temperature<crtl_mode_type, &temper_set::ctrl_mode>(handle, text);
    temper_info now{};
    vekml_device_get_temper(handle, &now, crtl_mode_type);
    const bool taken = gpu(handle, 0, false).answers("temp1_ctrl_mode") && std::to_string(now.ctrl_mode) == text;
    return result == VEKML_SUCCESS && !taken ? VEKML_ERROR_NODE_IO : result;
}

// The library passes over some values out of range and reports success, and has room for four characters of a limit:
// so the ranges are tested before it is called.
constexpr setting settings[] = {
    {"fan", "fan", "fan speed", "%", 0, 100, 1, "", vekml_device_set_fan1_speed},
    {"fan", "pwm", "fan PWM value", "", 1950, 5998, 1, "", vekml_device_set_fan_pwm1},
    {"fan", "mode", "fan control mode", "", 0, 1, 1, "", vekml_device_set_fan_ctrl_mode},
    {"temp", "min", "lower temperature limit", "", -999, 9999, 1, "7 s",
     set_temperature<temper_min_type, &temper_set::temp_min>},
    {"temp", "max", "upper temperature limit", "", -999, 9999, 1, "7 s",
     set_temperature<temper_max_type, &temper_set::temp_max>},
    {"temp", "crit", "critical temperature limit", "", -999, 9999, 1, "7 s",
     set_temperature<temper_crit_type, &temper_set::temp_crit>},
    {"temp", "ctrl", "temperature control mode", "", 0, 1, 1, "", set_temperature_mode},
    {"power", "cap", "power cap", "", 1, 19999, 1, "", vekml_device_set_power_warn},
    {"power", "volt", "core voltage", "", 1, 99999999, 1, "0.5 s", vekml_device_set_power_volt},
    {"clock", "gfx", "graphics clock", "Hz", 50000000, 1500000000, 50000000, "", vekml_device_set_gfx_clock},
    {"thermal", "slowdown", "slowdown temperature", "", -999, 9999, 1, "1 s",
     set_thermal<temp_slowdown_type, &thm_set::temp_slowdown>},
    {"thermal", "shutdown", "shutdown temperature", "", -999, 9999, 1, "1 s",
     set_thermal<temp_shutdown_type, &thm_set::temp_shutdown>},
    {"thermal", "enable-slowdown", "slowdown protection switch", "", 0, 1, 1, "1 s",
     set_thermal<enable_thm_slowdown_type, &thm_set::enable_thm_slowdown>},
    {"thermal", "enable-shutdown", "shutdown protection switch", "", 0, 1, 1, "1 s",
     set_thermal<enable_thm_shutdown_type, &thm_set::enable_thm_shutdown>},
    {"dvfs", "", "DVFS switch", "", 0, 1, 1, "1 s", vekml_device_set_dvfs_enable},
};

std::string command_of(const setting &s)
{
    return fmt::format("{} set{}{}", s.family, *s.what == '\0' ? "" : " ", s.what);
}

std::string range_of(const setting &s)
{
    const std::string steps = s.step == 1 ? "" : fmt::format(" in steps of {}", s.step);
    return fmt::format("{} to {}{}{}{}", s.lowest, s.highest, *s.unit == '\0' ? "" : " ", s.unit, steps);
}

struct change {
    const setting &what;
    std::string text; // of the new value
};

// The words behind "FAMILY set".
const setting &find_setting(std::string_view family, const std::vector<std::string> &words)
{
    std::string known;
    for (const setting &s : settings) {
        if (s.family != family)
            continue;
        const bool named = *s.what != '\0';
        if (words.size() == (named ? 2 : 1) && (!named || words.front() == s.what))
            return s;
        known += fmt::format("{}{}{}VALUE", known.empty() ? "" : ", ", s.what, named ? " " : "");
    }
    throw usage_error(fmt::format("{} set takes {}", family, known));
}

change parse_change(const char *family, const std::vector<std::string> &words)
{
    const setting &s = find_setting(family, words);
    const std::string &text = words.back();
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    if (!whole || number < s.lowest || number > s.highest || number % s.step != 0)
        throw usage_error(
            fmt::format("{} takes a number from {}, not \"{}\"", command_of(s), range_of(s), printable(text)));
    return {s, std::to_string(number)};
}

} // namespace

void check_setting(const char *family, const options &wanted)
{
    if (wanted.shape != format::table)
        throw usage_error("a set command has no --format");
    parse_change(family, wanted.setting);
}

std::string settings_help(const char *family)
{
    const auto of_family = [&](const setting &s) { return std::string_view(s.family) == family; };
    std::size_t width = 0;
    for (const setting &s : settings)
        width = of_family(s) ? std::max(width, command_of(s).size() + std::strlen(" VALUE")) : width;
    std::string help;
    for (const setting &s : settings) {
        if (of_family(s))
            help += fmt::format("\n  {:<{}}  {}: {}{}{}", command_of(s) + " VALUE", width, s.description, range_of(s),
                                *s.pause == '\0' ? "" : "; blocks for ", s.pause);
    }
    return help;
}

candidates next_of_setting(const std::string &family, const std::vector<std::string> &words)
{
    candidates found;
    for (const setting &s : settings) {
        if (s.family != family)
            continue;
        const bool named = *s.what != '\0';
        if (named && words.empty())
            found.push_back({s.what, fmt::format("{}: {}", s.description, range_of(s))});
        const bool value_is_next = named ? words.size() == 1 && words.front() == s.what : words.empty();
        const bool is_switch = s.highest - s.lowest == 1;
        for (std::int64_t i = s.lowest; value_is_next && is_switch && i <= s.highest; ++i)
            found.push_back({std::to_string(i), s.description});
    }
    return found;
}

int change_setting(const char *family, const options &wanted, gpu_list &gpus)
{
    const auto [s, text] = parse_change(family, wanted.setting);
    if (gpus.size() > 1)
        throw usage_error("there is more than one GPU: choose the one to set with -i");
    gpu &g = gpus.front();
    if (g.driverless())
        throw usage_error("nothing can be set without the driver");
    if (*s.pause != '\0' && geteuid() == 0) {
        print("GPU {}: setting the {} blocks for {}\n", g.index(), s.description, s.pause);
        flush_output();
    }
    const vekml_return_t result = s.apply(g.handle(), text.c_str());
    if (result == VEKML_SUCCESS)
        print("GPU {}: set the {} to {}{}{}\n", g.index(), s.description, text, *s.unit == '\0' ? "" : " ", s.unit);
    else
        complain(fmt::format("GPU {}: the {} was not set: {}", g.index(), s.description, meaning(result)));
    return exit_status(result);
}
