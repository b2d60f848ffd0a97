// SPDX-License-Identifier: Apache-2.0
#include "vekml.h"

#include "debug_log.h"
#include "vek_smi_utils.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

using namespace vekml;

namespace {

constexpr char makers_vendor_name[] = "VEK";
constexpr std::uint32_t lowest_cap = 1;
constexpr std::uint32_t highest_cap = 19999;
constexpr useconds_t voltage_settling_time = 500000;

} // namespace

vekml_return_t vekml_device_get_support_power_info(vekml_device_t handle, uint32_t *support)
{
    node_text<> value;
    if (value.read(handle->hwmon_path, "/vek_support_power_info") != 0) {
        *support = 0xFFFFFFFF;
        TRACE("read_from_node failed in vekml_device_get_support_power_info");
        return VEKML_ERROR_NODE_IO;
    }
    *support = static_cast<uint32_t>(value.number());
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_is_support_power(vekml_device_t handle, uint32_t *is_support)
{
    TRACE("\nenter vekml_device_is_support_power");
    if (handle == nullptr || is_support == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    *is_support = 0;
    uint32_t file_support_power = 0;
    vekml_return_t result = vekml_device_get_support_power_info(handle, &file_support_power);
    if (result != VEKML_SUCCESS) {
        TRACE("call vekml_device_get_support_power_info to get value is_support_power failed.");
        return result;
    }
    TRACE("file_support_power:%d", file_support_power);
    char vendor[64] = {};
    result = vekml_device_get_vendor(handle, vendor);
    if (result != VEKML_SUCCESS) {
        TRACE("call vekml_device_get_vendor to get vendor failed.");
        return result;
    }
    TRACE("vendor_name:%s", vendor);
    if (strcmp(vendor, makers_vendor_name) == 0)
        *is_support = file_support_power;
    TRACE("*is_support_power:%d", *is_support);
    TRACE("exit vekml_device_is_support_power");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_power_info(vekml_device_t handle, power_info *info)
{
    node_text<> value; // shared: a node that cannot be read repeats the one before it
    value.read(handle->hwmon_path, "/in0_input");
    info->voltage = value.number();
    value.read(handle->hwmon_path, "/curr1_input");
    info->current = value.number();
    value.read(handle->hwmon_path, "/power1_average");
    info->power_average = value.number();
    value.read(handle->hwmon_path, "/vek_total_power");
    info->total_power = static_cast<int32_t>(static_cast<uint32_t>(value.number()) * 1000U);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_set_power_volt(vekml_device_t handle, const char *text)
{
    if (!require_root("set power volt failed"))
        return VEKML_ERROR_NO_PERMISSION;
    const node_path<> path(handle->hwmon_path, "/in0_input");
    if (!node_ref(path).allows(W_OK)) {
        fputs("\nThe voltage value cannot be modified (you can try to check the driver version)\n", stdout);
        return VEKML_ERROR_NO_PERMISSION;
    }
    TRACE("access(in0_input,W_OK) = 0");
    const int written = write_to_node(path, text);
    usleep(voltage_settling_time);
    if (written != 0) {
        puts("set power volt failed");
        return VEKML_ERROR_NODE_IO;
    }
    puts("set power volt successful");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_set_power_warn(vekml_device_t handle, const char *text)
{
    if (!require_root("set power cap1 failed"))
        return VEKML_ERROR_NO_PERMISSION;
    if (static_cast<std::uint32_t>(decimal(text)) - lowest_cap > highest_cap - lowest_cap)
        return VEKML_SUCCESS;
    if (write_to_node(node_path<>(handle->hwmon_path, "/power1_cap"), text) != 0) {
        puts("set power cap1 failed");
        return VEKML_ERROR_NODE_IO;
    }
    return VEKML_SUCCESS;
}
