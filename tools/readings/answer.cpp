// SPDX-License-Identifier: Apache-2.0
#include "answer.h"

namespace readings {

const char *name_of(gpu_state state)
{
    constexpr const char *names[] = {"ok", "asleep", "stuck", "crashed", "lost"};
    return names[static_cast<std::size_t>(state)];
}

reason reason_of(gpu_state state)
{
    constexpr reason reasons[] = {reason::failed, reason::asleep, reason::stuck, reason::crashed, reason::lost};
    return reasons[static_cast<std::size_t>(state)];
}

} // namespace readings
