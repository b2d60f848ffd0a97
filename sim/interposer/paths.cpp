// SPDX-License-Identifier: Apache-2.0
// The calls that ask about a path.
#include "descriptors.h"
#include "faults.h"
#include "libc.h"
#include "tree.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace veksim {
namespace {

// Only reading fails or hangs there.
bool seems_there(const host_path &path)
{
    if (!path.inside())
        return false;
    const planted fault = planted_at(path.text());
    return fault.sticks != moment::never || fault.fails == moment::reading;
}

int check_access(int directory, const char *path, int mode, int flags)
{
    host_path target(path, directory);
    if ((mode & W_OK) != 0 && target.write_protected()) {
        errno = EACCES;
        return -1;
    }
    int result = libc::faccessat(directory, target.text(), mode, flags);
    return result < 0 && seems_there(target) ? 0 : target.or_planted_failure(result);
}

bool means_descriptor(int directory, const char *path, int flags)
{
    return (flags & AT_EMPTY_PATH) != 0 && (path == nullptr || *path == '\0') && directory >= 0;
}

// A pipe, or what a link that is no link on a host was looked at as.
bool is_fault(const struct stat &info, const host_path &path)
{
    return S_ISFIFO(info.st_mode) || (S_ISLNK(info.st_mode) && seems_there(path));
}

int stat_path(int directory, const char *path, struct stat *info, int flags)
{
    if (means_descriptor(directory, path, flags))
        return stat_descriptor(directory, info);
    host_path target(path, directory);
    int result = libc::fstatat(directory, target.text(), info, flags);
    if (result < 0 && seems_there(target))
        result = libc::fstatat(AT_FDCWD, target.text(), info, AT_SYMLINK_NOFOLLOW);
    target.or_planted_failure(result);
    if (result == 0 && target.where() == zone::sysfs && is_fault(*info, target))
        make_attribute(info);
    unsigned card = 0;
    if (result == 0 && target.where() == zone::dri && card_of_path(target.text(), &card))
        make_character_device(info, card);
    return result;
}

char *resolve(const char *path, char *resolved)
{
    host_path target(path);
    if (!target.inside())
        return libc::realpath(path, resolved);
    char whole[PATH_MAX];
    if (libc::realpath(target.text(), whole) == nullptr)
        return nullptr;
    const char *name = name_on_host(whole);
    if (resolved == nullptr)
        return strdup(name);
    return static_cast<char *>(memcpy(resolved, name, strlen(name) + 1));
}

ssize_t read_link(int directory, const char *path, char *buffer, std::size_t size)
{
    host_path target(path, directory);
    if (path == nullptr || tree() == nullptr || name_on_host(path) != path)
        return libc::readlinkat(directory, target.text(), buffer, size);
    char whole[PATH_MAX];
    ssize_t length = libc::readlinkat(directory, target.text(), whole, sizeof whole - 1);
    if (length < 0)
        return length;
    whole[length] = '\0';
    const char *name = name_of_node(whole);
    std::size_t taken = std::min(strlen(name), size);
    std::copy_n(name, taken, buffer);
    return static_cast<ssize_t>(taken);
}

char *working_directory(char *buffer, std::size_t size)
{
    char *path = libc::getcwd(buffer, size);
    if (path != nullptr) {
        const char *name = name_on_host(path);
        memmove(path, name, strlen(name) + 1);
    }
    return path;
}

} // namespace

extern "C" {

int hook_access(const char *path, int mode)
{
    return check_access(AT_FDCWD, path, mode, 0);
}
VEKSIM_PUBLISH(access, hook_access);

int hook_euidaccess(const char *path, int mode)
{
    return check_access(AT_FDCWD, path, mode, AT_EACCESS);
}
VEKSIM_PUBLISH(euidaccess, hook_euidaccess);
VEKSIM_PUBLISH(eaccess, hook_euidaccess);

int hook_faccessat(int directory, const char *path, int mode, int flags)
{
    return check_access(directory, path, mode, flags);
}
VEKSIM_PUBLISH(faccessat, hook_faccessat);

int hook_stat(const char *path, struct stat *info)
{
    return stat_path(AT_FDCWD, path, info, 0);
}
VEKSIM_PUBLISH(stat, hook_stat);
VEKSIM_PUBLISH(stat64, hook_stat);

int hook_lstat(const char *path, struct stat *info)
{
    return stat_path(AT_FDCWD, path, info, AT_SYMLINK_NOFOLLOW);
}
VEKSIM_PUBLISH(lstat, hook_lstat);
VEKSIM_PUBLISH(lstat64, hook_lstat);

int hook_fstatat(int directory, const char *path, struct stat *info, int flags)
{
    return stat_path(directory, path, info, flags);
}
VEKSIM_PUBLISH(fstatat, hook_fstatat);
VEKSIM_PUBLISH(fstatat64, hook_fstatat);

// Programs built before the three above were functions of their own call them by these names.
int hook_xstat(int, const char *path, struct stat *info)
{
    return stat_path(AT_FDCWD, path, info, 0);
}
VEKSIM_PUBLISH(__xstat, hook_xstat);
VEKSIM_PUBLISH(__xstat64, hook_xstat);

int hook_lxstat(int, const char *path, struct stat *info)
{
    return stat_path(AT_FDCWD, path, info, AT_SYMLINK_NOFOLLOW);
}
VEKSIM_PUBLISH(__lxstat, hook_lxstat);
VEKSIM_PUBLISH(__lxstat64, hook_lxstat);

int hook_fxstatat(int, int directory, const char *path, struct stat *info, int flags)
{
    return stat_path(directory, path, info, flags);
}
VEKSIM_PUBLISH(__fxstatat, hook_fxstatat);
VEKSIM_PUBLISH(__fxstatat64, hook_fxstatat);

int hook_statx(int directory, const char *path, int flags, unsigned mask, struct statx *info)
{
    host_path target(path, directory);
    int result = libc::statx(directory, target.text(), flags, mask, info);
    const bool fault = result < 0 ? seems_there(target) : target.where() == zone::sysfs && S_ISFIFO(info->stx_mode);
    if (fault)
        result = libc::statx(AT_FDCWD, target.text(), AT_SYMLINK_NOFOLLOW, mask, info);
    target.or_planted_failure(result);
    if (result == 0 && fault && target.where() == zone::sysfs)
        info->stx_mode = static_cast<decltype(info->stx_mode)>(S_IFREG | 0644);
    unsigned card = 0;
    bool is_card = means_descriptor(directory, path, flags)
                       ? card_of_descriptor(directory, &card)
                       : target.where() == zone::dri && card_of_path(target.text(), &card);
    if (result == 0 && is_card) {
        info->stx_mode = static_cast<decltype(info->stx_mode)>(S_IFCHR | 0660);
        info->stx_rdev_major = drm_major;
        info->stx_rdev_minor = card;
    }
    return result;
}
VEKSIM_PUBLISH(statx, hook_statx);

ssize_t hook_readlink(const char *path, char *buffer, std::size_t size)
{
    return read_link(AT_FDCWD, path, buffer, size);
}
VEKSIM_PUBLISH(readlink, hook_readlink);

ssize_t hook_readlinkat(int directory, const char *path, char *buffer, std::size_t size)
{
    return read_link(directory, path, buffer, size);
}
VEKSIM_PUBLISH(readlinkat, hook_readlinkat);

ssize_t hook_readlink_chk(const char *path, char *buffer, std::size_t size, std::size_t)
{
    return read_link(AT_FDCWD, path, buffer, size);
}
VEKSIM_PUBLISH(__readlink_chk, hook_readlink_chk);

ssize_t hook_readlinkat_chk(int directory, const char *path, char *buffer, std::size_t size, std::size_t)
{
    return read_link(directory, path, buffer, size);
}
VEKSIM_PUBLISH(__readlinkat_chk, hook_readlinkat_chk);

char *hook_realpath(const char *path, char *resolved)
{
    return resolve(path, resolved);
}
VEKSIM_PUBLISH(realpath, hook_realpath);

char *hook_realpath_chk(const char *path, char *resolved, std::size_t)
{
    return resolve(path, resolved);
}
VEKSIM_PUBLISH(__realpath_chk, hook_realpath_chk);

char *hook_canonicalize_file_name(const char *path)
{
    return resolve(path, nullptr);
}
VEKSIM_PUBLISH(canonicalize_file_name, hook_canonicalize_file_name);

char *hook_getcwd(char *buffer, std::size_t size)
{
    return working_directory(buffer, size);
}
VEKSIM_PUBLISH(getcwd, hook_getcwd);

char *hook_getcwd_chk(char *buffer, std::size_t size, std::size_t)
{
    return working_directory(buffer, size);
}
VEKSIM_PUBLISH(__getcwd_chk, hook_getcwd_chk);

char *hook_get_current_dir_name()
{
    return working_directory(nullptr, 0);
}
VEKSIM_PUBLISH(get_current_dir_name, hook_get_current_dir_name);

ssize_t hook_getxattr(const char *path, const char *key, void *value, std::size_t size)
{
    host_path target(path);
    return libc::getxattr(target.text(), key, value, size);
}
VEKSIM_PUBLISH(getxattr, hook_getxattr);

ssize_t hook_lgetxattr(const char *path, const char *key, void *value, std::size_t size)
{
    host_path target(path);
    return libc::lgetxattr(target.text(), key, value, size);
}
VEKSIM_PUBLISH(lgetxattr, hook_lgetxattr);

ssize_t hook_listxattr(const char *path, char *keys, std::size_t size)
{
    host_path target(path);
    return libc::listxattr(target.text(), keys, size);
}
VEKSIM_PUBLISH(listxattr, hook_listxattr);

ssize_t hook_llistxattr(const char *path, char *keys, std::size_t size)
{
    host_path target(path);
    return libc::llistxattr(target.text(), keys, size);
}
VEKSIM_PUBLISH(llistxattr, hook_llistxattr);

int hook_statvfs(const char *path, struct statvfs *info)
{
    host_path target(path);
    return target.or_planted_failure(libc::statvfs(target.text(), info));
}
VEKSIM_PUBLISH(statvfs, hook_statvfs);
VEKSIM_PUBLISH(statvfs64, hook_statvfs);

int hook_statfs(const char *path, struct statfs *info)
{
    host_path target(path);
    return target.or_planted_failure(libc::statfs(target.text(), info));
}
VEKSIM_PUBLISH(statfs, hook_statfs);
VEKSIM_PUBLISH(statfs64, hook_statfs);

int hook_inotify_add_watch(int fd, const char *path, std::uint32_t mask)
{
    host_path target(path);
    return libc::inotify_add_watch(fd, target.text(), mask);
}
VEKSIM_PUBLISH(inotify_add_watch, hook_inotify_add_watch);

int hook_chdir(const char *path)
{
    host_path target(path);
    return libc::chdir(target.text());
}
VEKSIM_PUBLISH(chdir, hook_chdir);

} // extern "C"
} // namespace veksim
