// SPDX-License-Identifier: Apache-2.0
#include "faults.h"

#include "descriptors.h"
#include "libc.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace veksim {
namespace {

constexpr const char stuck_directory[] = "/host/stuck";

// What the kernel itself says of a device, whatever its driver does.
bool is_kernels_own(const char *path)
{
    static constexpr const char *names[] = {
        "/power/",    "/config",   "/vendor",      "/device",    "/subsystem_",    "/class",
        "/revision",  "/irq",      "/enable",      "/numa_node", "/local_cpulist", "/current_link_",
        "/max_link_", "/resource", "/power_state", "/uevent",    "/aer_dev_",      "/modalias"};
    const char *below = strstr(path, "/device/");
    for (const char *name : names) {
        if (below != nullptr && strncmp(below + sizeof "/device" - 1, name, strlen(name)) == 0)
            return true;
    }
    return false;
}

// An entry makes reading its node hang; in place of a directory, opening whatever the driver answers below that.
moment entry_sticks(const char *entry)
{
    struct stat info;
    int saved = errno;
    moment sticks = moment::never;
    if (libc::fstatat(AT_FDCWD, entry, &info, 0) == 0)
        sticks = S_ISDIR(info.st_mode) ? moment::never : moment::reading;
    else if (errno == ENOTDIR && !is_kernels_own(entry))
        sticks = moment::opening;
    errno = saved;
    return sticks;
}

// The entry about a path in the tree.
bool entry_path(char *buffer, const char *path)
{
    const char *base = tree();
    std::size_t length = base == nullptr ? 0 : strlen(base);
    return length != 0 && strncmp(path, base, length) == 0 &&
           snprintf(buffer, PATH_MAX, "%s%s%s", base, stuck_directory, path + length) < PATH_MAX;
}

// A descriptor of the fault at PLACE; -1 when it is gone already.
int open_fault(const char *place, bool writing)
{
    int fd = libc::openat(AT_FDCWD, place, O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0)
        set_kind(fd, writing ? opened::held_for_writing : opened::held);
    return fd;
}

bool is_pipe(int fd)
{
    struct stat info;
    int saved = errno;
    bool pipe = lseek(fd, 0, SEEK_CUR) < 0 && errno == ESPIPE && libc::fstat(fd, &info) == 0 && S_ISFIFO(info.st_mode);
    errno = saved;
    return pipe;
}

// What someone writes into a pipe that stands for a node, until it is closed, as a file that can be read twice.
int take_content(int pipe, const char *name)
{
    int file = memfd_create(name, MFD_CLOEXEC);
    if (file < 0)
        return pipe;
    char piece[4096];
    for (;;) {
        ssize_t size = libc::read(pipe, piece, sizeof piece);
        if (size > 0)
            libc::write(file, piece, static_cast<std::size_t>(size));
        else if (size == 0 || errno != EINTR)
            break;
    }
    lseek(file, 0, SEEK_SET);
    libc::close(pipe);
    return file;
}

// A pipe opened for reading and writing would not wait for anyone.
int open_pipe(int fd, const host_path &path, int flags)
{
    if ((flags & O_ACCMODE) == O_RDWR) {
        libc::close(fd);
        do
            fd = libc::openat(AT_FDCWD, path.text(), (flags & ~O_ACCMODE) | O_RDONLY, 0);
        while (fd < 0 && errno == EINTR);
    }
    return fd < 0 || path.where() == zone::dri ? fd : take_content(fd, name_on_host(path.text()));
}

} // namespace

void nap()
{
    const struct timespec moment_of_it = {0, 10000000};
    int saved = errno;
    libc::nanosleep(&moment_of_it, nullptr);
    errno = saved;
}

planted planted_at(const char *path)
{
    char target[PATH_MAX];
    return link_target(path, target) ? fault_in(target) : planted();
}

int open_led(const host_path &path, int flags, mode_t mode)
{
    char entry[PATH_MAX];
    const bool writing = (flags & O_ACCMODE) != O_RDONLY;
    const bool waits = (flags & (O_PATH | O_DIRECTORY)) == 0 && entry_path(entry, path.text());
    for (;; nap()) {
        const moment sticks = waits ? entry_sticks(entry) : moment::never;
        int fd = sticks == moment::reading ? open_fault(entry, writing) : -1;
        if (fd >= 0)
            return fd;
        if (sticks != moment::never)
            continue;
        fd = libc::openat(AT_FDCWD, path.text(), flags, mode);
        if (fd >= 0) {
            set_kind(fd, opened_on(path, writing));
            const bool pipe = waits && path.where() != zone::plain && (flags & (O_NONBLOCK | O_WRONLY)) == 0;
            return pipe && is_pipe(fd) ? open_pipe(fd, path, flags) : fd;
        }
        const planted fault = waits ? planted_at(path.text()) : planted();
        if (fault.sticks == moment::reading || fault.fails == moment::reading)
            fd = open_fault(path.text(), writing);
        if (fd >= 0 || fault.sticks == moment::never)
            return path.or_planted_failure(fd);
    }
}

bool ready(int fd)
{
    if (!is_held(fd))
        return true;
    char place[PATH_MAX];
    if (!node_of_descriptor(fd, place))
        return true;
    const char *name = name_of_node(place);
    if (name == place)
        return true; // the host it was on is gone
    const bool entry = strncmp(place + strlen(tree()), stuck_directory, sizeof stuck_directory - 1) == 0;
    for (;; nap()) {
        const planted fault = planted_at(place);
        if (fault.fails == moment::reading) {
            errno = fault.error;
            return false;
        }
        if (fault.sticks == moment::never && !(entry && entry_sticks(place) == moment::reading))
            break;
    }
    const bool writing = kind_of(fd) == opened::held_for_writing;
    const host_path path(name);
    int fresh = open_led(path, (writing ? O_RDWR : O_RDONLY) | O_CLOEXEC, 0);
    if (fresh < 0) {
        errno = ENODEV;
        return false;
    }
    const opened kind = kind_of(fresh);
    libc::dup3(fresh, fd, (libc::fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0 ? O_CLOEXEC : 0);
    set_kind(fd, kind);
    set_kind(fresh, opened::ordinary);
    libc::close(fresh);
    return ready(fd);
}

void outwait(const host_path &path)
{
    char entry[PATH_MAX];
    if (!path.inside() || !entry_path(entry, path.text()))
        return;
    while (entry_sticks(entry) != moment::never || planted_at(path.text()).sticks != moment::never)
        nap();
}

} // namespace veksim
