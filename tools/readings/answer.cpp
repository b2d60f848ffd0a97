// SPDX-License-Identifier: Apache-2.0
#include "answer.h"

#include <ctime>
#include <fmt/format.h>

namespace readings {
namespace {

std::tm local_time(std::chrono::system_clock::time_point at)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
    std::tm local{};
    localtime_r(&seconds, &local);
    return local;
}

} // namespace

const char *name_of(gpu_state state)
{
    constexpr const char *names[] = {"ok", "asleep", "stuck", "crashed", "lost"};
    return names[static_cast<std::size_t>(state)];
}

bool is_sick(gpu_state state)
{
    return state != gpu_state::ok && state != gpu_state::asleep;
}

reason reason_of(gpu_state state)
{
    constexpr reason reasons[] = {reason::failed, reason::asleep, reason::stuck, reason::crashed, reason::lost};
    return reasons[static_cast<std::size_t>(state)];
}

std::string time_of_day(std::chrono::system_clock::time_point at)
{
    const std::tm local = local_time(at);
    return fmt::format("{:02}:{:02}:{:02}", local.tm_hour, local.tm_min, local.tm_sec);
}

std::string what_became_of(gpu_state state, std::chrono::system_clock::time_point since, const std::string &detail,
                           std::chrono::system_clock::time_point now)
{
    std::string text = name_of(state);
    if (since != std::chrono::system_clock::time_point()) {
        const bool is_old = now - since > std::chrono::hours(20);
        const std::tm local = local_time(since);
        text += " since ";
        if (is_old)
            text += fmt::format("{}-{:02}-{:02} ", 1900 + local.tm_year, local.tm_mon + 1, local.tm_mday);
        text += time_of_day(since);
    }
    return detail.empty() ? text : text + ": " + printable(detail);
}

} // namespace readings
