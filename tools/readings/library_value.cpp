// SPDX-License-Identifier: Apache-2.0
#include "library_value.h"

#include "node.h"

namespace readings::library {

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

} // namespace readings::library
