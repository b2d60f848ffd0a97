// SPDX-License-Identifier: Apache-2.0
#include "read_field.h"

#include "identity.h"
#include "library_value.h"
#include "memory_use.h"
#include "node.h"
#include "pci_link.h"
#include "sensors.h"

namespace readings {
namespace {

value load_of(gpu &g, std::uint32_t vekml_util_info_t::*member)
{
    return library::made_of(g, &gpu::load, "device/gpu_util_info", [&](const auto &load, const auto &node) -> value {
        const std::uint32_t percent = load.*member;
        return percent <= 100 ? library::number(percent) : missing{reason::malformed, 0, node};
    });
}

// A counter that was reset makes a rate that no engine has.
value video_rate(gpu &g, std::size_t which)
{
    constexpr std::uint32_t fastest = 10'000'000;
    if (g.driverless())
        return library::driver_only();
    const std::string node = "/sys/kernel/debug/vpu/xmem";
    const auto &rates = g.video_load();
    if (!rates)
        return library::refusal(rates.result, node);
    const std::uint32_t rate = rates.record[which];
    return rate <= fastest ? library::number(rate) : value(missing{reason::malformed, 0, node});
}

value display(gpu &g)
{
    if (g.driverless())
        return library::driver_only();
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
    return result == VEKML_SUCCESS ? value(connected == 1) : value(library::refusal(result));
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
