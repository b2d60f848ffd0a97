// SPDX-License-Identifier: Apache-2.0
// The driver's requests on a card node.
#pragma once

#include <cstddef>

namespace veksim {

struct card_request {
    unsigned number; // of the ioctl
    unsigned selector;
    std::size_t reply_size; // at most
};

constexpr card_request first_static_request{0xC010644B, 0, 120};
constexpr card_request second_static_request{0xC010644C, 3, 120};
constexpr card_request utilisation_request{0xC010644C, 2, 336};
constexpr card_request process_request{0xC010644C, 1, 100000};

constexpr card_request card_requests[] = {first_static_request, second_static_request, utilisation_request,
                                          process_request};

} // namespace veksim
