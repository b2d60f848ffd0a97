// SPDX-License-Identifier: Apache-2.0
// The calls that change what a path names.
#include "libc.h"
#include "tree.h"

#include <fcntl.h>
#include <unistd.h>

namespace veksim {

extern "C" {

int hook_unlinkat(int directory, const char *path, int flags)
{
    host_path target(path, directory);
    return libc::unlinkat(directory, target.text(), flags);
}
VEKSIM_PUBLISH(unlinkat, hook_unlinkat);

int hook_unlink(const char *path)
{
    return hook_unlinkat(AT_FDCWD, path, 0);
}
VEKSIM_PUBLISH(unlink, hook_unlink);

int hook_rmdir(const char *path)
{
    return hook_unlinkat(AT_FDCWD, path, AT_REMOVEDIR);
}
VEKSIM_PUBLISH(rmdir, hook_rmdir);

int hook_remove(const char *path)
{
    host_path target(path);
    return libc::remove(target.text());
}
VEKSIM_PUBLISH(remove, hook_remove);

int hook_renameat2(int from_directory, const char *from, int to_directory, const char *to, unsigned flags)
{
    host_path source(from, from_directory);
    host_path target(to, to_directory);
    return libc::renameat2(from_directory, source.text(), to_directory, target.text(), flags);
}
VEKSIM_PUBLISH(renameat2, hook_renameat2);

int hook_renameat(int from_directory, const char *from, int to_directory, const char *to)
{
    return hook_renameat2(from_directory, from, to_directory, to, 0);
}
VEKSIM_PUBLISH(renameat, hook_renameat);

int hook_rename(const char *from, const char *to)
{
    return hook_renameat2(AT_FDCWD, from, AT_FDCWD, to, 0);
}
VEKSIM_PUBLISH(rename, hook_rename);

int hook_symlinkat(const char *destination, int directory, const char *path)
{
    host_path target(path, directory);
    return libc::symlinkat(destination, directory, target.text());
}
VEKSIM_PUBLISH(symlinkat, hook_symlinkat);

int hook_symlink(const char *destination, const char *path)
{
    return hook_symlinkat(destination, AT_FDCWD, path);
}
VEKSIM_PUBLISH(symlink, hook_symlink);

int hook_mkdirat(int directory, const char *path, mode_t mode)
{
    host_path target(path, directory);
    return libc::mkdirat(directory, target.text(), mode);
}
VEKSIM_PUBLISH(mkdirat, hook_mkdirat);

int hook_mkdir(const char *path, mode_t mode)
{
    return hook_mkdirat(AT_FDCWD, path, mode);
}
VEKSIM_PUBLISH(mkdir, hook_mkdir);

int hook_fchmodat(int directory, const char *path, mode_t mode, int flags)
{
    host_path target(path, directory);
    return libc::fchmodat(directory, target.text(), mode, flags);
}
VEKSIM_PUBLISH(fchmodat, hook_fchmodat);

int hook_chmod(const char *path, mode_t mode)
{
    return hook_fchmodat(AT_FDCWD, path, mode, 0);
}
VEKSIM_PUBLISH(chmod, hook_chmod);

int hook_truncate(const char *path, off_t length)
{
    host_path target(path);
    if (target.where() == zone::sysfs)
        return access(path, W_OK);
    return libc::truncate(target.text(), length);
}
VEKSIM_PUBLISH(truncate, hook_truncate);
VEKSIM_PUBLISH(truncate64, hook_truncate);

int hook_fchownat(int directory, const char *path, uid_t owner, gid_t group, int flags)
{
    host_path target(path, directory);
    return libc::fchownat(directory, target.text(), owner, group, flags);
}
VEKSIM_PUBLISH(fchownat, hook_fchownat);

int hook_chown(const char *path, uid_t owner, gid_t group)
{
    return hook_fchownat(AT_FDCWD, path, owner, group, 0);
}
VEKSIM_PUBLISH(chown, hook_chown);

int hook_lchown(const char *path, uid_t owner, gid_t group)
{
    return hook_fchownat(AT_FDCWD, path, owner, group, AT_SYMLINK_NOFOLLOW);
}
VEKSIM_PUBLISH(lchown, hook_lchown);

int hook_linkat(int from_directory, const char *from, int to_directory, const char *to, int flags)
{
    host_path source(from, from_directory);
    host_path target(to, to_directory);
    return libc::linkat(from_directory, source.text(), to_directory, target.text(), flags);
}
VEKSIM_PUBLISH(linkat, hook_linkat);

int hook_link(const char *from, const char *to)
{
    return hook_linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
}
VEKSIM_PUBLISH(link, hook_link);

int hook_mknodat(int directory, const char *path, mode_t mode, dev_t device)
{
    host_path target(path, directory);
    return libc::mknodat(directory, target.text(), mode, device);
}
VEKSIM_PUBLISH(mknodat, hook_mknodat);

int hook_mknod(const char *path, mode_t mode, dev_t device)
{
    return hook_mknodat(AT_FDCWD, path, mode, device);
}
VEKSIM_PUBLISH(mknod, hook_mknod);

// Programs built before mknod was a function of its own call it by these names.
int hook_xmknodat(int, int directory, const char *path, mode_t mode, dev_t *device)
{
    return hook_mknodat(directory, path, mode, *device);
}
VEKSIM_PUBLISH(__xmknodat, hook_xmknodat);

int hook_xmknod(int, const char *path, mode_t mode, dev_t *device)
{
    return hook_mknodat(AT_FDCWD, path, mode, *device);
}
VEKSIM_PUBLISH(__xmknod, hook_xmknod);

int hook_mkfifoat(int directory, const char *path, mode_t mode)
{
    return hook_mknodat(directory, path, mode | S_IFIFO, 0);
}
VEKSIM_PUBLISH(mkfifoat, hook_mkfifoat);

int hook_mkfifo(const char *path, mode_t mode)
{
    return hook_mknodat(AT_FDCWD, path, mode | S_IFIFO, 0);
}
VEKSIM_PUBLISH(mkfifo, hook_mkfifo);

int hook_utimensat(int directory, const char *path, const struct timespec *times, int flags)
{
    host_path target(path, directory);
    return libc::utimensat(directory, target.text(), times, flags);
}
VEKSIM_PUBLISH(utimensat, hook_utimensat);

int hook_utime(const char *path, const struct utimbuf *times)
{
    host_path target(path);
    return libc::utime(target.text(), times);
}
VEKSIM_PUBLISH(utime, hook_utime);

int hook_futimesat(int directory, const char *path, const struct timeval *times)
{
    host_path target(path, directory);
    return libc::futimesat(directory, target.text(), times);
}
VEKSIM_PUBLISH(futimesat, hook_futimesat);

int hook_utimes(const char *path, const struct timeval *times)
{
    return hook_futimesat(AT_FDCWD, path, times);
}
VEKSIM_PUBLISH(utimes, hook_utimes);

int hook_lutimes(const char *path, const struct timeval *times)
{
    host_path target(path);
    return libc::lutimes(target.text(), times);
}
VEKSIM_PUBLISH(lutimes, hook_lutimes);

} // extern "C"
} // namespace veksim
