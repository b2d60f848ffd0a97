// SPDX-License-Identifier: Apache-2.0
// The commands that show chosen fields and nothing else.
#include "output.h"
#include "session.h"

namespace {

int show_fields(const options &wanted, session &gpus, const field_list &fields)
{
    const answers said = gpus.ask({.fields = fields});
    print_readings(wanted, fields, said);
    return status_of(said);
}

// Of a table, the heading says the index.
int show_usual(const options &wanted, session &gpus, field_list fields)
{
    if (wanted.shape == format::table)
        std::erase(fields, &field_of("index"));
    if (wanted.shape == format::table && !wanted.out_of_band)
        std::erase(fields, &firmware_field);
    return show_fields(wanted, gpus, fields);
}

template <key_text... Keys>
int show(const options &wanted, session &gpus)
{
    return show_usual(wanted, gpus, pick<"index", "model", "bus_id", Keys...>());
}

} // namespace

const field_list &query_fields()
{
    static const field_list fields =
        pick<"index", "model", "bus_id", "temperature", "temperature_highest", "fan_speed", "power", "power_total",
             "voltage", "current", "gfx_clock_mhz", "memory_clock_mhz", "cmcu_clock_mhz", "gpu_util_percent",
             "tdm_util_percent", "geom_util_percent", "3d_util_percent", "cdm_util_percent", "memory_used",
             "memory_total", "memory_util_percent", "process_count", "pcie_speed_gts", "pcie_width",
             "display_connected">();
    return fields;
}

int list_gpus(const options &wanted, session &gpus)
{
    const field_list fields = pick<"index", "card", "model", "name", "bus_id", "uuid", "state">();
    const answers said = gpus.ask_any({.fields = fields});
    if (wanted.shape != format::table) {
        print_readings(wanted, fields, said);
        return status_of(said);
    }
    if (said.empty()) {
        print("No GPU found{}.\n", hint_without_gpu(wanted));
        return exit_done;
    }
    using enum table::align;
    table rows({{"INDEX", right},
                {"CARD", right},
                {"MODEL", left},
                {"NAME", left},
                {"BUS ID", whole},
                {"UUID", whole},
                {"STATE", whole}});
    for (const answer &gpu : said) {
        std::vector<std::string> row;
        for (const field *f : fields)
            row.push_back(shown(gpu, *f));
        rows.add(row);
    }
    if (output_width() < 80)
        rows.leave_out("CARD");
    rows.print();
    return status_of(said);
}

int show_info(const options &wanted, session &gpus)
{
    return show<"card", "name", "uuid", "vendor", "device_id", "vendor_id", "subsystem_device_id",
                "subsystem_vendor_id", "chip_type", "chip_process_nm", "card_type", "cores", "firmware_version",
                "vbios_version", "driver_ddk", "driver_kmd", "driver_umd", "primary_id", "primary_core_id",
                "memory_type", "memory_vendor", "memory_devices", "memory_size", "firmware_memory_size_mib",
                "memory_speed", "memory_width_bits", "gfx_clock_max_mhz", "gfx_clock_default",
                "texture_fill_rate_gtexels", "pixel_fill_rate_gpixels", "video_decoding", "video_encoding",
                "pcie_speed_max_gts", "pcie_width_max", "pcie_generation_max", "pcie_memory_bar", "display_connected">(
        wanted, gpus);
}

int query(const options &wanted, session &gpus)
{
    return wanted.fields.empty() ? show_usual(wanted, gpus, query_fields()) : show_fields(wanted, gpus, wanted.fields);
}

int help_fields(const options &wanted)
{
    if (wanted.shape == format::json) {
        json list = json::array();
        for (const field &f : all_fields) {
            const char *symbol = facts_of(f.in).symbol;
            list.push_back({{"field", f.key}, {"unit", *symbol == '\0' ? json() : json(symbol)}, {"help", f.help}});
        }
        put(json_text({{"schema", 2}, {"fields", list}}) + "\n");
        return exit_done;
    }
    if (wanted.shape == format::csv) {
        put("field,unit,help\n");
        for (const field &f : all_fields)
            put(csv_row({f.key, facts_of(f.in).symbol, f.help}));
        return exit_done;
    }
    using enum table::align;
    table rows({{"FIELD", left}, {"UNIT", left}, {"WHAT IT IS", left}});
    rows.wrap_last();
    for (const field &f : all_fields)
        rows.add({f.key, facts_of(f.in).symbol, f.help});
    rows.print();
    return exit_done;
}

int show_temperatures(const options &wanted, session &gpus)
{
    return show<"temperature", "temperature_highest", "memory_temperature", "temperature_mode", "temperature_min",
                "temperature_max", "temperature_critical">(wanted, gpus);
}

int show_fan(const options &wanted, session &gpus)
{
    return show<"fan_speed", "fan_speed_min", "fan_speed_max", "fan_mode", "fan_pwm", "fan_pwm_min", "fan_pwm_max">(
        wanted, gpus);
}

int show_power(const options &wanted, session &gpus)
{
    return show<"power", "power_total", "power_cap", "voltage", "current">(wanted, gpus);
}

int show_clocks(const options &wanted, session &gpus)
{
    return show<"gfx_clock_mhz", "gfx_clock_max_mhz", "memory_clock_mhz", "acpu_clock_mhz", "cmcu_clock_mhz",
                "ndf_clock_mhz">(wanted, gpus);
}

int show_thermal_limits(const options &wanted, session &gpus)
{
    return show<"thermal_slowdown", "thermal_shutdown", "thermal_slowdown_enabled", "thermal_shutdown_enabled">(wanted,
                                                                                                                gpus);
}

int show_dvfs(const options &wanted, session &gpus)
{
    return show<"dvfs_enabled">(wanted, gpus);
}

int show_pcie(const options &wanted, session &gpus)
{
    return show<"pcie_link", "pcie_speed_gts", "pcie_speed_max_gts", "pcie_generation", "pcie_generation_max",
                "pcie_width", "pcie_width_max", "pcie_corrected_errors", "pcie_nonfatal_errors", "pcie_fatal_errors",
                "pcie_event", "pcie_event_flags", "pcie_memory_bar", "power_state">(wanted, gpus);
}

field_list parse_fields(std::string_view keys)
{
    field_list list;
    for (std::size_t start = 0; start <= keys.size();) {
        const std::size_t comma = std::min(keys.find(',', start), keys.size());
        const std::string_view key = keys.substr(start, comma - start);
        const field *found = find_field(key);
        if (found == nullptr)
            throw usage_error(fmt::format("unknown field \"{}\"; query --help-fields lists them", printable(key)));
        list.push_back(found);
        start = comma + 1;
    }
    return list;
}
