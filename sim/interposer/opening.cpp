// SPDX-License-Identifier: Apache-2.0
// The calls that open what a path leads to.
#include "descriptors.h"
#include "faults.h"
#include "libc.h"
#include "tree.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace veksim {
namespace {

int open_path(int directory, const char *path, int flags, mode_t mode)
{
    host_path target(path, directory);
    bool writing = (flags & O_ACCMODE) != O_RDONLY;
    if (target.where() == zone::sysfs) {
        flags &= ~(O_CREAT | O_EXCL | O_TRUNC | O_APPEND);
        if (writing && target.write_protected()) {
            errno = EACCES;
            return -1;
        }
    }
    if (target.inside())
        return open_led(target, flags, mode);
    int fd = libc::openat(directory, target.text(), flags, mode);
    if (fd >= 0)
        set_kind(fd, opened::ordinary);
    return fd;
}

bool takes_mode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

bool may_open_stream(const host_path &path, bool writing)
{
    if (path.where() != zone::sysfs || !writing)
        return true;
    if (libc::faccessat(AT_FDCWD, path.text(), F_OK, 0) != 0)
        return false;
    if (path.write_protected()) {
        errno = EACCES;
        return false;
    }
    return true;
}

// A node takes a stream's content whole when the stream is flushed; until then it is empty, as fopen leaves it.
FILE *open_stream(const char *path, const char *mode, FILE *reused)
{
    host_path target(path);
    bool writing = strpbrk(mode, "wa+") != nullptr;
    FILE *stream = nullptr;
    outwait(target);
    if (reused != nullptr)
        set_kind(fileno(reused), opened::ordinary);
    if (may_open_stream(target, writing))
        stream = reused != nullptr ? libc::freopen(target.text(), mode, reused) : libc::fopen(target.text(), mode);
    if (stream == nullptr) {
        target.or_planted_failure(-1);
        return nullptr;
    }
    int fd = fileno(stream);
    set_kind(fd, opened_on(target, writing));
    if (kind_of(fd) == opened::attribute)
        libc::fcntl(fd, F_SETFL, libc::fcntl(fd, F_GETFL) & ~O_APPEND);
    return stream;
}

} // namespace

extern "C" {

int hook_open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return open_path(AT_FDCWD, path, flags, mode);
}
VEKSIM_PUBLISH(open, hook_open);
VEKSIM_PUBLISH(open64, hook_open);
VEKSIM_PUBLISH(__open_2, hook_open);
VEKSIM_PUBLISH(__open64_2, hook_open);

int hook_openat(int directory, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return open_path(directory, path, flags, mode);
}
VEKSIM_PUBLISH(openat, hook_openat);
VEKSIM_PUBLISH(openat64, hook_openat);
VEKSIM_PUBLISH(__openat_2, hook_openat);
VEKSIM_PUBLISH(__openat64_2, hook_openat);

int hook_creat(const char *path, mode_t mode)
{
    return open_path(AT_FDCWD, path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}
VEKSIM_PUBLISH(creat, hook_creat);
VEKSIM_PUBLISH(creat64, hook_creat);

FILE *hook_fopen(const char *path, const char *mode)
{
    return open_stream(path, mode, nullptr);
}
VEKSIM_PUBLISH(fopen, hook_fopen);
VEKSIM_PUBLISH(fopen64, hook_fopen);

FILE *hook_freopen(const char *path, const char *mode, FILE *stream)
{
    return path == nullptr ? libc::freopen(path, mode, stream) : open_stream(path, mode, stream);
}
VEKSIM_PUBLISH(freopen, hook_freopen);
VEKSIM_PUBLISH(freopen64, hook_freopen);

} // extern "C"
} // namespace veksim
