// SPDX-License-Identifier: Apache-2.0
// The calls that take a descriptor.
#include "descriptors.h"

#include "faults.h"
#include "libc.h"
#include "requests.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/file.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace veksim {
namespace {

constexpr std::size_t largest_attribute = 4096; // as the kernel has it

std::array<std::atomic<opened>, 4096> kinds{};

bool descriptor_path(int fd, char *path)
{
    char link[32];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    return link_target(link, path);
}

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

bool is_attribute(int fd)
{
    return kind_of(fd) == opened::attribute;
}

bool ready(int fd)
{
    return !is_held(fd) || settle(fd);
}

void forget_from(unsigned first, unsigned last)
{
    for (std::size_t fd = first; fd < kinds.size() && fd <= last; ++fd)
        set_kind(static_cast<int>(fd), opened::ordinary);
}

int copy_kind(int from, int to)
{
    if (to >= 0)
        set_kind(to, kind_of(from));
    return to;
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

opened opened_on(const host_path &path, bool writing)
{
    if (path.where() == zone::dri)
        return opened::card;
    return path.where() == zone::sysfs && writing ? opened::attribute : opened::ordinary;
}

opened kind_of(int fd)
{
    std::size_t index = static_cast<std::size_t>(fd);
    return index < kinds.size() ? kinds[index].load(std::memory_order_relaxed) : opened::ordinary;
}

void set_kind(int fd, opened kind)
{
    std::size_t index = static_cast<std::size_t>(fd);
    if (index < kinds.size() && kinds[index].load(std::memory_order_relaxed) != kind)
        kinds[index].store(kind, std::memory_order_relaxed);
}

void adopt_standard_descriptors()
{
    for (int fd = 0; fd <= 2; ++fd) {
        char path[PATH_MAX];
        if (!node_of_descriptor(fd, path))
            continue;
        const char *name = name_of_node(path);
        const int flags = libc::fcntl(fd, F_GETFL);
        if (name != path)
            set_kind(fd, (flags & O_PATH) != 0 ? opened::held
                                               : opened_on(host_path(name), (flags & O_ACCMODE) != O_RDONLY));
    }
}

bool node_of_descriptor(int fd, char *path)
{
    if (!descriptor_path(fd, path))
        return false;
    constexpr const char suffix[] = " (deleted)";
    constexpr std::size_t suffix_length = sizeof suffix - 1;
    std::size_t length = strlen(path);
    if (length > suffix_length && strcmp(path + length - suffix_length, suffix) == 0)
        path[length - suffix_length] = '\0';
    return true;
}

bool is_held(int fd)
{
    const opened kind = kind_of(fd);
    return kind == opened::held || kind == opened::held_for_writing;
}

bool card_of_path(const char *path_in_tree, unsigned *card)
{
    constexpr const char prefix[] = "/dev/dri/card";
    const char *name = name_of_node(path_in_tree);
    if (name == path_in_tree || strncmp(name, prefix, sizeof prefix - 1) != 0)
        return false;
    const char *number = name + sizeof prefix - 1;
    std::size_t digits = strspn(number, "0123456789");
    if (digits == 0 || digits > 3 || number[digits] != '\0')
        return false;
    *card = static_cast<unsigned>(atoi(number));
    return true;
}

bool card_of_descriptor(int fd, unsigned *card)
{
    char path[PATH_MAX];
    return (kind_of(fd) == opened::card || is_held(fd)) && node_of_descriptor(fd, path) && card_of_path(path, card);
}

void make_character_device(struct stat *info, unsigned card)
{
    info->st_mode = S_IFCHR | 0660;
    info->st_rdev = makedev(drm_major, card);
}

// A node under sysfs, whatever stands for it.
void make_attribute(struct stat *info)
{
    info->st_mode = S_IFREG | 0644;
    info->st_size = largest_attribute;
}

int stat_descriptor(int fd, struct stat *info)
{
    int result = libc::fstat(fd, info);
    if (result == 0 && is_held(fd))
        make_attribute(info);
    unsigned card = 0;
    if (result == 0 && card_of_descriptor(fd, &card))
        make_character_device(info, card);
    return result;
}

// A sysfs attribute takes each write as its whole new value. The lock keeps the driver model from
// replacing the node between the look at it and the write.
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

extern "C" {

ssize_t hook_read(int fd, void *buffer, std::size_t size)
{
    return ready(fd) ? libc::read(fd, buffer, size) : -1;
}
VEKSIM_PUBLISH(read, hook_read);

ssize_t hook_read_chk(int fd, void *buffer, std::size_t size, std::size_t)
{
    return hook_read(fd, buffer, size);
}
VEKSIM_PUBLISH(__read_chk, hook_read_chk);

ssize_t hook_pread(int fd, void *buffer, std::size_t size, off_t offset)
{
    return ready(fd) ? libc::pread(fd, buffer, size, offset) : -1;
}
VEKSIM_PUBLISH(pread, hook_pread);
VEKSIM_PUBLISH(pread64, hook_pread);

ssize_t hook_pread_chk(int fd, void *buffer, std::size_t size, off_t offset, std::size_t)
{
    return hook_pread(fd, buffer, size, offset);
}
VEKSIM_PUBLISH(__pread_chk, hook_pread_chk);
VEKSIM_PUBLISH(__pread64_chk, hook_pread_chk);

ssize_t hook_readv(int fd, const struct iovec *pieces, int count)
{
    return ready(fd) ? libc::readv(fd, pieces, count) : -1;
}
VEKSIM_PUBLISH(readv, hook_readv);

ssize_t hook_preadv(int fd, const struct iovec *pieces, int count, off_t offset)
{
    return ready(fd) ? libc::preadv(fd, pieces, count, offset) : -1;
}
VEKSIM_PUBLISH(preadv, hook_preadv);
VEKSIM_PUBLISH(preadv64, hook_preadv);

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

int hook_close(int fd)
{
    set_kind(fd, opened::ordinary);
    return libc::close(fd);
}
VEKSIM_PUBLISH(close, hook_close);

int hook_close_range(unsigned first, unsigned last, int flags)
{
    int result = libc::close_range(first, last, flags);
    if (result == 0 && flags == 0)
        forget_from(first, last);
    return result;
}
VEKSIM_PUBLISH(close_range, hook_close_range);

void hook_closefrom(int first)
{
    forget_from(static_cast<unsigned>(std::max(first, 0)), UINT_MAX);
    libc::closefrom(first);
}
VEKSIM_PUBLISH(closefrom, hook_closefrom);

int hook_dup(int fd)
{
    return copy_kind(fd, libc::dup(fd));
}
VEKSIM_PUBLISH(dup, hook_dup);

int hook_dup2(int fd, int target)
{
    return copy_kind(fd, libc::dup2(fd, target));
}
VEKSIM_PUBLISH(dup2, hook_dup2);

int hook_dup3(int fd, int target, int flags)
{
    return copy_kind(fd, libc::dup3(fd, target, flags));
}
VEKSIM_PUBLISH(dup3, hook_dup3);

int hook_fcntl(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    int result = libc::fcntl(fd, command, argument);
    bool copies = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    return copies ? copy_kind(fd, result) : result;
}
VEKSIM_PUBLISH(fcntl, hook_fcntl);
VEKSIM_PUBLISH(fcntl64, hook_fcntl);

int hook_fstat(int fd, struct stat *info)
{
    return stat_descriptor(fd, info);
}
VEKSIM_PUBLISH(fstat, hook_fstat);
VEKSIM_PUBLISH(fstat64, hook_fstat);

// Programs built before fstat was a function of its own call it by this name.
int hook_fxstat(int, int fd, struct stat *info)
{
    return stat_descriptor(fd, info);
}
VEKSIM_PUBLISH(__fxstat, hook_fxstat);
VEKSIM_PUBLISH(__fxstat64, hook_fxstat);

int hook_ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (!ready(fd))
        return -1;
    unsigned card = 0;
    if (card_of_descriptor(fd, &card))
        return answer_request(card, static_cast<unsigned>(request), argument);
    return libc::ioctl(fd, request, argument);
}
VEKSIM_PUBLISH(ioctl, hook_ioctl);

} // extern "C"
} // namespace veksim
