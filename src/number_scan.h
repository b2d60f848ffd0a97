// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstdlib>
#include <type_traits>

namespace vekml {

/** Takes decimal numbers out of a text as fscanf does: the first piece that is no number ends it for good, and what is
 *  too large for the machine's widest integer saturates there. */
class number_scan {
public:
    explicit number_scan(const char *text) : at_(text) {}

    /** Stays as it was when there is no further number. */
    template <std::integral Number>
    number_scan &operator>>(Number &value)
    {
        if (at_ == nullptr)
            return *this;
        char *end = nullptr;
        Number number;
        if constexpr (std::is_signed_v<Number>)
            number = static_cast<Number>(strtoll(at_, &end, 10));
        else
            number = static_cast<Number>(strtoull(at_, &end, 10));
        if (end != at_)
            value = number;
        at_ = end != at_ ? end : nullptr;
        return *this;
    }
    explicit operator bool() const { return at_ != nullptr; }

private:
    const char *at_;
};

} // namespace vekml
