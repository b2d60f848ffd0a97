// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "gpu.h"
#include "value.h"

#include <cstdint>
#include <string>
#include <type_traits>

// What the library hands out as values. Many of its getters report success with a 0 where there is nothing, so the node
// behind one is looked at too.
namespace readings::library {

// Why the library did not give what it was asked for. NODE is the one that it would have read.
missing refusal(vekml_return_t result, std::string node = {});
// What a look at NODE says of a value that the library could not give.
missing looked_at(const std::string &node, missing otherwise);
inline value driver_only()
{
    return missing{reason::driverless};
}

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
value nonzero(Number n, const std::string &node = {})
{
    return n == 0 ? value(missing{reason::malformed, 0, node}) : number(n);
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
value looked_up(gpu &g, vekml_return_t (*getter)(vekml_device_t, std::uint32_t *));

value text_or(const value &text, const std::string &node);
value got_text(gpu &g, vekml_return_t (*getter)(vekml_device_t, char *), const std::string &node);

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

} // namespace readings::library
