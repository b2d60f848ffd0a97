// SPDX-License-Identifier: Apache-2.0
#include "vekml.h"

#include "debug_log.h"
#include "vek_smi_utils.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

using namespace vekml;

namespace {

constexpr std::uint32_t lowest_pwm = 1950;
constexpr std::uint32_t highest_pwm = 5998;
constexpr std::uint32_t highest_speed_percent = 100;

/** The number in one of the fan's nodes, 0 when it is unreadable. */
std::uint32_t fan_number(vekml_device_t handle, const char *node)
{
    node_text<> value;
    value.read(handle->hwmon_path, node);
    return static_cast<std::uint32_t>(value.number());
}

/** Ranges are compared unsigned, so that no negative number lies in one. */
std::uint32_t unsigned_number(const char *text)
{
    return static_cast<std::uint32_t>(decimal(text));
}

/** Only a board with a PWM fan has the node. */
bool has_pwm_fan(const node_ref &pwm)
{
    return pwm.allows(F_OK);
}

} // namespace

vekml_return_t vekml_device_get_fan_ctrl_mode(vekml_device_t handle, uint32_t *mode)
{
    *mode = fan_number(handle, "/fan1_ctrl_mode");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_fan_pwm(vekml_device_t handle, uint32_t *pwm)
{
    *pwm = fan_number(handle, "/pwm1");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_pwm_min(vekml_device_t handle, uint32_t *pwm)
{
    *pwm = fan_number(handle, "/pwm1_min");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_pwm_max(vekml_device_t handle, uint32_t *pwm)
{
    *pwm = fan_number(handle, "/pwm1_max");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_fan_speed(vekml_device_t handle, uint32_t *speed)
{
    *speed = fan_number(handle, "/fan1_input");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_min_max_fan_speed(vekml_device_t handle, uint32_t *min, uint32_t *max)
{
    *min = fan_number(handle, "/fan1_min");
    *max = fan_number(handle, "/fan1_max");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_support_fan_info(vekml_device_t handle, uint32_t *support)
{
    if (support == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    *support = 0;
    if (handle == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    node_text<> value;
    if (value.read(handle->hwmon_path, "/vek_support_fan_info") != 0)
        return VEKML_ERROR_NOT_FOUND;
    *support = value.number() > 0 ? 1 : 0;
    TRACE("tmp_support:%d", value.number());
    TRACE("*support_fan_info:%d", *support);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_set_fan_ctrl_mode(vekml_device_t handle, const char *text)
{
    if (!require_root("set fan1_ctrl_mode failed"))
        return VEKML_ERROR_NO_PERMISSION;
    if (unsigned_number(text) > 1)
        return VEKML_SUCCESS;
    if (write_to_node(node_path<>(handle->hwmon_path, "/fan1_ctrl_mode"), text) != 0) {
        puts("set fan1_ctrl_mode failed");
        return VEKML_ERROR_NODE_IO;
    }
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_set_fan_pwm1(vekml_device_t handle, const char *text)
{
    if (!require_root("set fan speed failed"))
        return VEKML_ERROR_NO_PERMISSION;
    if (unsigned_number(text) - lowest_pwm > highest_pwm - lowest_pwm)
        return VEKML_SUCCESS;
    const node_path<> pwm(handle->hwmon_path, "/pwm1");
    const int written = write_to_node(pwm, text);
    if (!has_pwm_fan(pwm)) {
        puts("set fan speed failed, you can try <veksmi fan set fan XX>");
        return VEKML_ERROR_NODE_IO;
    }
    if (written != 0) {
        puts("set fan speed failed");
        return VEKML_ERROR_NODE_IO;
    }
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_set_fan1_speed(vekml_device_t handle, const char *text)
{
    const node_path<100> target(handle->hwmon_path, "/fan1_target");
    const node_path<100> pwm(handle->hwmon_path, "/pwm1");
    const node_path<100> mode(handle->hwmon_path, "/fan1_ctrl_mode");
    if (!require_root("set fan1_target failed"))
        return VEKML_ERROR_NO_PERMISSION;
    const std::uint32_t percent = unsigned_number(text);
    if (has_pwm_fan(pwm)) {
        puts("set fan speed failed, you can try <veksmi fan set pwm xxxx>");
        return VEKML_ERROR_NODE_IO;
    }
    // Asked again: a driver that was still starting may have published the PWM fan by now.
    const bool pwm_appeared = has_pwm_fan(pwm);
    if (percent > highest_speed_percent) {
        if (pwm_appeared)
            return VEKML_SUCCESS;
        puts("set fan speed failed.");
        return VEKML_ERROR_NODE_IO;
    }
    node_text<5> present_mode;
    if (present_mode.read(mode) != 0) {
        puts("get ctrl mode info failed.");
        return VEKML_ERROR_UNKNOWN;
    }
    TRACE("ctrl mode info: %s", present_mode.text);
    if (strcmp(present_mode.text, "0") == 0) {
        puts("set fan speed failed, because the ctrl mode of fan is firmware control mode.");
        return VEKML_ERROR_NODE_IO;
    }
    if (write_to_node(target, text) != 0) {
        puts("set fan speed failed.");
        return VEKML_ERROR_NODE_IO;
    }
    return VEKML_SUCCESS;
}
