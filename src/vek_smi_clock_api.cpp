// SPDX-License-Identifier: Apache-2.0
#include "vekml.h"

#include "debug_log.h"
#include "vek_smi_utils.h"

#include <cstdio>
#include <iterator>

using namespace vekml;

namespace {

constexpr char gfx_node[] = "/vek_gfx_freq_mhz";

/** One clock; indexed by clk_type. */
struct clock_source {
    const char *node;
    std::int32_t clock_info::*reading;
    const char *label; /**< in print */
};

constexpr clock_source clocks[] = {
    {"/vek_gddr_phys_freq_mhz", &clock_info::gddr_phys_clk, "vek gpu_gddr_phys_clk"},
    {gfx_node, &clock_info::gfx_clk, "vek_gfx_freq"},
    {"/vek_acpu_freq_mhz", &clock_info::acpu_clk, "vek_acpu_freq"},
    {"/vek_ndf_freq_mhz", &clock_info::ndf_clk, "vek_ndf_freq"},
    {"/vek_cmcu_freq_mhz", &clock_info::cmcu_clk, "vek_cmcu_freq"},
};

/** Read one clock into its field, 0 when it is unreadable. */
std::int32_t read_clock(vekml_device_t handle, clock_info *info, const clock_source &clock)
{
    node_text<> value;
    value.read(handle->hwmon_path, clock.node);
    return info->*clock.reading = value.number();
}

/** 50 MHz to 1500 MHz in whole steps, in Hz. */
bool is_settable_gfx_clock(std::int32_t hertz)
{
    constexpr std::int32_t step = 50000000;
    constexpr std::int32_t highest = 1500000000;
    return hertz >= step && hertz <= highest && hertz % step == 0;
}

} // namespace

vekml_return_t vekml_device_get_clock_info(vekml_device_t handle, clock_info *info, clk_type type)
{
    if (type >= std::size(clocks)) {
        puts("invalid clk type");
        return VEKML_ERROR_NODE_IO;
    }
    const clock_source &clock = clocks[type];
    // The unit is MHz; clients match the line, so it keeps saying HZ.
    printf("%s=%dHZ\n", clock.label, read_clock(handle, info, clock));
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_clock(vekml_device_t handle, clock_info *info)
{
    for (const clk_type type : {gddr_phys_clk_type, gfx_clk_type, acpu_clk_type, cmcu_clk_type, ndf_clk_type}) {
        read_clock(handle, info, clocks[type]);
        if (type == gfx_clk_type)
            TRACE("vek_gfx_freq = %d", info->gfx_clk);
    }
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_set_gfx_clock(vekml_device_t handle, const char *text)
{
    if (!require_root("set gfx clock failed"))
        return VEKML_ERROR_NO_PERMISSION;
    const std::int32_t hertz = decimal(text);
    TRACE("gfx is %d", hertz);
    if (is_settable_gfx_clock(hertz)) {
        TRACE("gfx_clock is %s", text);
        // In Hz, whatever the node's name says.
        if (write_to_node(node_path<>(handle->hwmon_path, gfx_node), text) == 0) {
            puts("set gfx clock successful");
            return VEKML_SUCCESS;
        }
    }
    puts("set gfx clock failed");
    return VEKML_ERROR_NODE_IO;
}
