// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "gpu.h"
#include "units.h"

#include <functional>

// What the hwmon directory tells, or out of band the firmware.
namespace readings::sensors {

using number_reader = std::function<std::int64_t()>;

// A sensor that the driver alone knows: the library's number counts where its node holds one.
value driver_sensor(gpu &g, bool supported, const char *node, quantity q, const number_reader &read);

value temperature(gpu &g);
value temperature_highest(gpu &g);
value memory_temperature(gpu &g);
value temperature_setting(gpu &g, const char *node, quantity q, std::int32_t temper_info::*member);
value thermal_limit(gpu &g, thm_type type, const char *node, quantity q);
value dvfs(gpu &g); // a switch of the card itself

value fan_speed(gpu &g);
value fan_bound(gpu &g, bool highest);
value fan_control(gpu &g, const char *node, vekml_return_t (*getter)(vekml_device_t, std::uint32_t *));

value power_of(gpu &g, const char *node, quantity q, std::int32_t power_info::*member);
value power_total(gpu &g);
value power_cap(gpu &g);

value clock_of(gpu &g, const char *node, std::int32_t clock_info::*member);
value graphics_clock(gpu &g);

} // namespace readings::sensors
