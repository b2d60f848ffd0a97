// SPDX-License-Identifier: Apache-2.0
// The clock, the pauses and the user that a simulated host plays.
#include "../veksim.h"
#include "next.h"
#include "tree.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace veksim {
namespace {

constexpr std::int64_t second = 1000000;

next<int(struct timeval *, void *)> next_gettimeofday("gettimeofday");
next<int(clockid_t, struct timespec *)> next_clock_gettime("clock_gettime");
next<time_t(time_t *)> next_time("time");
next<unsigned(unsigned)> next_sleep("sleep");
next<int(useconds_t)> next_usleep("usleep");
next<int(const struct timespec *, struct timespec *)> next_nanosleep("nanosleep");
next<int(clockid_t, int, const struct timespec *, struct timespec *)> next_clock_nanosleep("clock_nanosleep");
next<uid_t()> next_geteuid("geteuid");
next<uid_t()> next_getuid("getuid");
next<int(const char *, int, ...)> next_open("open");

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
    if (!tree_path(path, "/host/pauses")) {
        return false;
    }
    int saved = errno;
    int fd = next_open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
    errno = saved;
    if (fd < 0) {
        return false;
    }
    dprintf(fd, "%s\n", what);
    close(fd);
    offset.fetch_add(usec);
    auto *callback = pause_callback.load();
    if (callback != nullptr) {
        callback(pause_context.load(), what);
    }
    errno = saved;
    return true;
}

bool play_nanosleep(std::int64_t sec, std::int64_t nsec)
{
    char what[64];
    snprintf(what, sizeof what, "nanosleep %lld.%09lld", static_cast<long long>(sec), static_cast<long long>(nsec));
    return play_pause(what, sec * second + nsec / 1000);
}

// The user the tree names, or the real one.
uid_t played_user(next<uid_t()> &real)
{
    char path[PATH_MAX];
    if (tree_path(path, "/host/euid")) {
        int saved = errno;
        int fd = next_open(path, O_RDONLY | O_CLOEXEC);
        errno = saved;
        if (fd >= 0) {
            char text[16] = "";
            ssize_t length = read(fd, text, sizeof text - 1);
            close(fd);
            errno = saved;
            if (length > 0) {
                return static_cast<uid_t>(strtoul(text, nullptr, 10));
            }
        }
    }
    return real();
}

} // namespace

void rewind_clock()
{
    offset.store(0);
}

} // namespace veksim

using namespace veksim;

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

int hook_gettimeofday(struct timeval *now, void *zone) VEKSIM_HOOK("gettimeofday");
int hook_gettimeofday(struct timeval *now, void *zone)
{
    int result = next_gettimeofday(now, zone);
    if (result == 0 && now != nullptr && offset.load(std::memory_order_relaxed) != 0) {
        struct timespec moved = later({now->tv_sec, now->tv_usec * 1000});
        now->tv_sec = moved.tv_sec;
        now->tv_usec = moved.tv_nsec / 1000;
    }
    return result;
}

int hook_clock_gettime(clockid_t clock, struct timespec *now) VEKSIM_HOOK("clock_gettime");
int hook_clock_gettime(clockid_t clock, struct timespec *now)
{
    int result = next_clock_gettime(clock, now);
    bool wall = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
    if (result == 0 && wall && offset.load(std::memory_order_relaxed) != 0) {
        *now = later(*now);
    }
    return result;
}

time_t hook_time(time_t *now) VEKSIM_HOOK("time");
time_t hook_time(time_t *now)
{
    time_t seconds = next_time(nullptr);
    if (offset.load(std::memory_order_relaxed) != 0) {
        struct timespec precise {};
        hook_clock_gettime(CLOCK_REALTIME, &precise);
        seconds = precise.tv_sec;
    }
    if (now != nullptr) {
        *now = seconds;
    }
    return seconds;
}

unsigned hook_sleep(unsigned seconds) VEKSIM_HOOK("sleep");
unsigned hook_sleep(unsigned seconds)
{
    char what[32];
    snprintf(what, sizeof what, "sleep %u", seconds);
    return play_pause(what, seconds * second) ? 0 : next_sleep(seconds);
}

int hook_usleep(useconds_t usec) VEKSIM_HOOK("usleep");
int hook_usleep(useconds_t usec)
{
    char what[32];
    snprintf(what, sizeof what, "usleep %u", usec);
    return play_pause(what, usec) ? 0 : next_usleep(usec);
}

int hook_nanosleep(const struct timespec *wanted, struct timespec *left) VEKSIM_HOOK("nanosleep");
int hook_nanosleep(const struct timespec *wanted, struct timespec *left)
{
    return play_nanosleep(wanted->tv_sec, wanted->tv_nsec) ? 0 : next_nanosleep(wanted, left);
}

int hook_clock_nanosleep(clockid_t clock, int flags, const struct timespec *wanted, struct timespec *left)
    VEKSIM_HOOK("clock_nanosleep");
int hook_clock_nanosleep(clockid_t clock, int flags, const struct timespec *wanted, struct timespec *left)
{
    std::int64_t nsec = wanted->tv_sec * 1000 * second + wanted->tv_nsec;
    if ((flags & TIMER_ABSTIME) != 0) {
        struct timespec now {};
        hook_clock_gettime(clock, &now);
        nsec -= now.tv_sec * 1000 * second + now.tv_nsec;
    }
    bool played = nsec > 0 && play_nanosleep(nsec / (1000 * second), nsec % (1000 * second));
    return played ? 0 : next_clock_nanosleep(clock, flags, wanted, left);
}

uid_t hook_geteuid() VEKSIM_HOOK("geteuid");
uid_t hook_geteuid()
{
    return played_user(next_geteuid);
}

// Someone who is not root is so in both respects; libva compares the two.
uid_t hook_getuid() VEKSIM_HOOK("getuid");
uid_t hook_getuid()
{
    return played_user(next_getuid);
}

} // extern "C"
