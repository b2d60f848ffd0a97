// SPDX-License-Identifier: Apache-2.0
// The calls that take a descriptor, but for those that write.
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
#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace veksim {
namespace {

std::array<std::atomic<opened>, 4096> kinds{};

bool descriptor_path(int fd, char *path)
{
    char link[32];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    return link_target(link, path);
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
