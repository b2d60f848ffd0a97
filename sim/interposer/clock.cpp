// SPDX-License-Identifier: Apache-2.0
// The clock and the pauses that a simulated host plays.
#include "clock.h"

#include "../veksim.h"
#include "libc.h"
#include "tree.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace veksim {
namespace {

constexpr std::int64_t second = 1000000;

std::atomic<std::int64_t> offset{0};
std::atomic<void (*)(void *, const char *)> pause_callback{nullptr};
std::atomic<void *> pause_context{nullptr};

struct timespec later(struct timespec now)
{
    std::int64_t moved = offset.load(std::memory_order_relaxed);
    now.tv_sec += moved / second;
    now.tv_nsec += (moved % second) * 1000;
    if (now.tv_nsec >= 1000 * second) {
        now.tv_nsec -= 1000 * second;
        ++now.tv_sec;
    } else if (now.tv_nsec < 0) {
        now.tv_nsec += 1000 * second;
        --now.tv_sec;
    }
    return now;
}

// True when the pause was played instead of waited for.
bool play_pause(const char *what, std::int64_t usec)
{
    char path[PATH_MAX];
    if (!tree_path(path, "/host/pauses"))
        return false;
    int saved = errno;
    int fd = libc::openat(AT_FDCWD, path, O_WRONLY | O_APPEND | O_NONBLOCK | O_CLOEXEC);
    errno = saved;
    if (fd < 0)
        return false;
    char line[80];
    int length = snprintf(line, sizeof line, "%s\n", what);
    libc::write(fd, line, static_cast<std::size_t>(length));
    libc::close(fd);
    offset.fetch_add(usec);
    auto *callback = pause_callback.load();
    if (callback != nullptr)
        callback(pause_context.load(), what);
    errno = saved;
    return true;
}

bool play_nanosleep(std::int64_t sec, std::int64_t nsec)
{
    char what[64];
    snprintf(what, sizeof what, "nanosleep %lld.%09lld", static_cast<long long>(sec), static_cast<long long>(nsec));
    return play_pause(what, sec * second + nsec / 1000);
}

} // namespace

void rewind_clock()
{
    offset.store(0);
}

extern "C" {

__attribute__((visibility("default"))) void veksim_advance(int64_t usec)
{
    offset.fetch_add(usec);
}

__attribute__((visibility("default"))) void veksim_on_pause(void (*callback)(void *, const char *), void *context)
{
    pause_context.store(context);
    pause_callback.store(callback);
}

int hook_gettimeofday(struct timeval *now, void *zone)
{
    int result = libc::gettimeofday(now, zone);
    if (result == 0 && now != nullptr && offset.load(std::memory_order_relaxed) != 0) {
        struct timespec moved = later({now->tv_sec, now->tv_usec * 1000});
        now->tv_sec = moved.tv_sec;
        now->tv_usec = moved.tv_nsec / 1000;
    }
    return result;
}
VEKSIM_PUBLISH(gettimeofday, hook_gettimeofday);

int hook_clock_gettime(clockid_t clock, struct timespec *now)
{
    int result = libc::clock_gettime(clock, now);
    bool wall = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
    if (result == 0 && wall && offset.load(std::memory_order_relaxed) != 0)
        *now = later(*now);
    return result;
}
VEKSIM_PUBLISH(clock_gettime, hook_clock_gettime);

time_t hook_time(time_t *now)
{
    time_t seconds = libc::time(nullptr);
    if (offset.load(std::memory_order_relaxed) != 0) {
        struct timespec precise {};
        hook_clock_gettime(CLOCK_REALTIME, &precise);
        seconds = precise.tv_sec;
    }
    if (now != nullptr)
        *now = seconds;
    return seconds;
}
VEKSIM_PUBLISH(time, hook_time);

unsigned hook_sleep(unsigned seconds)
{
    char what[32];
    snprintf(what, sizeof what, "sleep %u", seconds);
    return play_pause(what, seconds * second) ? 0 : libc::sleep(seconds);
}
VEKSIM_PUBLISH(sleep, hook_sleep);

int hook_usleep(useconds_t usec)
{
    char what[32];
    snprintf(what, sizeof what, "usleep %u", usec);
    return play_pause(what, usec) ? 0 : libc::usleep(usec);
}
VEKSIM_PUBLISH(usleep, hook_usleep);

int hook_nanosleep(const struct timespec *wanted, struct timespec *left)
{
    return play_nanosleep(wanted->tv_sec, wanted->tv_nsec) ? 0 : libc::nanosleep(wanted, left);
}
VEKSIM_PUBLISH(nanosleep, hook_nanosleep);

int hook_clock_nanosleep(clockid_t clock, int flags, const struct timespec *wanted, struct timespec *left)
{
    std::int64_t nsec = wanted->tv_sec * 1000 * second + wanted->tv_nsec;
    if ((flags & TIMER_ABSTIME) != 0) {
        struct timespec now {};
        hook_clock_gettime(clock, &now);
        nsec -= now.tv_sec * 1000 * second + now.tv_nsec;
    }
    bool played = nsec > 0 && play_nanosleep(nsec / (1000 * second), nsec % (1000 * second));
    return played ? 0 : libc::clock_nanosleep(clock, flags, wanted, left);
}
VEKSIM_PUBLISH(clock_nanosleep, hook_clock_nanosleep);

} // extern "C"
} // namespace veksim
