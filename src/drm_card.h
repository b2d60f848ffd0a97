// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "raii.h"

#include <cstdint>

namespace vekml {

/** What the driver's information requests can be asked for. */
struct information {
    unsigned long request;
    std::uint32_t selector;
    std::uint32_t limit; /**< size word of the request */
};

inline constexpr information first_static_information{0xC010644B, 0, 0x7FFFFFFF};
inline constexpr information second_static_information{0xC010644C, 3, 0x7FFFFFFF};
inline constexpr information utilisation_counters{0xC010644C, 2, 0x7FFFFFFF};
inline constexpr information process_statistics{0xC010644C, 1, 100000};

/** The DRM device node of one card: the only place that opens it and asks the driver for information. */
class drm_card {
public:
    explicit drm_card(std::uint32_t card_index);

    const char *path() const { return path_; }
    /** Open the node read-only; errno tells the reason of a failure. */
    bool open();
    /** Ask for one kind of information; `reply` must hold what the driver writes for it. The ioctl's result. */
    int request(const information &what, void *reply) const;

private:
    char path_[256];
    unique_fd node_;
};

} // namespace vekml
