// SPDX-License-Identifier: Apache-2.0
#include "identity.h"

#include "units.h"

#include <cmath>

namespace readings::identity {

using library::driver_only;
using library::got;
using library::looked_at;
using library::text_or;

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
    if (g.driverless())
        return *text == '\0' ? driver_only() : text_value(text);
    return text_or(text_value(text), g.card_node("vek_product_name"));
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
        return looked_at(g.card_node(facts_node),
                         result == VEKML_SUCCESS ? missing{reason::malformed} : library::refusal(result));
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

} // namespace readings::identity
