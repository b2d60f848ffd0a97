// SPDX-License-Identifier: Apache-2.0
// The commands that show chosen fields and nothing else.
#include "output.h"

namespace {

int show(const options &wanted, gpu_list &gpus, std::initializer_list<std::string_view> keys)
{
    field_list fields = wanted.shape == format::table ? pick({"model", "bus_id"}) : pick({"index", "model", "bus_id"});
    for (const field *f : pick(keys))
        fields.push_back(f);
    print_readings(wanted, fields, gpus);
    return status_of(gpus);
}

const field_list &query_fields()
{
    static const field_list fields = pick({"index",
                                           "model",
                                           "bus_id",
                                           "temperature",
                                           "temperature_highest",
                                           "fan_speed",
                                           "power",
                                           "power_total",
                                           "voltage",
                                           "current",
                                           "gfx_clock_mhz",
                                           "memory_clock_mhz",
                                           "cmcu_clock_mhz",
                                           "gpu_util_percent",
                                           "tdm_util_percent",
                                           "geom_util_percent",
                                           "3d_util_percent",
                                           "cdm_util_percent",
                                           "memory_used",
                                           "memory_total",
                                           "memory_util_percent",
                                           "process_count",
                                           "pcie_speed_gts",
                                           "pcie_width",
                                           "display_connected"});
    return fields;
}

} // namespace

int list_gpus(const options &wanted, gpu_list &gpus)
{
    const field_list fields = pick({"index", "card", "model", "name", "bus_id", "uuid"});
    if (wanted.shape != format::table) {
        print_readings(wanted, fields, gpus);
        return exit_done;
    }
    if (gpus.empty()) {
        print("No GPU found{}.\n", hint_without_gpu(wanted));
        return exit_done;
    }
    using enum table::align;
    table rows({{"INDEX", right}, {"CARD", right}, {"MODEL", left}, {"NAME", left}, {"BUS ID", left}, {"UUID", left}});
    for (gpu &g : gpus) {
        std::vector<std::string> row;
        for (const field *f : fields)
            row.push_back(cell(f->get(g)));
        rows.add(row);
    }
    rows.print();
    return exit_done;
}

int show_info(const options &wanted, gpu_list &gpus)
{
    return show(wanted, gpus,
                {"card",
                 "name",
                 "uuid",
                 "vendor",
                 "device_id",
                 "vendor_id",
                 "subsystem_device_id",
                 "subsystem_vendor_id",
                 "chip_type",
                 "chip_process_nm",
                 "card_type",
                 "cores",
                 "firmware_version",
                 "vbios_version",
                 "driver_ddk",
                 "driver_kmd",
                 "driver_umd",
                 "primary_id",
                 "primary_core_id",
                 "memory_type",
                 "memory_vendor",
                 "memory_devices",
                 "memory_size",
                 "firmware_memory_size_mib",
                 "memory_speed",
                 "memory_width_bits",
                 "gfx_clock_max_mhz",
                 "gfx_clock_default",
                 "texture_fill_rate_gtexels",
                 "pixel_fill_rate_gpixels",
                 "video_decoding",
                 "video_encoding",
                 "pcie_speed_max_gts",
                 "pcie_width_max",
                 "pcie_generation_max",
                 "pcie_memory_bar",
                 "display_connected"});
}

int query(const options &wanted, gpu_list &gpus)
{
    const field_list &fields = wanted.fields.empty() ? query_fields() : wanted.fields;
    for (gpu &g : gpus)
        g.take_snapshot();
    print_readings(wanted, fields, gpus);
    return status_of(gpus);
}

int help_fields()
{
    using enum table::align;
    table rows({{"FIELD", left}, {"WHAT IT IS", left}});
    for (const field &f : all_fields())
        rows.add({f.key, f.help});
    rows.print();
    return exit_done;
}

int show_temperatures(const options &wanted, gpu_list &gpus)
{
    return show(wanted, gpus,
                {"temperature", "temperature_highest", "memory_temperature", "temperature_mode", "temperature_min",
                 "temperature_max", "temperature_critical"});
}

int show_fan(const options &wanted, gpu_list &gpus)
{
    return show(wanted, gpus,
                {"fan_speed", "fan_speed_min", "fan_speed_max", "fan_mode", "fan_pwm", "fan_pwm_min", "fan_pwm_max"});
}

int show_power(const options &wanted, gpu_list &gpus)
{
    return show(wanted, gpus, {"power", "power_total", "voltage", "current"});
}

int show_clocks(const options &wanted, gpu_list &gpus)
{
    return show(wanted, gpus,
                {"gfx_clock_mhz", "gfx_clock_max_mhz", "memory_clock_mhz", "acpu_clock_mhz", "cmcu_clock_mhz",
                 "ndf_clock_mhz"});
}

int show_thermal_limits(const options &wanted, gpu_list &gpus)
{
    return show(wanted, gpus,
                {"thermal_slowdown", "thermal_shutdown", "thermal_slowdown_enabled", "thermal_shutdown_enabled"});
}

int show_dvfs(const options &wanted, gpu_list &gpus)
{
    return show(wanted, gpus, {"dvfs_enabled"});
}

int show_pcie(const options &wanted, gpu_list &gpus)
{
    return show(wanted, gpus,
                {"pcie_link", "pcie_speed_gts", "pcie_speed_max_gts", "pcie_generation", "pcie_generation_max",
                 "pcie_width", "pcie_width_max", "pcie_corrected_first_digit", "pcie_nonfatal_first_digit",
                 "pcie_fatal_first_digit", "pcie_event", "pcie_event_flags", "pcie_memory_bar"});
}
