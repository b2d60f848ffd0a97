// SPDX-License-Identifier: Apache-2.0
#include "pci_link.h"

#include "library_value.h"
#include "node.h"
#include "sensors.h"

#include <charconv>
#include <cmath>
#include <fmt/format.h>

namespace readings::pci_link {
namespace {

using library::driver_only;
using library::number;

// What MAKE finds in the text of a node of the card; without the text, why.
template <typename Make>
value read_from(gpu &g, const char *node, Make make)
{
    if (g.driverless())
        return driver_only();
    const std::string path = g.card_node(node);
    const auto found = read_node(path);
    if (const auto *why = std::get_if<missing>(&found))
        return *why;
    return make(std::get<std::string>(found), path);
}

value event_word(gpu &g, vekml_pcie_event_t &event)
{
    return sensors::driver_sensor(g, true, "vek_pcie_event", quantity::fixed, [&] {
        g.note(vekml_device_get_pcie_event(g.handle(), &event));
        return event.event;
    });
}

} // namespace

value id(gpu &g, std::uint64_t known, const char *node)
{
    if (known == 0 && !g.driverless()) {
        const auto found = read_node(g.card_node(node));
        if (const auto *why = std::get_if<missing>(&found))
            return *why;
        if (!std::get<std::string>(found).starts_with("0x0"))
            return missing{reason::malformed, 0, g.card_node(node)};
    }
    return fmt::format("0x{:04x}", known);
}

// "16.0 GT/s PCIe"; a link that is down says "Unknown".
value speed(gpu &g, const char *node)
{
    return read_from(g, node, [](const std::string &text, const std::string &path) -> value {
        double gts = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), gts);
        if (error != std::errc() || !std::isfinite(gts) || gts <= 0)
            return missing{text.starts_with("Unknown") ? reason::unsupported : reason::malformed, 0, path};
        return gts == std::floor(gts) && gts < 1e6 ? number(static_cast<std::uint64_t>(gts)) : value(gts);
    });
}

value width(gpu &g, const char *node)
{
    return g.driverless() ? driver_only() : number_in(g.card_node(node), 1, 32);
}

value generation(const value &speed)
{
    double gts = 0;
    if (!as_number(speed, gts))
        return speed;
    std::uint64_t generation = 1;
    for (const double faster : {5.0, 8.0, 16.0, 32.0, 64.0})
        generation += gts >= faster ? 1 : 0;
    return generation;
}

value errors(gpu &g, const char *node, std::string_view key)
{
    return read_from(g, node, [&](const std::string &text, const std::string &path) -> value {
        const std::size_t at = text.find(key);
        std::uint64_t total = 0;
        if (at == text.npos ||
            std::from_chars(text.data() + at + key.size(), text.data() + text.size(), total).ec != std::errc())
            return missing{reason::malformed, 0, path};
        return total;
    });
}

value event(gpu &g)
{
    vekml_pcie_event_t event{};
    return event_word(g, event);
}

value event_flags(gpu &g)
{
    vekml_pcie_event_t event{};
    value word = event_word(g, event);
    if (!is_present(word))
        return word;
    return std::vector<std::uint64_t>(std::begin(event.flags), std::end(event.flags));
}

value numa_node(gpu &g)
{
    if (g.driverless())
        return driver_only();
    const std::string path = g.card_node("device/numa_node");
    value node = number_in(path, -1, std::numeric_limits<std::int32_t>::max());
    return node == value(std::int64_t{-1}) ? value(missing{reason::unsupported, 0, path}) : node;
}

value power_state(gpu &g)
{
    return read_from(g, "device/power_state", [](const std::string &text, const std::string &path) {
        return library::text_or(text_value(text), path);
    });
}

} // namespace readings::pci_link
