// SPDX-License-Identifier: Apache-2.0
#include "vekml.h"

#include "debug_log.h"
#include "vek_smi_utils.h"

#include <cstdio>
#include <iterator>
#include <unistd.h>

using namespace vekml;

namespace {

constexpr char mode_node[] = "/temp1_ctrl_mode";

/** One readable limit; indexed by tem_type. */
struct temper_limit {
    const char *node;
    std::int32_t temper_info::*reading;
    const char *entered;
};

constexpr temper_limit limits[] = {
    {mode_node, &temper_info::ctrl_mode, "enter crtl_mode_type"},
    {"/temp1_min", &temper_info::temp_min, "enter get temper_min_type"},
    {"/temp1_max", &temper_info::temp_max, "enter temper_max_type"},
    {"/temp1_crit", &temper_info::temp_crit, "enter get temper_crit_type"},
};

struct temper_node {
    const char *node;
    std::int32_t temper_info::*reading;
};

constexpr temper_node all_nodes[] = {
    {"/temp1_input", &temper_info::temp_input},     {mode_node, &temper_info::ctrl_mode},
    {"/temp1_highest", &temper_info::temp_highest}, {"/temp1_min", &temper_info::temp_min},
    {"/temp1_max", &temper_info::temp_max},         {"/temp1_crit", &temper_info::temp_crit},
    {"/vek_gddr_temp", &temper_info::gddr_temp},
};

/** Write a node and give the firmware its time, whatever became of the write. */
bool write_and_wait(vekml_device_t handle, const char *node, const char *text, unsigned seconds)
{
    const int written = write_to_node(node_path<>(handle->hwmon_path, node), text);
    sleep(seconds);
    return written == 0;
}

bool close_control(vekml_device_t handle)
{
    const bool closed = write_and_wait(handle, mode_node, "0", 3);
    if (!closed)
        puts("write temper1 ctrl node close failed");
    return closed;
}

bool open_control(vekml_device_t handle)
{
    const bool opened = write_and_wait(handle, mode_node, "1", 3);
    if (!opened)
        puts("wirte temper1 ctrl node open failed");
    return opened;
}

vekml_return_t set_min(vekml_device_t handle, const temper_set &set)
{
    if (!write_and_wait(handle, "/temp1_min", set.temp_min, 1)) {
        puts("set temper min failed");
        return VEKML_ERROR_NODE_IO;
    }
    // Stricter than the other limits: a control that stays closed is not opened, and the caller is told.
    return close_control(handle) && open_control(handle) ? VEKML_SUCCESS : VEKML_ERROR_NODE_IO;
}

/** The limit stands once it is written, so a control that does not follow is reported in print only. */
void rearm(vekml_device_t handle)
{
    close_control(handle);
    open_control(handle);
}

} // namespace

vekml_return_t vekml_device_get_temper(vekml_device_t handle, temper_info *info, tem_type type)
{
    TRACE("\nenter vekml_device_get_temper");
    if (type >= std::size(limits)) {
        puts("invaild temper type");
        return VEKML_ERROR_NODE_IO;
    }
    const temper_limit &limit = limits[type];
    TRACE("%s", limit.entered);
    const node_path<> path(handle->hwmon_path, limit.node);
    node_text<> value;
    if (value.read(path) != 0)
        TRACE("read from node %s failed.", path.text());
    info->*limit.reading = value.number();
    TRACE("\nexit vekml_device_get_temper");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_temper_info(vekml_device_t handle, temper_info *info)
{
    node_text<> value; // shared: a node that cannot be read repeats the one before it
    for (const temper_node &each : all_nodes) {
        value.read(handle->hwmon_path, each.node);
        info->*each.reading = value.number();
    }
    TRACE("crit is %d", info->temp_crit);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_set_temper_info(vekml_device_t handle, temper_set *set, tem_type type)
{
    if (!require_root("set temper crit failed"))
        return VEKML_ERROR_NO_PERMISSION;
    // Filled in for its own type only; otherwise it may lack its terminator.
    TRACE("temper_set->temp_crit:%.5s tem_type:%d", set->temp_crit, type);
    switch (type) {
    case crtl_mode_type:
        write_to_node(node_path<>(handle->hwmon_path, mode_node), set->ctrl_mode);
        return VEKML_SUCCESS;
    case temper_min_type:
        TRACE("%s", set->temp_min);
        return set_min(handle, *set);
    case temper_max_type:
        if (!write_and_wait(handle, "/temp1_max", set->temp_max, 1)) {
            puts("set temper max failed");
            return VEKML_ERROR_NODE_IO;
        }
        rearm(handle);
        return VEKML_SUCCESS;
    case temper_crit_type: {
        TRACE("enter temper_crit_type");
        const bool written = write_and_wait(handle, "/temp1_crit", set->temp_crit, 1);
        TRACE("temper crit ");
        if (!written) {
            puts("set temper crit failed");
            return VEKML_ERROR_NODE_IO;
        }
        rearm(handle);
        return VEKML_SUCCESS;
    }
    default:
        puts("invaild temper type");
        return VEKML_ERROR_NODE_IO;
    }
}
