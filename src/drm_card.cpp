// SPDX-License-Identifier: Apache-2.0
#include "drm_card.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/ioctl.h>

namespace vekml {
namespace {

/** The argument of every information request, fixed by the driver. */
struct request_block {
    std::uint64_t reply_address;
    std::uint32_t limit;
    std::uint32_t selector;
};
static_assert(sizeof(request_block) == 16);

} // namespace

drm_card::drm_card(std::uint32_t card_index)
{
    snprintf(path_, sizeof path_, "/dev/dri/card%d", static_cast<int>(card_index));
}

bool drm_card::open()
{
    node_.reset(::open(path_, O_RDONLY | O_CLOEXEC));
    return static_cast<bool>(node_);
}

int drm_card::request(const information &what, void *reply) const
{
    request_block block{reinterpret_cast<std::uintptr_t>(reply), what.limit, what.selector};
    return ioctl(node_.get(), what.request, &block);
}

} // namespace vekml
