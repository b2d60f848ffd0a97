// SPDX-License-Identifier: Apache-2.0
//
// To be loaded into a program: its monotonic clock runs TIME_LAPSE times as fast, and what it waits for in poll() comes
// as much sooner. The messages that it sends, not those of its children, are counted in the file TIME_LAPSE_COUNT.

#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr std::int64_t second = 1000000000;

std::int64_t nanoseconds(clockid_t clock)
{
    timespec now{};
    syscall(SYS_clock_gettime, clock, &now);
    return now.tv_sec * second + now.tv_nsec;
}

std::uint64_t *counter()
{
    const char *path = std::getenv("TIME_LAPSE_COUNT");
    const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || ftruncate(file, sizeof(std::uint64_t)) != 0)
        return nullptr;
    void *shared = mmap(nullptr, sizeof(std::uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    return shared == MAP_FAILED ? nullptr : static_cast<std::uint64_t *>(shared);
}

struct lapse {
    std::int64_t factor = std::getenv("TIME_LAPSE") == nullptr ? 1 : std::atol(std::getenv("TIME_LAPSE"));
    std::int64_t start = nanoseconds(CLOCK_MONOTONIC);
    pid_t counted = getpid();
    std::uint64_t *sent = counter();
};

lapse &the()
{
    static lapse one;
    return one;
}

} // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec *now)
{
    if (clock != CLOCK_MONOTONIC)
        return static_cast<int>(syscall(SYS_clock_gettime, clock, now));
    const std::int64_t seen = the().start + (nanoseconds(clock) - the().start) * the().factor;
    *now = {seen / second, seen % second};
    return 0;
}

int poll(pollfd *watched, nfds_t count, int timeout)
{
    const std::int64_t wait = std::int64_t{timeout} * (second / 1000) / the().factor;
    timespec until{wait / second, wait % second};
    return static_cast<int>(syscall(SYS_ppoll, watched, count, timeout < 0 ? nullptr : &until, nullptr, 0));
}

ssize_t send(int to, const void *data, size_t size, int flags)
{
    const ssize_t sent = sendto(to, data, size, flags, nullptr, 0);
    if (sent >= 0 && the().sent != nullptr && getpid() == the().counted)
        ++*the().sent;
    return sent;
}
}
