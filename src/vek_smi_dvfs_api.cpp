// SPDX-License-Identifier: Apache-2.0
#include "vekml.h"

#include "debug_log.h"
#include "vek_smi_utils.h"

#include <cstdio>
#include <unistd.h>

using namespace vekml;

namespace {

constexpr char enable_dvfs_node[] = "/vek_enable_dvfs";

} // namespace

vekml_return_t vekml_device_set_dvfs_enable(vekml_device_t handle, const char *text)
{
    TRACE("\nenter vekml_device_set_dvfs_enable.");
    if (!require_root("set dvfs enable failed"))
        return VEKML_ERROR_NO_PERMISSION;
    TRACE("dvfs_enable:%s", text);
    const int written = write_to_node(node_path<100>(handle->card_path, enable_dvfs_node), text);
    sleep(1);
    if (written != 0) {
        puts("set dvfs enable failed.");
        return VEKML_ERROR_NODE_IO;
    }
    TRACE("\nexit vekml_device_set_dvfs_enable.");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_dvfs_info(vekml_device_t handle, dvfs_t *out)
{
    TRACE("\nenter vekml_device_get_dvfs_info.");
    const node_path<100> path(handle->card_path, enable_dvfs_node);
    node_text<> value;
    const bool read = value.read(path) == 0;
    if (!read)
        TRACE("read from node %s failed.", path.text());
    out->vek_enable_dvfs = value.number();
    TRACE("dvfs_t->vek_enable_dvfs:%d", out->vek_enable_dvfs);
    if (!read) {
        TRACE("The file node of dvfs doesn't exist. This card may not supported dvfs feature.");
        return VEKML_ERROR_NOT_FOUND;
    }
    TRACE("exit vekml_device_get_dvfs_info.");
    return VEKML_SUCCESS;
}
