// SPDX-License-Identifier: Apache-2.0
#include "fields.h"

#include "frame.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <type_traits>

namespace {

template <typename Number>
value number(Number n)
{
    if constexpr (std::is_signed_v<Number>)
        return static_cast<std::int64_t>(n);
    else
        return static_cast<std::uint64_t>(n);
}

// For facts of which none is ever 0.
template <typename Number>
value nonzero(Number n)
{
    return n == 0 ? value{} : number(n);
}

template <std::size_t Size>
value field_text(const char (&text)[Size])
{
    return text_value({text, std::find(text, text + Size, '\0')});
}

value hexadecimal(gpu &g, std::uint64_t id, const char *node)
{
    if (id == 0 && !g.driverless() && !g.card_answers(node))
        return {};
    return fmt::format("0x{:04x}", id);
}

// A sensor: a node that answers, or a word of the firmware block other than all ones, as a window that went away reads.
value sensor(gpu &g, bool supported, const char *node, std::int64_t present)
{
    if (!supported)
        return {};
    if (g.driverless())
        return g.mapped() && present != -1 && present != 0xffff ? number(present) : value{};
    return g.answers(node) ? number(present) : value{};
}

value driver_number(gpu &g, const char *node, std::int64_t present)
{
    return !g.driverless() && g.answers(node) ? number(present) : value{};
}

value clock_mhz(gpu &g, const char *node, std::int32_t present)
{
    return g.driverless() ? nonzero(present) : driver_number(g, node, present);
}

// A number that a getter stores and vouches for.
template <typename Number>
value got(gpu &g, vekml_return_t (*getter)(vekml_device_t, Number *))
{
    Number n{};
    return !g.driverless() && getter(g.handle(), &n) == VEKML_SUCCESS ? nonzero(n) : value{};
}

// Likewise from the identity tables, which need no driver.
value looked_up(gpu &g, vekml_return_t (*getter)(vekml_device_t, std::uint32_t *))
{
    std::uint32_t n = 0;
    return getter(g.handle(), &n) == VEKML_SUCCESS ? nonzero(n) : value{};
}

value got_text(gpu &g, vekml_return_t (*getter)(vekml_device_t, char *))
{
    char text[64] = {};
    return !g.driverless() && getter(g.handle(), text) == VEKML_SUCCESS ? field_text(text) : value{};
}

// A number that a getter stores whether or not its node answers.
value unvouched(gpu &g, const char *node, vekml_return_t (*getter)(vekml_device_t, std::uint32_t *))
{
    std::uint32_t n = 0;
    return !g.driverless() && g.answers(node) && getter(g.handle(), &n) == VEKML_SUCCESS ? number(n) : value{};
}

template <std::size_t Size>
value fact_text(gpu &g, char (vekml_device_query_t::*member)[Size])
{
    const vekml_device_query_t *facts = g.facts();
    return facts == nullptr ? value{} : field_text(facts->*member);
}

template <typename Number>
value fact(gpu &g, Number vekml_device_query_t::*member)
{
    const vekml_device_query_t *facts = g.driverless() ? nullptr : g.facts();
    return facts == nullptr ? value{} : nonzero(facts->*member);
}

template <std::size_t Size>
value fact_text_or(gpu &g, char (vekml_device_query_t::*member)[Size], vekml_return_t (*getter)(vekml_device_t, char *))
{
    const value known = fact_text(g, member);
    return is_present(known) ? known : got_text(g, getter);
}

value aer_digit(gpu &g, vekml_return_t (*getter)(const char *, char *))
{
    char digit[8] = {};
    if (g.driverless() || getter(g.handle()->card_path, digit) != VEKML_SUCCESS || *digit < '0' || *digit > '9')
        return {};
    return number(*digit - '0');
}

value percent_of(gpu &g, std::uint32_t vekml_util_info_t::*member)
{
    return g.load() ? number((*g.load()).*member) : value{};
}

value memory_of(gpu &g, std::uint64_t vekml_mem_info_t::*member)
{
    return g.memory() ? number((*g.memory()).*member) : value{};
}

value memory_errors_of(gpu &g, std::uint32_t (vekml_gddr_crc_t::*member)[4])
{
    const auto &errors = g.memory_errors();
    if (!errors || errors->crc_support != 1)
        return {};
    const auto &counts = (*errors).*member;
    return std::vector<std::uint64_t>(std::begin(counts), std::end(counts));
}

value limit_of(gpu &g, thm_type type)
{
    const auto limit = g.thermal_limit(type);
    return limit ? number(*limit) : value{};
}

template <std::size_t Size>
value version_of(gpu &g, char (vekml_driver_version_t::*member)[Size])
{
    return g.driver_version() ? field_text((*g.driver_version()).*member) : value{};
}

value video_of(gpu &g, std::size_t which)
{
    return g.video_load() ? number((*g.video_load())[which]) : value{};
}

value pcie_event(gpu &g, bool flags)
{
    vekml_pcie_event_t event{};
    if (g.driverless() || !g.answers("vek_pcie_event") ||
        vekml_device_get_pcie_event(g.handle(), &event) != VEKML_SUCCESS)
        return {};
    if (flags)
        return std::vector<std::uint64_t>(std::begin(event.flags), std::end(event.flags));
    return number(event.event);
}

value model(gpu &g)
{
    char text[64] = {};
    vekml_device_get_device_model(g.handle(), text, sizeof text);
    return field_text(text);
}

value name(gpu &g)
{
    char text[64] = {};
    vekml_device_get_name(g.handle(), text, sizeof text);
    return field_text(text);
}

value bus_id(gpu &g)
{
    vekml_pci_info_t pci{};
    vekml_device_get_pci_info(g.handle(), &pci);
    return field_text(pci.busId);
}

value chip_type(gpu &g)
{
    value known = g.driverless() ? value{} : fact_text(g, &vekml_device_query_t::asic_type);
    std::uint32_t type = VEKML_ASIC_TYPES;
    if (is_present(known) || g.driverless() || vekml_device_get_asic_type(g.handle(), &type) != VEKML_SUCCESS ||
        type >= VEKML_ASIC_TYPES)
        return known;
    return text_value(asic_types[type]);
}

value board_vendor(gpu &g)
{
    return g.driverless() ? field_text(g.handle()->vendor_name)
                          : fact_text_or(g, &vekml_device_query_t::vendor, vekml_device_get_vendor);
}

value video_capability(gpu &g, bool decoder)
{
    char texts[2][16] = {};
    if (vekml_device_get_video_decoder_encoder(g.handle(), texts[0], texts[1]) != VEKML_SUCCESS)
        return {};
    return field_text(texts[decoder ? 0 : 1]);
}

value fill_rate(gpu &g, vekml_return_t (*getter)(vekml_device_t, float *))
{
    float rate = 0;
    if (g.driverless() || getter(g.handle(), &rate) != VEKML_SUCCESS)
        return {};
    return static_cast<double>(rate);
}

value memory_type(gpu &g)
{
    char text[8] = {};
    vekml_device_get_gddr_type(g.handle(), text, sizeof text);
    return field_text(text);
}

value memory_speed(gpu &g)
{
    const value known = fact(g, &vekml_device_query_t::gddr_speed);
    return is_present(known) ? known : got(g, vekml_device_get_gddr_speed);
}

value memory_size(gpu &g)
{
    const value known = fact(g, &vekml_device_query_t::gddr_size);
    return is_present(known) ? known : got(g, vekml_device_get_gddr_size);
}

value memory_used_percent(gpu &g)
{
    const auto &memory = g.memory();
    if (!memory || memory->fb_used > memory->fb_total)
        return {};
    const double share = static_cast<double>(memory->fb_used) / static_cast<double>(memory->fb_total);
    return number(static_cast<std::uint64_t>(std::llround(share * 100)));
}

value dvfs(gpu &g)
{
    const auto enabled = g.dvfs();
    return enabled ? number(*enabled) : value{};
}

value display(gpu &g)
{
    const bool listed = g.card_reads("card0-HDMI-A-1/status") || g.card_reads("card0-DP-1/status");
    std::uint32_t connected = 0;
    if (g.driverless() || !listed || vekml_device_get_display_status(g.handle(), &connected) != VEKML_SUCCESS)
        return {};
    return connected == 1;
}

value fan_mode(gpu &g)
{
    return g.has_fan() ? unvouched(g, "fan1_ctrl_mode", vekml_device_get_fan_ctrl_mode) : value{};
}

value fan_bound(gpu &g, bool highest)
{
    std::uint32_t bounds[2] = {};
    vekml_device_get_min_max_fan_speed(g.handle(), &bounds[0], &bounds[1]);
    return g.has_fan() ? driver_number(g, highest ? "fan1_max" : "fan1_min", bounds[highest ? 1 : 0]) : value{};
}

// In the order in which they are shown. One row gives a field to every command and format.
constexpr field fields[] = {
    {"index", "", "position in the device table", [](gpu &g) { return number(g.index()); }},
    {"card", "", "DRM card number", [](gpu &g) { return g.driverless() ? value{} : number(g.handle()->card_index); }},
    {"model", "", "model name", model},
    {"name", "", "product name", name},
    {"bus_id", "", "PCI address", bus_id},
    {"uuid", "", "UUID (chip id)", [](gpu &g) { return got_text(g, vekml_device_get_uuid); }},
    {"vendor", "", "board vendor", board_vendor},
    {"device_id", "", "PCI device id", [](gpu &g) { return hexadecimal(g, g.handle()->device_id, "device/device"); }},
    {"vendor_id", "", "PCI vendor id", [](gpu &g) { return hexadecimal(g, g.handle()->vendor_id, "device/vendor"); }},
    {"subsystem_device_id", "", "PCI subsystem device id",
     [](gpu &g) { return hexadecimal(g, g.handle()->subsystem_device_id, "device/subsystem_device"); }},
    {"subsystem_vendor_id", "", "PCI subsystem vendor id",
     [](gpu &g) { return hexadecimal(g, g.handle()->subsystem_vendor_id, "device/subsystem_vendor"); }},
    {"chip_type", "", "chip type", chip_type},
    {"chip_process_nm", "nm", "chip process, nanometres",
     [](gpu &g) { return looked_up(g, vekml_device_get_chip_process); }},
    {"card_type", "", "display or compute card",
     [](gpu &g) { return g.driverless() ? value{} : fact_text(g, &vekml_device_query_t::card_type); }},
    {"cores", "", "number of GPU cores", [](gpu &g) { return got(g, vekml_device_get_num_gpu_cores); }},
    {"firmware_version", "", "firmware version",
     [](gpu &g) { return fact_text_or(g, &vekml_device_query_t::fw_ver, vekml_device_get_fw_ver); }},
    {"vbios_version", "", "VBIOS version",
     [](gpu &g) { return fact_text_or(g, &vekml_device_query_t::vbios_version, vekml_device_get_vbios_version); }},
    {"driver_ddk", "", "driver development kit version",
     [](gpu &g) { return version_of(g, &vekml_driver_version_t::ddk); }},
    {"driver_kmd", "", "kernel-mode driver version",
     [](gpu &g) { return version_of(g, &vekml_driver_version_t::kmd); }},
    {"driver_umd", "", "user-mode driver version", [](gpu &g) { return version_of(g, &vekml_driver_version_t::umd); }},
    {"primary_id", "", "primary id", [](gpu &g) { return got_text(g, vekml_device_get_primary_id); }},
    {"primary_core_id", "", "primary core id", [](gpu &g) { return got_text(g, vekml_device_get_primary_core_id); }},
    {"memory_type", "", "memory type", memory_type},
    {"memory_vendor", "", "memory maker", [](gpu &g) { return got_text(g, vekml_device_get_gddr_vendor); }},
    {"memory_devices", "", "number of memory devices",
     [](gpu &g) {
         return g.answers("vek_gddr_count") ? got(g, vekml_device_get_gddr_count)
                                            : fact(g, &vekml_device_query_t::gddr_count);
     }},
    {"memory_size", "", "memory size, driver's unit", memory_size},
    {"firmware_memory_size_mib", "MiB", "memory size by the firmware, MiB; out of band only",
     [](gpu &g) { return g.driverless() ? nonzero(g.handle()->fb_total) : value{}; }},
    {"memory_speed", "", "memory speed, driver's unit", memory_speed},
    {"memory_width_bits", "bits", "memory bus width, bits",
     [](gpu &g) { return looked_up(g, vekml_device_get_gddr_width); }},
    {"gfx_clock_max_mhz", "MHz", "highest graphics clock of the model, MHz",
     [](gpu &g) { return looked_up(g, vekml_device_get_gfx_clock_max); }},
    {"gfx_clock_default", "", "default GPU clock, driver's unit",
     [](gpu &g) { return fact(g, &vekml_device_query_t::gpu_default_freq); }},
    {"texture_fill_rate_gtexels", "Gtexel/s", "texture fill rate, gigatexels per second",
     [](gpu &g) { return fill_rate(g, vekml_device_get_texture_fill_rate); }},
    {"pixel_fill_rate_gpixels", "Gpixel/s", "pixel fill rate, gigapixels per second",
     [](gpu &g) { return fill_rate(g, vekml_device_get_pixel_fill_rate); }},
    {"video_decoding", "", "video decoding capability of the model", [](gpu &g) { return video_capability(g, true); }},
    {"video_encoding", "", "video encoding capability of the model", [](gpu &g) { return video_capability(g, false); }},
    {"pcie_speed_gts", "GT/s", "PCIe link speed at start, GT/s",
     [](gpu &g) { return nonzero(g.handle()->curr_link_speed); }},
    {"pcie_speed_max_gts", "GT/s", "highest PCIe link speed, GT/s",
     [](gpu &g) { return nonzero(g.handle()->max_link_speed); }},
    {"pcie_width", "lanes", "PCIe link width at start, lanes",
     [](gpu &g) { return nonzero(g.handle()->curr_link_width); }},
    {"pcie_width_max", "lanes", "highest PCIe link width, lanes",
     [](gpu &g) { return nonzero(g.handle()->max_link_width); }},
    {"pcie_generation", "", "PCIe generation of the link speed",
     [](gpu &g) { return nonzero(g.handle()->curr_link_generation); }},
    {"pcie_generation_max", "", "highest PCIe generation",
     [](gpu &g) { return nonzero(g.handle()->max_link_generation); }},
    {"pcie_link", "", "present PCIe link speed as the kernel words it",
     [](gpu &g) { return got_text(g, vekml_device_get_pcie_throughput); }},
    {"pcie_memory_bar", "", "type of the memory BAR",
     [](gpu &g) { return got_text(g, vekml_device_get_pcie_mmbar_type); }},
    {"pcie_corrected_first_digit", "", "corrected PCIe errors: first digit of the total",
     [](gpu &g) { return aer_digit(g, vekml_device_get_pcie_err_corr); }},
    {"pcie_nonfatal_first_digit", "", "non-fatal PCIe errors: first digit of the total",
     [](gpu &g) { return aer_digit(g, vekml_device_get_pcie_err_nonfatal); }},
    {"pcie_fatal_first_digit", "", "fatal PCIe errors: first digit of the total",
     [](gpu &g) { return aer_digit(g, vekml_device_get_pcie_err_fatal); }},
    {"pcie_event", "", "PCIe event word", [](gpu &g) { return pcie_event(g, false); }},
    {"pcie_event_flags", "", "bits 0 to 5 of the PCIe event word", [](gpu &g) { return pcie_event(g, true); }},
    {"display_connected", "", "whether a monitor is connected", display},
    {"temperature", "", "GPU temperature, driver's unit",
     [](gpu &g) { return sensor(g, g.has_temperature(), "temp1_input", g.temperatures().temp_input); }},
    {"temperature_highest", "", "highest GPU temperature, driver's unit",
     [](gpu &g) {
         return g.has_temperature() ? driver_number(g, "temp1_highest", g.temperatures().temp_highest) : value{};
     }},
    {"memory_temperature", "", "memory temperature, driver's unit",
     [](gpu &g) {
         return sensor(g, g.has_temperature(), "vek_gddr_temp",
                       g.driverless() ? g.temperatures().gddr_temp : g.temperature_limits().gddr_temp);
     }},
    {"temperature_mode", "", "temperature control mode",
     [](gpu &g) { return driver_number(g, "temp1_ctrl_mode", g.temperatures().ctrl_mode); }},
    {"temperature_min", "", "lower temperature limit, driver's unit",
     [](gpu &g) { return driver_number(g, "temp1_min", g.temperature_limits().temp_min); }},
    {"temperature_max", "", "upper temperature limit, driver's unit",
     [](gpu &g) { return driver_number(g, "temp1_max", g.temperature_limits().temp_max); }},
    {"temperature_critical", "", "critical temperature limit, driver's unit",
     [](gpu &g) { return driver_number(g, "temp1_crit", g.temperature_limits().temp_crit); }},
    {"thermal_slowdown", "", "temperature that slows the GPU down, driver's unit",
     [](gpu &g) { return limit_of(g, temp_slowdown_type); }},
    {"thermal_shutdown", "", "temperature that shuts the GPU down, driver's unit",
     [](gpu &g) { return limit_of(g, temp_shutdown_type); }},
    {"thermal_slowdown_enabled", "", "slowdown protection, driver's switch",
     [](gpu &g) { return limit_of(g, enable_thm_slowdown_type); }},
    {"thermal_shutdown_enabled", "", "shutdown protection, driver's switch",
     [](gpu &g) { return limit_of(g, enable_thm_shutdown_type); }},
    {"dvfs_enabled", "", "DVFS, driver's switch", [](gpu &g) { return dvfs(g); }},
    {"fan_speed", "", "fan speed, driver's unit",
     [](gpu &g) { return sensor(g, g.has_fan(), "fan1_input", static_cast<std::int32_t>(g.fan_speed())); }},
    {"fan_speed_min", "", "lowest fan speed, driver's unit", [](gpu &g) { return fan_bound(g, false); }},
    {"fan_speed_max", "", "highest fan speed, driver's unit", [](gpu &g) { return fan_bound(g, true); }},
    {"fan_mode", "", "fan control mode: 0 firmware, 1 host", fan_mode},
    {"fan_pwm", "", "fan PWM value, driver's unit",
     [](gpu &g) { return unvouched(g, "pwm1", vekml_device_get_fan_pwm); }},
    {"fan_pwm_min", "", "lowest fan PWM value, driver's unit",
     [](gpu &g) { return unvouched(g, "pwm1_min", vekml_device_get_pwm_min); }},
    {"fan_pwm_max", "", "highest fan PWM value, driver's unit",
     [](gpu &g) { return unvouched(g, "pwm1_max", vekml_device_get_pwm_max); }},
    {"power", "", "average power, driver's unit",
     [](gpu &g) { return sensor(g, g.has_power(), "power1_average", g.power().power_average); }},
    {"power_total", "", "total board power, 1000 times the driver's number",
     [](gpu &g) { return sensor(g, g.has_power(), "vek_total_power", g.power().total_power); }},
    {"voltage", "", "core voltage, driver's unit",
     [](gpu &g) { return sensor(g, g.has_power(), "in0_input", g.power().voltage); }},
    {"current", "", "current, driver's unit",
     [](gpu &g) { return sensor(g, g.has_power(), "curr1_input", g.power().current); }},
    {"gfx_clock_mhz", "MHz", "graphics clock, MHz",
     [](gpu &g) { return clock_mhz(g, "vek_gfx_freq_mhz", g.clocks().gfx_clk); }},
    {"memory_clock_mhz", "MHz", "memory clock, MHz",
     [](gpu &g) { return clock_mhz(g, "vek_gddr_phys_freq_mhz", g.clocks().gddr_phys_clk); }},
    {"cmcu_clock_mhz", "MHz", "CMCU clock, MHz",
     [](gpu &g) { return clock_mhz(g, "vek_cmcu_freq_mhz", g.clocks().cmcu_clk); }},
    {"acpu_clock_mhz", "MHz", "ACPU clock, MHz",
     [](gpu &g) { return driver_number(g, "vek_acpu_freq_mhz", g.all_clocks().acpu_clk); }},
    {"ndf_clock_mhz", "MHz", "NDF clock, MHz",
     [](gpu &g) { return driver_number(g, "vek_ndf_freq_mhz", g.all_clocks().ndf_clk); }},
    {"gpu_util_percent", "%", "load of the whole GPU, percent",
     [](gpu &g) { return percent_of(g, &vekml_util_info_t::gpu); }},
    {"tdm_util_percent", "%", "load of the TDM data master, percent",
     [](gpu &g) { return percent_of(g, &vekml_util_info_t::tdm); }},
    {"geom_util_percent", "%", "load of the GEOM data master, percent",
     [](gpu &g) { return percent_of(g, &vekml_util_info_t::geom); }},
    {"3d_util_percent", "%", "load of the 3D data master, percent",
     [](gpu &g) { return percent_of(g, &vekml_util_info_t::thrd); }},
    {"cdm_util_percent", "%", "load of the CDM data master, percent",
     [](gpu &g) { return percent_of(g, &vekml_util_info_t::cdm); }},
    {"memory_used", "", "GPU memory in use, driver's unit",
     [](gpu &g) { return memory_of(g, &vekml_mem_info_t::fb_used); }},
    {"memory_free", "", "GPU memory free, driver's unit",
     [](gpu &g) { return memory_of(g, &vekml_mem_info_t::fb_free); }},
    {"memory_total", "", "GPU memory, driver's unit", [](gpu &g) { return memory_of(g, &vekml_mem_info_t::fb_total); }},
    {"memory_util_percent", "%", "share of the GPU memory in use, percent", memory_used_percent},
    {"system_memory_used", "", "system memory in use by the driver, driver's unit",
     [](gpu &g) { return memory_of(g, &vekml_mem_info_t::sys_used); }},
    {"system_memory_total", "", "system memory that the driver manages, driver's unit",
     [](gpu &g) { return memory_of(g, &vekml_mem_info_t::sys_total); }},
    {"process_count", "", "number of processes listed by ps",
     [](gpu &g) { return g.processes() ? number(g.processes()->process_num) : value{}; }},
    {"crc_write_errors", "", "CRC write errors, one per memory device",
     [](gpu &g) { return memory_errors_of(g, &vekml_gddr_crc_t::crc_write_cnt); }},
    {"crc_read_errors", "", "CRC read errors, one per memory device",
     [](gpu &g) { return memory_errors_of(g, &vekml_gddr_crc_t::crc_read_cnt); }},
    {"crc_write_retries", "", "CRC write retries, one per memory device",
     [](gpu &g) { return memory_errors_of(g, &vekml_gddr_crc_t::crc_write_retry_cnt); }},
    {"crc_read_retries", "", "CRC read retries, one per memory device",
     [](gpu &g) { return memory_errors_of(g, &vekml_gddr_crc_t::crc_read_retry_cnt); }},
    {"video_encoder_rate", "/s", "encoder commands executed per second", [](gpu &g) { return video_of(g, 1); }},
    {"video_encoder_reserved", "/s", "encoder commands reserved per second", [](gpu &g) { return video_of(g, 0); }},
    {"video_decoder_rate", "/s", "decoder commands executed per second", [](gpu &g) { return video_of(g, 3); }},
    {"video_decoder_reserved", "/s", "decoder commands reserved per second", [](gpu &g) { return video_of(g, 2); }},
};

const field *find_field(std::string_view key)
{
    const auto found = std::find_if(std::begin(fields), std::end(fields), [&](const field &f) { return f.key == key; });
    return found == std::end(fields) ? nullptr : found;
}

} // namespace

std::span<const field> all_fields()
{
    return fields;
}

const field &field_of(std::string_view key)
{
    return *find_field(key);
}

field_list pick(std::initializer_list<std::string_view> keys)
{
    field_list list;
    for (const std::string_view key : keys)
        list.push_back(&field_of(key));
    return list;
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

std::string label(const field &f)
{
    std::string text = f.key;
    for (const std::string_view suffix : {"_mhz", "_percent", "_nm", "_bits", "_gts", "_mib", "_gtexels", "_gpixels"}) {
        if (text.size() > suffix.size() && std::string_view(text).substr(text.size() - suffix.size()) == suffix)
            text.resize(text.size() - suffix.size());
    }
    std::replace(text.begin(), text.end(), '_', ' ');
    return text;
}
