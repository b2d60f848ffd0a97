// SPDX-License-Identifier: Apache-2.0
// The commands that change something.
#include "output.h"
#include "readings/node.h"
#include "session.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <unistd.h>

namespace {

struct setting {
    const char *family;
    const char *what; // empty where a family has one setting alone
    const char *description;
    const char *unit;
    std::int64_t lowest, highest, step;
    int pause; // for how many milliseconds the library blocks after the write
    vekml_return_t (*apply)(vekml_device_t, const char *text);
    const char *values = nullptr; // for what a range does not say
};

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
    missing why;
    const std::string node = gpu(handle, false).hwmon_node("temp1_ctrl_mode");
    const bool taken = lacks_number(node, why) == nullptr && std::to_string(now.ctrl_mode) == text;
    return result == VEKML_SUCCESS && !taken ? VEKML_ERROR_NODE_IO : result;
}

// The library passes over some values out of range and reports success, and has room for four characters of a limit:
// so the ranges are tested before it is called.
constexpr setting settings[] = {
    {"fan", "fan", "fan speed", "%", 0, 100, 1, 0, vekml_device_set_fan1_speed},
    {"fan", "pwm", "fan PWM value", "", 1950, 5998, 1, 0, vekml_device_set_fan_pwm1},
    {"fan", "mode", "fan control mode", "", 0, 1, 1, 0, vekml_device_set_fan_ctrl_mode, "0 firmware, 1 host"},
    {"temp", "min", "lower temperature limit", "", -999, 9999, 1, 7000,
     set_temperature<temper_min_type, &temper_set::temp_min>},
    {"temp", "max", "upper temperature limit", "", -999, 9999, 1, 7000,
     set_temperature<temper_max_type, &temper_set::temp_max>},
    {"temp", "crit", "critical temperature limit", "", -999, 9999, 1, 7000,
     set_temperature<temper_crit_type, &temper_set::temp_crit>},
    {"temp", "ctrl", "temperature control mode", "", 0, 1, 1, 0, set_temperature_mode, "0 or 1"},
    {"power", "cap", "power cap", "", 1, 19999, 1, 0, vekml_device_set_power_warn},
    {"power", "volt", "core voltage", "", 1, 99999999, 1, 500, vekml_device_set_power_volt},
    {"clock", "gfx", "graphics clock", "Hz", 50000000, 1500000000, 50000000, 0, vekml_device_set_gfx_clock},
    {"thermal", "slowdown", "slowdown temperature", "", -999, 9999, 1, 1000,
     set_thermal<temp_slowdown_type, &thm_set::temp_slowdown>},
    {"thermal", "shutdown", "shutdown temperature", "", -999, 9999, 1, 1000,
     set_thermal<temp_shutdown_type, &thm_set::temp_shutdown>},
    {"thermal", "enable-slowdown", "slowdown protection", "", 0, 1, 1, 1000,
     set_thermal<enable_thm_slowdown_type, &thm_set::enable_thm_slowdown>, "0 off, 1 on"},
    {"thermal", "enable-shutdown", "shutdown protection", "", 0, 1, 1, 1000,
     set_thermal<enable_thm_shutdown_type, &thm_set::enable_thm_shutdown>, "0 off, 1 on"},
    {"dvfs", "", "DVFS switch", "", 0, 1, 1, 1000, vekml_device_set_dvfs_enable, "0 off, 1 on"},
};

bool is_named(const setting &s)
{
    return *s.what != '\0';
}

std::string command_of(const setting &s)
{
    return fmt::format("{} set{}{}", s.family, is_named(s) ? " " : "", s.what);
}

std::string pause_of(const setting &s)
{
    return fmt::format("{:g} s", s.pause / 1000.0);
}

std::string values_of(const setting &s)
{
    if (s.values != nullptr)
        return s.values;
    const std::string steps = s.step == 1 ? "" : fmt::format(" in steps of {}", s.step);
    return fmt::format("{} to {}{}{}{}", s.lowest, s.highest, *s.unit == '\0' ? "" : " ", s.unit, steps);
}

std::vector<const setting *> settings_of(std::string_view family)
{
    std::vector<const setting *> list;
    for (const setting &s : settings) {
        if (s.family == family)
            list.push_back(&s);
    }
    return list;
}

const setting &find_setting(const std::string &family, const std::string &what)
{
    std::string known;
    for (const setting *s : settings_of(family)) {
        if (!is_named(*s) || s->what == what)
            return *s;
        known += fmt::format("{}{}", known.empty() ? "" : ", ", s->what);
    }
    const std::string instead = what.empty() ? "" : fmt::format(", not \"{}\"", printable(what));
    throw usage_error(
        fmt::format("{0} set takes one of {1} and a value{2}; veksmi help {0} set tells more", family, known, instead));
}

struct change {
    const setting &what;
    std::string text; // of the new value
};

// The words behind "FAMILY set".
change parse_change(const std::string &family, const std::vector<std::string> &words)
{
    const setting &s = find_setting(family, words.empty() ? "" : words.front());
    const std::size_t values = words.size() - (is_named(s) ? 1 : 0);
    const auto number = values == 1 ? to_number<std::int64_t>(words.back()) : std::nullopt;
    if (!number || *number < s.lowest || *number > s.highest || *number % s.step != 0) {
        const std::string given =
            values == 1 ? fmt::format(", not \"{}\"", printable(words.back())) : fmt::format("; {} were given", values);
        throw usage_error(fmt::format("{} takes one value ({}){}", command_of(s), values_of(s), given));
    }
    return {s, std::to_string(*number)};
}

// In the reader of the GPU: {"setting": its row, "text": of the new value}, and back what the library made of it.
json apply(gpu &g, const json &argument)
{
    const setting &s = settings[argument.at("setting").get<std::size_t>()];
    return s.apply(g.handle(), argument.at("text").get<std::string>().c_str());
}

} // namespace

void check_setting(const char *family, const options &wanted)
{
    if (wanted.shape != format::table)
        throw usage_error("a set command has no --format");
    parse_change(family, wanted.setting);
}

bool has_settings(std::string_view family)
{
    return !settings_of(family).empty();
}

std::string settings_help(const std::string &family, const std::string &what)
{
    std::vector<const setting *> shown = settings_of(family);
    if (!what.empty())
        shown = {&find_setting(family, what)};
    std::size_t width = 0;
    for (const setting *s : shown)
        width = std::max(width, command_of(*s).size());
    std::string help = fmt::format("veksmi [-i GPU] {} set {}VALUE: changes a value, as root\n", family,
                                   is_named(*shown.front()) ? "WHAT " : "");
    for (const setting *s : shown)
        help += fmt::format("  {:<{}}  {}: {}{}{}\n", command_of(*s), width, s->description, values_of(*s),
                            s->pause == 0 ? "" : "; blocks ", s->pause == 0 ? "" : pause_of(*s));
    return help;
}

candidates next_of_setting(const std::string &family, const std::vector<std::string> &words)
{
    candidates found;
    for (const setting *s : settings_of(family)) {
        const std::string explained = fmt::format("{}: {}", s->description, values_of(*s));
        if (is_named(*s) && words.empty())
            found.push_back({s->what, explained});
        const bool value_is_next = is_named(*s) ? words.size() == 1 && words.front() == s->what : words.empty();
        const bool is_switch = s->highest - s->lowest == 1;
        for (std::int64_t i = s->lowest; value_is_next && is_switch && i <= s->highest; ++i)
            found.push_back({std::to_string(i), explained});
    }
    return found;
}

int change_setting(const char *family, const options &wanted, session &gpus)
{
    const auto [s, text] = parse_change(family, wanted.setting);
    const answers known = gpus.ask({});
    if (known.size() > 1)
        throw usage_error("there is more than one GPU: choose one with -i; veksmi list shows them");
    const answer &chosen = known.front();
    if (chosen.driverless)
        throw usage_error("nothing can be set without the driver");
    if (chosen.state != gpu_state::ok)
        return status_of(known);
    if (s.pause > 0 && geteuid() == 0) {
        print("GPU {}: setting the {} blocks for {}\n", chosen.index, s.description, pause_of(s));
        flush_output();
    }
    const request asked{.more = {{"set", {{"setting", &s - settings}, {"text", text}}}},
                        .extra = std::chrono::milliseconds(s.pause)};
    const answers said = gpus.ask(asked);
    const answer &gpu = said.front();
    if (gpu.state != gpu_state::ok) {
        complain(fmt::format("GPU {}: it is not known whether the {} was set", gpu.index, s.description));
        return status_of(said);
    }
    const int result = gpu.more.at("set").get<int>();
    if (result == VEKML_SUCCESS)
        print("GPU {}: set the {} to {}{}{}\n", gpu.index, s.description, text, *s.unit == '\0' ? "" : " ", s.unit);
    else
        complain(fmt::format("GPU {}: the {} was not set: {}", gpu.index, s.description, meaning(result)));
    return exit_status(result);
}

const extension setting_extension = {"set", apply};
