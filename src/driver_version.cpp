// SPDX-License-Identifier: Apache-2.0
#include "driver_version.h"

#include "debugfs_dump.h"
#include "number_scan.h"
#include "vek_smi_utils.h"

#include <cstdio>

namespace vekml {
namespace {

constexpr char not_available[] = "N/A";
constexpr dump_task driver_version_task{"get gpu driver version", "An error occurred when malloc"};

} // namespace

void parse_version_node(const char *text, vekml_driver_version_t *version)
{
    int umd[2] = {}, kmd[2] = {}, ddk[3] = {};
    number_scan numbers(text);
    numbers >> umd[0] >> umd[1] >> kmd[0] >> kmd[1] >> ddk[0] >> ddk[1] >> ddk[2];
    snprintf(version->umd, sizeof version->umd, "%d.%d", umd[0], umd[1]);
    snprintf(version->kmd, sizeof version->kmd, "%d.%d", kmd[0], kmd[1]);
    snprintf(version->ddk, sizeof version->ddk, "%d.%d.%d", ddk[0], ddk[1], ddk[2]);
}

vekml_return_t read_version_dump(const trace_site &site, vekml_driver_version_t *version)
{
    constexpr char path[] = "/sys/kernel/debug/vekgpu/gpu00/debug_dump"; // the driver is the same for all GPUs
    constexpr char um_km_pattern[] = "^UM info: ([0-9]*.[0-9]*).*\r?\n^KM info: ([0-9]*.[0-9]*)";
    constexpr char ddk_pattern[] = "^DDK info: VEKGPU Driver ([0-9]+\\.[0-9]+\\.[0-9]+)";

    if (!is_root()) {
        TRACE_FOR(site, "system is not root");
        for (auto *field : {&version->ddk, &version->kmd, &version->umd})
            copy_text(*field, sizeof *field, not_available);
        return VEKML_ERROR_NO_PERMISSION;
    }
    const debugfs_dump dump = read_debugfs_dump(path);
    trace_failure(site, dump, path, driver_version_task);
    if (!dump.has_text())
        return VEKML_ERROR_NODE_IO;
    TRACE_FOR(site, "%s", dump.text.get());

    unique_text um_km[3], ddk[2];
    const int ret = pick_regex(dump.text.get(), um_km_pattern, 2, um_km);
    const int ddk_ret = pick_regex(dump.text.get(), ddk_pattern, 1, ddk);
    const char *um = ret == 0 ? um_km[1].get() : not_available;
    const char *km = ret == 0 ? um_km[2].get() : not_available;
    TRACE_FOR(site, "ret is %d", ret);
    TRACE_FOR(site, "value1:%s, value2:%s", um, km);
    copy_text(version->ddk, sizeof version->ddk, ddk_ret == 0 ? ddk[1].get() : not_available);
    // Clients know the dump's two versions in each other's place.
    copy_text(version->kmd, sizeof version->kmd, um);
    copy_text(version->umd, sizeof version->umd, km);
    return VEKML_SUCCESS;
}

} // namespace vekml
