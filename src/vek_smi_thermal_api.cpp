// SPDX-License-Identifier: Apache-2.0
#include "vekml.h"

#include "debug_log.h"
#include "vek_smi_utils.h"

#include <cstdio>
#include <iterator>
#include <unistd.h>

using namespace vekml;

namespace {

/** What setting and reading one thermal limit needs; indexed by thm_type. */
struct thermal_limit {
    const char *node;
    char (thm_set::*setting)[5];
    std::int32_t thermal::*reading;
    const char *set_entered;
    const char *set_written;
    const char *set_failed;
    const char *set_done; /**< printed on success, or null */
    const char *get_entered;
    const char *name; /**< of the reading, in the log */
};

constexpr thermal_limit limits[] = {
    {"/vek_slowdown_temp", &thm_set::temp_slowdown, &thermal::vek_temp_slowdown, "enter temp_slowdown_type",
     "vek_slowdown_temp ", "set slowdown temp failed.", nullptr, "enter get temp_slowdown_type", "vek_temp_slowdown"},
    {"/vek_shutdown_temp", &thm_set::temp_shutdown, &thermal::vek_temp_shutdown, "enter temp_shutdown_type",
     "temp_shutdown_type ", "set shutdown temp failed.", nullptr, "enter get temp_shutdown_type", "vek_temp_shutdown"},
    {"/vek_enable_thm_slowdown", &thm_set::enable_thm_slowdown, &thermal::vek_enable_thm_slowdown,
     "enter enable_thm_slowdown_type", "enable_thm_slowdown ", "set enable thm slowdown failed.",
     "set enable thm slowdown success.", "enter get enable_thm_slowdown_type", "vek_enable_thm_slowdown"},
    {"/vek_enable_thm_shutdown", &thm_set::enable_thm_shutdown, &thermal::vek_enable_thm_shutdown,
     "enter enable_thm_shutdown_type", "enable_thm_shutdown ", "set enable thm shutdown failed.", nullptr,
     "enter get enable_thm_shutdown_type", "vek_enable_thm_shutdown"},
};

const thermal_limit *find_limit(thm_type type)
{
    return type < std::size(limits) ? &limits[type] : nullptr;
}

/** Read one limit into its field, 0 when it is unreadable, logging as the exported function that asks. */
vekml_return_t read_limit(const char *function, vekml_device_t handle, thermal *out, const thermal_limit &limit)
{
    const node_path<> path(handle->hwmon_path, limit.node);
    node_text<> value;
    const bool read = value.read(path) == 0;
    if (!read) {
        TRACE_AS(function, "read from node %s failed.", path.text());
        printf("the file node:%s doesn't exist.\n", path.text());
    }
    out->*limit.reading = value.number();
    TRACE_AS(function, "thermal->%s:%d", limit.name, out->*limit.reading);
    return read ? VEKML_SUCCESS : VEKML_ERROR_NOT_FOUND;
}

} // namespace

vekml_return_t vekml_device_set_thermal_info(vekml_device_t handle, thm_set *set, thm_type type)
{
    TRACE("\n enter vekml_device_set_thermal_info");
    if (!require_root("set thermal info failed"))
        return VEKML_ERROR_NO_PERMISSION;
    // Callers fill in the text they select; the others may lack their terminator.
    TRACE("thm_set->temp_slowdown:%.5s", set->temp_slowdown);
    TRACE("thm_set->temp_shutdown:%.5s", set->temp_shutdown);
    TRACE("thm_set->enable_thm_slowdown:%.5s", set->enable_thm_slowdown);
    TRACE("thm_set->enable_thm_shutdown:%.5s", set->enable_thm_shutdown);
    TRACE("thm_type:%d", type);
    const thermal_limit *limit = find_limit(type);
    if (limit == nullptr) {
        puts("invaild thermal type");
        return VEKML_ERROR_NODE_IO;
    }
    TRACE("%s", limit->set_entered);
    const int written = write_to_node(node_path<>(handle->hwmon_path, limit->node), set->*limit->setting);
    sleep(1);
    TRACE("%s", limit->set_written);
    if (written != 0) {
        puts(limit->set_failed);
        return VEKML_ERROR_NODE_IO;
    }
    if (limit->set_done != nullptr)
        puts(limit->set_done);
    TRACE("\n exit vekml_device_set_thermal_info");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_thermal(vekml_device_t handle, thermal *out, thm_type type)
{
    TRACE("\nenter vekml_device_get_thermal.");
    const thermal_limit *limit = find_limit(type);
    if (limit == nullptr) {
        puts("invaild thermal type");
        return VEKML_ERROR_NODE_IO;
    }
    TRACE("%s", limit->get_entered);
    const vekml_return_t result = read_limit(__func__, handle, out, *limit);
    TRACE("exit vekml_device_get_thermal.");
    return result;
}

vekml_return_t vekml_device_get_thermal_info(vekml_device_t handle, thermal *out)
{
    TRACE("\nenter vekml_device_get_thermal_info.");
    vekml_return_t result = VEKML_SUCCESS;
    // The slowdown protection is not among them: callers keep their own value in that field.
    for (const thm_type type : {temp_slowdown_type, temp_shutdown_type, enable_thm_shutdown_type}) {
        if (read_limit(__func__, handle, out, limits[type]) != VEKML_SUCCESS)
            result = VEKML_ERROR_NOT_FOUND;
    }
    TRACE("exit vekml_device_get_thermal_info.");
    return result;
}
