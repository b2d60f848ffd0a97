// SPDX-License-Identifier: Apache-2.0
#include "read_field.h"

#include "node.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <type_traits>

namespace readings {

missing refusal(vekml_return_t result, std::string node)
{
    switch (result) {
    case VEKML_ERROR_NOT_SUPPORTED:
        return {reason::unsupported, 0, std::move(node)};
    case VEKML_ERROR_NO_PERMISSION:
        return {reason::denied, 0, std::move(node)};
    case VEKML_ERROR_NOT_FOUND:
    case VEKML_ERROR_LIBRARY_NOT_FOUND:
        return {reason::absent, 0, std::move(node)};
    default:
        return {reason::failed, 0, std::move(node)};
    }
}

namespace {

template <typename Number>
value number(Number n)
{
    if constexpr (std::is_signed_v<Number>)
        return static_cast<std::int64_t>(n);
    else
        return static_cast<std::uint64_t>(n);
}

value driver_only()
{
    return missing{reason::driverless};
}

// For facts of which none is ever 0.
template <typename Number>
value nonzero(Number n, const std::string &node = {})
{
    return n == 0 ? value(missing{reason::malformed, 0, node}) : number(n);
}

// What a look at NODE says of a value that the library could not give.
missing looked_at(const std::string &node, missing otherwise)
{
    if (node.empty())
        return otherwise;
    const auto found = read_node(node);
    const auto *why = std::get_if<missing>(&found);
    if (why != nullptr && otherwise.why != reason::denied) // else there would be another source, for root
        return *why;
    otherwise.node = node;
    return otherwise;
}

value hexadecimal(gpu &g, std::uint64_t id, const char *node)
{
    if (id == 0 && !g.driverless()) {
        const auto found = read_node(g.card_node(node));
        if (const auto *why = std::get_if<missing>(&found))
            return *why;
        if (!std::get<std::string>(found).starts_with("0x0"))
            return missing{reason::malformed, 0, g.card_node(node)};
    }
    return fmt::format("0x{:04x}", id);
}

// A word of the firmware block; all ones is a window that went away.
value firmware_word(gpu &g, quantity q, std::int64_t word)
{
    if (!g.mapped())
        return missing{reason::denied};
    return word == -1 || word == 0xffff ? value(missing{reason::lost}) : present_units().scaled(q, word);
}

// Nothing but a temperature is ever below zero.
std::int64_t lowest(quantity q)
{
    return q == quantity::temperature ? std::numeric_limits<std::int32_t>::min() : 0;
}

// A sensor that the driver alone knows: the library's number counts where its node holds one.
template <typename Reader>
value driver_sensor(gpu &g, bool supported, const char *node, quantity q, Reader &&read)
{
    if (g.driverless())
        return driver_only();
    const std::string path = g.hwmon_node(node);
    missing why;
    if (lacks_number(path, why, lowest(q)) != nullptr)
        return why;
    if (!supported)
        return missing{reason::unsupported, 0, path};
    return present_units().scaled(q, std::int64_t{read()});
}

template <typename Reader>
value sensor(gpu &g, bool supported, const char *node, quantity q, Reader &&read)
{
    return g.driverless() ? firmware_word(g, q, read()) : driver_sensor(g, supported, node, q, read);
}

// A number that a getter stores and vouches for.
template <typename Number>
value got(gpu &g, vekml_return_t (*getter)(vekml_device_t, Number *), const std::string &node)
{
    if (g.driverless())
        return driver_only();
    Number n{};
    const vekml_return_t result = getter(g.handle(), &n);
    return result == VEKML_SUCCESS ? nonzero(n, node) : value(looked_at(node, refusal(result)));
}

// Likewise from the identity tables, which need no driver.
value looked_up(gpu &g, vekml_return_t (*getter)(vekml_device_t, std::uint32_t *))
{
    std::uint32_t n = 0;
    const vekml_return_t result = getter(g.handle(), &n);
    return result == VEKML_SUCCESS && n != 0 ? number(n) : value(missing{reason::absent});
}

value text_or(const value &text, const std::string &node)
{
    return is_present(text) ? text : value(looked_at(node, *why_missing(text)));
}

value got_text(gpu &g, vekml_return_t (*getter)(vekml_device_t, char *), const std::string &node)
{
    if (g.driverless())
        return driver_only();
    char text[64] = {};
    const vekml_return_t result = getter(g.handle(), text);
    return result == VEKML_SUCCESS ? text_or(text_value(text), node) : value(looked_at(node, refusal(result)));
}

template <std::size_t Size>
value fact_text(gpu &g, char (vekml_device_query_t::*member)[Size])
{
    const vekml_device_query_t *facts = g.facts();
    if (facts == nullptr && g.driverless())
        return missing{reason::denied};
    return facts == nullptr ? value(looked_at(g.card_node("device/gpu_static_info"), {reason::failed}))
                            : text_value(facts->*member);
}

template <typename Number>
value fact(gpu &g, Number vekml_device_query_t::*member)
{
    if (g.driverless())
        return driver_only();
    const std::string node = g.card_node("device/gpu_static_info");
    const vekml_device_query_t *facts = g.facts();
    return facts == nullptr ? value(looked_at(node, {reason::failed})) : nonzero(facts->*member, node);
}

template <std::size_t Size>
value fact_text_or(gpu &g, char (vekml_device_query_t::*member)[Size], vekml_return_t (*getter)(vekml_device_t, char *),
                   const char *node)
{
    const value known = fact_text(g, member);
    return is_present(known) || g.driverless() ? known : got_text(g, getter, g.hwmon_node(node));
}

// The whole sum, of which the library gives one digit.
value aer_total(gpu &g, const char *name, std::string_view key)
{
    if (g.driverless())
        return driver_only();
    const std::string path = g.card_node(name);
    const auto found = read_node(path);
    if (const auto *why = std::get_if<missing>(&found))
        return *why;
    const std::string_view text = std::get<std::string>(found);
    const std::size_t at = text.find(key);
    std::uint64_t total = 0;
    if (at == text.npos ||
        std::from_chars(text.data() + at + key.size(), text.data() + text.size(), total).ec != std::errc())
        return missing{reason::malformed, 0, path};
    return total;
}

// "16.0 GT/s PCIe"; a link that is down says "Unknown".
value link_speed(gpu &g, const char *name)
{
    if (g.driverless())
        return driver_only();
    const std::string path = g.card_node(name);
    const auto found = read_node(path);
    if (const auto *why = std::get_if<missing>(&found))
        return *why;
    const std::string &text = std::get<std::string>(found);
    double speed = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), speed);
    if (error != std::errc() || !std::isfinite(speed) || speed <= 0)
        return missing{text.starts_with("Unknown") ? reason::unsupported : reason::malformed, 0, path};
    return speed == std::floor(speed) && speed < 1e6 ? number(static_cast<std::uint64_t>(speed)) : value(speed);
}

value link_width(gpu &g, const char *name)
{
    if (g.driverless())
        return driver_only();
    const std::string path = g.card_node(name);
    missing why;
    if (lacks_number(path, why, 1, 32) != nullptr)
        return why;
    return number_in(path);
}

value link_generation(const value &speed)
{
    double gts = 0;
    if (!as_number(speed, gts))
        return speed;
    std::uint64_t generation = 1;
    for (const double faster : {5.0, 8.0, 16.0, 32.0, 64.0})
        generation += gts >= faster ? 1 : 0;
    return generation;
}

// What is made of a record that is read whole from a node of the card; without it, why.
template <typename Record, typename Make>
value made_of(gpu &g, const reading<Record> &(gpu::*read)(), const char *node, Make make)
{
    if (g.driverless())
        return driver_only();
    const reading<Record> &found = (g.*read)();
    const std::string path = g.card_node(node);
    return found ? make(found.record, path) : value(looked_at(path, refusal(found.result)));
}

value load_of(gpu &g, std::uint32_t vekml_util_info_t::*member)
{
    return made_of(g, &gpu::load, "device/gpu_util_info", [&](const auto &load, const auto &node) -> value {
        const std::uint32_t percent = load.*member;
        return percent <= 100 ? number(percent) : missing{reason::malformed, 0, node};
    });
}

constexpr const char *memory_node = "device/gpu_mem_util_info";

value memory_of(gpu &g, std::uint64_t vekml_mem_info_t::*member)
{
    return made_of(g, &gpu::memory, memory_node, [&](const auto &memory, const auto &node) -> value {
        if (memory.fb_total == 0) // a success without sizes
            return looked_at(node, {reason::malformed});
        return present_units().scaled(quantity::memory, memory.*member);
    });
}

value memory_used_percent(gpu &g)
{
    value used = memory_of(g, &vekml_mem_info_t::fb_used);
    if (!is_present(used))
        return used;
    const vekml_mem_info_t &memory = g.memory().record;
    if (memory.fb_used > memory.fb_total)
        return missing{reason::malformed, 0, g.card_node(memory_node)};
    return number(static_cast<std::uint64_t>(
        std::llround(100 * static_cast<double>(memory.fb_used) / static_cast<double>(memory.fb_total))));
}

value memory_errors_of(gpu &g, std::uint32_t (vekml_gddr_crc_t::*member)[4])
{
    return made_of(g, &gpu::memory_errors, "device/gddr_crc", [&](const auto &errors, const auto &node) -> value {
        if (errors.crc_support != 1)
            return looked_at(node, {reason::unsupported});
        const auto &counts = errors.*member;
        const auto end = std::find(std::begin(counts), std::end(counts), gpu::uncounted);
        if (end == std::begin(counts))
            return looked_at(node, {reason::malformed});
        return std::vector<std::uint64_t>(std::begin(counts), end);
    });
}

value limit_of(gpu &g, thm_type type, const char *node, quantity q)
{
    if (g.driverless())
        return driver_only();
    thermal limits{};
    g.note(vekml_device_get_thermal(g.handle(), &limits, type));
    const std::int32_t values[] = {limits.vek_temp_slowdown, limits.vek_temp_shutdown, limits.vek_enable_thm_slowdown,
                                   limits.vek_enable_thm_shutdown};
    return driver_sensor(g, true, node, q, [&] { return values[type]; });
}

template <std::size_t Size>
value version_of(gpu &g, char (vekml_driver_version_t::*member)[Size])
{
    return made_of(g, &gpu::driver_version, "version",
                   [&](const auto &version, const auto &node) { return text_or(text_value(version.*member), node); });
}

// A counter that was reset makes a rate that no engine has.
value video_of(gpu &g, std::size_t which)
{
    constexpr std::uint32_t fastest = 10'000'000;
    if (g.driverless())
        return driver_only();
    const std::string node = "/sys/kernel/debug/vpu/xmem";
    const auto &rates = g.video_load();
    if (!rates)
        return refusal(rates.result, node);
    return rates.record[which] <= fastest ? number(rates.record[which]) : value(missing{reason::malformed, 0, node});
}

value pcie_event(gpu &g, bool flags)
{
    vekml_pcie_event_t event{};
    value word = driver_sensor(g, true, "vek_pcie_event", quantity::fixed, [&] {
        g.note(vekml_device_get_pcie_event(g.handle(), &event));
        return event.event;
    });
    if (!is_present(word) || !flags)
        return word;
    return std::vector<std::uint64_t>(std::begin(event.flags), std::end(event.flags));
}

value model(gpu &g)
{
    char text[64] = {};
    vekml_device_get_device_model(g.handle(), text, sizeof text);
    return g.driverless() ? text_value(text) : text_or(text_value(text), g.hwmon_node("vek_device_model"));
}

value name(gpu &g)
{
    char text[64] = {};
    vekml_device_get_name(g.handle(), text, sizeof text);
    return g.driverless() ? text_value(text) : text_or(text_value(text), g.card_node("vek_product_name"));
}

value chip_type(gpu &g)
{
    if (g.driverless())
        return driver_only();
    value known = fact_text(g, &vekml_device_query_t::asic_type);
    std::uint32_t type = VEKML_ASIC_TYPES;
    if (is_present(known) || vekml_device_get_asic_type(g.handle(), &type) != VEKML_SUCCESS || type >= VEKML_ASIC_TYPES)
        return known;
    return text_value(std::string_view(asic_types[type]));
}

value board_vendor(gpu &g)
{
    return g.driverless() ? text_value(g.handle()->vendor_name)
                          : fact_text_or(g, &vekml_device_query_t::vendor, vekml_device_get_vendor, "vek_vendor");
}

value video_capability(gpu &g, bool decoder)
{
    char texts[2][16] = {};
    if (vekml_device_get_video_decoder_encoder(g.handle(), texts[0], texts[1]) != VEKML_SUCCESS)
        return missing{reason::absent};
    return text_value(texts[decoder ? 0 : 1]);
}

value fill_rate(gpu &g, vekml_return_t (*getter)(vekml_device_t, float *))
{
    if (g.driverless())
        return driver_only();
    float rate = 0;
    const vekml_return_t result = getter(g.handle(), &rate);
    if (result != VEKML_SUCCESS || !std::isfinite(rate) || rate <= 0)
        return looked_at(g.card_node("device/gpu_static_info"),
                         result == VEKML_SUCCESS ? missing{reason::malformed} : refusal(result));
    return std::round(static_cast<double>(rate) * 10) / 10;
}

value memory_type(gpu &g)
{
    char text[8] = {};
    vekml_device_get_gddr_type(g.handle(), text, sizeof text);
    return text_value(text);
}

value memory_devices(gpu &g)
{
    const value counted = got(g, vekml_device_get_gddr_count, g.hwmon_node("vek_gddr_count"));
    const value known = is_present(counted) ? counted : fact(g, &vekml_device_query_t::gddr_count);
    return is_present(known) ? known : counted;
}

value memory_speed(gpu &g)
{
    const value known = fact(g, &vekml_device_query_t::gddr_speed);
    return is_present(known) ? known : got(g, vekml_device_get_gddr_speed, g.hwmon_node("vek_gddr_phys_speed"));
}

value memory_size(gpu &g)
{
    value known = fact(g, &vekml_device_query_t::gddr_size);
    if (!is_present(known))
        known = got(g, vekml_device_get_gddr_size, g.hwmon_node("vek_gddr_size"));
    const auto *size = std::get_if<std::uint64_t>(&known);
    return size == nullptr ? known : present_units().scaled(quantity::memory_size, *size);
}

value dvfs(gpu &g)
{
    if (g.driverless())
        return driver_only();
    dvfs_t state{};
    const vekml_return_t result = vekml_device_get_dvfs_info(g.handle(), &state);
    g.note(result);
    missing why;
    const std::string node = g.card_node("vek_enable_dvfs");
    if (lacks_number(node, why, lowest(quantity::fixed)) != nullptr)
        return why;
    return result == VEKML_SUCCESS ? number(state.vek_enable_dvfs) : value(refusal(result, node));
}

value display(gpu &g)
{
    if (g.driverless())
        return driver_only();
    missing why;
    bool listed = false;
    for (const char *connector : {"card0-HDMI-A-1/status", "card0-DP-1/status"}) {
        const auto text = read_node(g.card_node(connector));
        if (const auto *none = std::get_if<missing>(&text))
            why = *none;
        else
            listed |= is_present(text_value(std::get<std::string>(text)));
    }
    std::uint32_t connected = 0;
    if (!listed)
        return why;
    const vekml_return_t result = vekml_device_get_display_status(g.handle(), &connected);
    return result == VEKML_SUCCESS ? value(connected == 1) : value(refusal(result));
}

value fan_speed(gpu &g)
{
    return sensor(g, g.has_fan(), "fan1_input", quantity::fan_speed,
                  [&] { return static_cast<std::int32_t>(g.fan_speed()); });
}

value fan_bound(gpu &g, bool highest)
{
    return driver_sensor(g, g.has_fan(), highest ? "fan1_max" : "fan1_min", quantity::fan_speed, [&] {
        std::uint32_t bounds[2] = {};
        vekml_device_get_min_max_fan_speed(g.handle(), &bounds[0], &bounds[1]);
        return static_cast<std::int32_t>(bounds[highest ? 1 : 0]);
    });
}

value fan_control(gpu &g, const char *node, vekml_return_t (*getter)(vekml_device_t, std::uint32_t *))
{
    return driver_sensor(g, g.has_fan(), node, quantity::fixed, [&] {
        std::uint32_t n = 0;
        getter(g.handle(), &n);
        return static_cast<std::int32_t>(n);
    });
}

// The library hands out a thousand times the driver's number in band, the firmware's own out of band.
value power_total(gpu &g)
{
    return sensor(g, g.has_power(), "vek_total_power", quantity::total_power,
                  [&] { return g.driverless() ? g.power().total_power : g.power().total_power / 1000; });
}

value power_cap(gpu &g)
{
    if (g.driverless())
        return driver_only();
    const std::string path = g.hwmon_node("power1_cap");
    missing why;
    if (lacks_number(path, why, lowest(quantity::power)) != nullptr)
        return why;
    const value cap = number_in(path);
    return is_present(cap) ? present_units().scaled(quantity::power, std::get<std::int64_t>(cap)) : cap;
}

value clock_of(gpu &g, const char *node, std::int32_t clock_info::*member)
{
    return driver_sensor(g, true, node, quantity::clock, [&] { return g.clocks().*member; });
}

value graphics_clock(gpu &g)
{
    if (!g.driverless())
        return clock_of(g, "vek_gfx_freq_mhz", &clock_info::gfx_clk);
    return g.mapped() ? nonzero(g.clocks().gfx_clk) : value(missing{reason::denied});
}

value process_count(gpu &g)
{
    if (g.driverless())
        return driver_only();
    const auto &processes = g.processes();
    g.note(processes.result);
    if (!processes)
        return looked_at(g.card_node(memory_node), refusal(processes.result));
    // A node that is there and cannot be read, or holds no list, gives an empty list as well.
    if (processes.record.process_num == 0) {
        const auto found = read_node(g.card_node(memory_node));
        const auto *why = std::get_if<missing>(&found);
        if (why != nullptr && why->why != reason::absent)
            return *why;
        if (why == nullptr && !is_present(text_value(std::get<std::string>(found))))
            return missing{reason::malformed, 0, g.card_node(memory_node)};
    }
    return number(processes.record.process_num);
}

value numa_node(gpu &g)
{
    if (g.driverless())
        return driver_only();
    const std::string path = g.card_node("device/numa_node");
    missing why;
    if (lacks_number(path, why, -1) != nullptr)
        return why;
    const value node = number_in(path);
    const auto *number = std::get_if<std::int64_t>(&node);
    return number != nullptr && *number < 0 ? value(missing{reason::unsupported, 0, path}) : node;
}

value power_state(gpu &g)
{
    if (g.driverless())
        return driver_only();
    const std::string path = g.card_node("device/power_state");
    const auto found = read_node(path);
    if (const auto *why = std::get_if<missing>(&found))
        return *why;
    return text_or(text_value(std::get<std::string>(found)), path);
}

using getter = value (*)(gpu &);
constexpr getter getters[] = {
#define VEKGPU_FIELD(key, in, exported, help, ...) __VA_ARGS__,
#include "fields.inc"
#undef VEKGPU_FIELD
};

} // namespace

value read_field(const field &wanted, gpu &g)
{
    const getter read = getters[index_of(wanted)];
    return read == nullptr ? value{} : read(g);
}

} // namespace readings
