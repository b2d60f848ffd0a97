// SPDX-License-Identifier: Apache-2.0
#include "pci_address.h"

#include <algorithm>
#include <charconv>

namespace readings {
namespace {

// Takes up to MOST digits and what ends them off TEXT.
bool take(std::string_view &text, std::size_t most, std::string_view end, unsigned &number)
{
    const std::string_view digits = text.substr(0, std::min(text.find_first_not_of("0123456789abcdefABCDEF"), most));
    std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    text.remove_prefix(digits.size());
    if (digits.empty() || !text.starts_with(end))
        return false;
    text.remove_prefix(end.size());
    return true;
}

bool has_domain(std::string_view text)
{
    return std::count(text.begin(), text.end(), ':') == 2;
}

} // namespace

std::optional<pci_address> pci_address_from(std::string_view text)
{
    pci_address found;
    const bool fits = (!has_domain(text) || take(text, 8, ":", found.domain)) && take(text, 2, ":", found.bus) &&
                      take(text, 2, ".", found.device) && take(text, 1, "", found.function) && text.empty();
    return fits ? std::optional(found) : std::nullopt;
}

bool is_bus_id(std::string_view text)
{
    return has_domain(text) && pci_address_from(text).has_value();
}

} // namespace readings
