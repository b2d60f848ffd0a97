// SPDX-License-Identifier: Apache-2.0
// The calls that write through a descriptor. A node under sysfs takes each write as its whole new value.
#include "descriptors.h"
#include "faults.h"
#include "libc.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <cwchar>
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/file.h>
#include <unistd.h>

namespace veksim {
namespace {

// The driver rewrites some nodes by renaming; a descriptor opened before still means the node of that name.
int reopen_replaced(int fd)
{
    char path[PATH_MAX];
    return node_of_descriptor(fd, path) ? libc::openat(AT_FDCWD, path, O_WRONLY | O_CLOEXEC) : -1;
}

ssize_t replace_content(int fd, const void *bytes, std::size_t size)
{
    ssize_t written = libc::pwrite(fd, bytes, size, off_t{0});
    if (written < 0)
        return written;
    off_t length = written;
    if (written > 0 && static_cast<const char *>(bytes)[written - 1] != '\n' && tree_has("/host/live"))
        length += libc::pwrite(fd, "\n", std::size_t{1}, static_cast<off_t>(written));
    if (libc::ftruncate(fd, length) != 0)
        return -1;
    lseek(fd, length, SEEK_SET);
    return written;
}

// The lock keeps the driver model from replacing the node between the look at it and the write.
ssize_t store_attribute(int fd, const void *bytes, std::size_t size)
{
    struct stat info;
    if (libc::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))
        return libc::write(fd, bytes, size);
    flock(fd, LOCK_EX);
    ssize_t written = -1;
    if (libc::fstat(fd, &info) == 0 && info.st_nlink == 0) {
        flock(fd, LOCK_UN);
        int fresh = reopen_replaced(fd);
        if (fresh < 0)
            return -1;
        written = store_attribute(fresh, bytes, size);
        int saved = errno;
        libc::close(fresh);
        errno = saved;
        return written;
    }
    written = replace_content(fd, bytes, size);
    int saved = errno;
    flock(fd, LOCK_UN);
    errno = saved;
    return written;
}

bool is_attribute(int fd)
{
    return kind_of(fd) == opened::attribute;
}

// A stream's own writes do not pass through write(): what it holds is stored before it gets to them.
int store_held(FILE *stream)
{
    int fd = fileno(stream);
    std::size_t held = is_attribute(fd) && fwide(stream, 0) <= 0 ? __fpending(stream) : 0;
    if (held == 0)
        return 0;
    ssize_t stored = store_attribute(fd, stream->_IO_write_base, held);
    int saved = errno;
    __fpurge(stream);
    errno = saved;
    return stored < 0 ? EOF : 0;
}

} // namespace

extern "C" {

ssize_t hook_write(int fd, const void *bytes, std::size_t size)
{
    if (!ready(fd))
        return -1;
    return is_attribute(fd) ? store_attribute(fd, bytes, size) : libc::write(fd, bytes, size);
}
VEKSIM_PUBLISH(write, hook_write);

ssize_t hook_pwrite(int fd, const void *bytes, std::size_t size, off_t offset)
{
    if (!ready(fd))
        return -1;
    return is_attribute(fd) ? store_attribute(fd, bytes, size) : libc::pwrite(fd, bytes, size, offset);
}
VEKSIM_PUBLISH(pwrite, hook_pwrite);
VEKSIM_PUBLISH(pwrite64, hook_pwrite);

ssize_t hook_writev(int fd, const struct iovec *pieces, int count)
{
    if (!ready(fd))
        return -1;
    if (!is_attribute(fd))
        return libc::writev(fd, pieces, count);
    char value[largest_attribute];
    std::size_t size = 0;
    for (int i = 0; i < count; ++i) {
        std::size_t taken = std::min(pieces[i].iov_len, sizeof value - size);
        memcpy(value + size, pieces[i].iov_base, taken);
        size += taken;
    }
    return store_attribute(fd, value, size);
}
VEKSIM_PUBLISH(writev, hook_writev);

[[gnu::format(printf, 2, 0)]] int hook_vdprintf(int fd, const char *format, va_list arguments)
{
    if (!ready(fd))
        return -1;
    if (!is_attribute(fd))
        return libc::vdprintf(fd, format, arguments);
    char value[largest_attribute];
    int length = vsnprintf(value, sizeof value, format, arguments);
    if (length < 0)
        return length;
    return static_cast<int>(store_attribute(fd, value, std::min(static_cast<std::size_t>(length), sizeof value - 1)));
}
VEKSIM_PUBLISH(vdprintf, hook_vdprintf);

[[gnu::format(printf, 2, 3)]] int hook_dprintf(int fd, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int length = hook_vdprintf(fd, format, arguments);
    va_end(arguments);
    return length;
}
VEKSIM_PUBLISH(dprintf, hook_dprintf);

[[gnu::format(printf, 3, 0)]] int hook_vdprintf_chk(int fd, int, const char *format, va_list arguments)
{
    return hook_vdprintf(fd, format, arguments);
}
VEKSIM_PUBLISH(__vdprintf_chk, hook_vdprintf_chk);

[[gnu::format(printf, 3, 4)]] int hook_dprintf_chk(int fd, int, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int length = hook_vdprintf(fd, format, arguments);
    va_end(arguments);
    return length;
}
VEKSIM_PUBLISH(__dprintf_chk, hook_dprintf_chk);

int hook_ftruncate(int fd, off_t length)
{
    return is_attribute(fd) ? 0 : libc::ftruncate(fd, length);
}
VEKSIM_PUBLISH(ftruncate, hook_ftruncate);
VEKSIM_PUBLISH(ftruncate64, hook_ftruncate);

// Whoever copies by these falls back to write().
ssize_t hook_sendfile(int target, int source, off_t *offset, std::size_t size)
{
    if (!is_attribute(target))
        return libc::sendfile(target, source, offset, size);
    errno = EINVAL;
    return -1;
}
VEKSIM_PUBLISH(sendfile, hook_sendfile);
VEKSIM_PUBLISH(sendfile64, hook_sendfile);

ssize_t hook_copy_file_range(int source, off_t *from, int target, off_t *to, std::size_t size, unsigned flags)
{
    if (!is_attribute(target))
        return libc::copy_file_range(source, from, target, to, size, flags);
    errno = EINVAL;
    return -1;
}
VEKSIM_PUBLISH(copy_file_range, hook_copy_file_range);

int hook_fflush(FILE *stream)
{
    int held = stream == nullptr ? 0 : store_held(stream);
    int result = libc::fflush(stream);
    return held != 0 ? held : result;
}
VEKSIM_PUBLISH(fflush, hook_fflush);

int hook_fclose(FILE *stream)
{
    int held = store_held(stream);
    int saved = errno;
    set_kind(fileno(stream), opened::ordinary);
    int result = libc::fclose(stream);
    if (held == 0)
        return result;
    errno = saved;
    return held;
}
VEKSIM_PUBLISH(fclose, hook_fclose);

} // extern "C"
} // namespace veksim
