// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readings/units.h"
#include "vekml.h"

#include <cstdint>
#include <span>

// One value that can be set. The library passes over some values out of range and reports success, and has room for
// four characters of a limit: so the ranges are tested before it is called.
struct setting {
    const char *family;
    const char *what; // empty where a family has one setting alone
    const char *description;
    const char *unit;
    std::int64_t lowest, highest, step;
    int pause; // for how many milliseconds the library blocks after the write
    vekml_return_t (*apply)(vekml_device_t, const char *text);
    const char *node;             // that tells the present value, in the hwmon directory
    const char *values = nullptr; // for what a range does not say
    // Outside these a value is set only on a second word, as it can cost the hardware; in the unit that is shown.
    double usual_lowest = 0, usual_highest = 0; // none where both are 0
    readings::quantity measured_in = readings::quantity::fixed;
    std::int64_t node_scale = 1; // what one of the node's is in the setting's own
    const char *reset = nullptr; // the value that hands control back to the driver's firmware
};

std::span<const setting> all_settings();
