// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "gpu.h"
#include "library_value.h"
#include "value.h"

// What a GPU is, and what it is made of.
namespace readings::identity {

constexpr const char *facts_node = "device/gpu_static_info";

value model(gpu &g);
value name(gpu &g);
value chip_type(gpu &g);
value board_vendor(gpu &g);
value video_capability(gpu &g, bool decoder);
value fill_rate(gpu &g, vekml_return_t (*getter)(vekml_device_t, float *));
value memory_type(gpu &g);
value memory_devices(gpu &g);
value memory_speed(gpu &g);
value memory_size(gpu &g);

template <typename Number>
value fact(gpu &g, Number vekml_device_query_t::*member)
{
    if (g.driverless())
        return library::driver_only();
    const std::string node = g.card_node(facts_node);
    const vekml_device_query_t *facts = g.facts();
    return facts == nullptr ? value(library::looked_at(node, {reason::failed}))
                            : library::nonzero(facts->*member, node);
}

template <std::size_t Size>
value fact_text(gpu &g, char (vekml_device_query_t::*member)[Size])
{
    const vekml_device_query_t *facts = g.facts();
    if (facts == nullptr && g.driverless())
        return missing{reason::denied};
    return facts == nullptr ? value(library::looked_at(g.card_node(facts_node), {reason::failed}))
                            : text_value(facts->*member);
}

template <std::size_t Size>
value fact_text_or(gpu &g, char (vekml_device_query_t::*member)[Size], vekml_return_t (*getter)(vekml_device_t, char *),
                   const char *node)
{
    const value known = fact_text(g, member);
    return is_present(known) || g.driverless() ? known : library::got_text(g, getter, g.hwmon_node(node));
}

template <std::size_t Size>
value driver_version(gpu &g, char (vekml_driver_version_t::*member)[Size])
{
    return library::made_of(g, &gpu::driver_version, "version", [&](const auto &version, const auto &node) {
        return library::text_or(text_value(version.*member), node);
    });
}

} // namespace readings::identity
