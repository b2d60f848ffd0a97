// SPDX-License-Identifier: Apache-2.0
// The calls that take a path or a descriptor.
#include "next.h"
#include "tree.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace veksim {
namespace {

constexpr unsigned drm_major = 226;

next<int(const char *, int, ...)> next_open("open");
next<int(int, const char *, int, ...)> next_openat("openat");
next<FILE *(const char *, const char *)> next_fopen("fopen");
next<FILE *(const char *, const char *, FILE *)> next_freopen("freopen");
next<int(FILE *)> next_fclose("fclose");
next<DIR *(const char *)> next_opendir("opendir");
using scan_filter = int(const struct dirent *);
using scan_order = int(const struct dirent **, const struct dirent **);
next<int(const char *, struct dirent ***, scan_filter *, scan_order *)> next_scandir("scandir");
next<int(const char *, int)> next_access("access");
next<int(const char *, int)> next_euidaccess("euidaccess");
next<int(int, const char *, int, int)> next_faccessat("faccessat");
next<int(const char *, struct stat *)> next_stat("stat");
next<int(const char *, struct stat *)> next_lstat("lstat");
next<int(int, struct stat *)> next_fstat("fstat");
next<int(int, const char *, struct stat *, int)> next_fstatat("fstatat");
next<int(int, const char *, int, unsigned, struct statx *)> next_statx("statx");
next<ssize_t(const char *, char *, std::size_t)> next_readlink("readlink");
next<char *(const char *, char *)> next_realpath("realpath");
next<int(const char *)> next_unlink("unlink");
next<int(const char *)> next_chdir("chdir");
next<ssize_t(const char *, const char *, void *, std::size_t)> next_getxattr("getxattr");
next<ssize_t(const char *, const char *, void *, std::size_t)> next_lgetxattr("lgetxattr");
next<void *(const char *, int)> next_dlopen("dlopen");
next<ssize_t(int, const void *, std::size_t)> next_write("write");
next<ssize_t(int, const void *, std::size_t, off_t)> next_pwrite("pwrite");
next<int(int)> next_close("close");
next<int(int)> next_dup("dup");
next<int(int, int)> next_dup2("dup2");
next<int(int, int, int)> next_dup3("dup3");
next<int(int, int, ...)> next_fcntl("fcntl");
next<int(int, unsigned long, ...)> next_ioctl("ioctl");

int refuse(int error)
{
    errno = error;
    return -1;
}

mark mark_for(const host_path &path, bool writing)
{
    if (path.where() == zone::dri) {
        return mark::card;
    }
    return path.where() == zone::sysfs && writing ? mark::store : mark::none;
}

int open_path(int directory, const char *path, int flags, mode_t mode)
{
    host_path target(path);
    bool writing = (flags & O_ACCMODE) != O_RDONLY;
    if (target.where() == zone::sysfs) {
        flags &= ~(O_CREAT | O_EXCL | O_TRUNC);
        if (writing && target.write_protected()) {
            return refuse(EACCES);
        }
    }
    int fd = directory == AT_FDCWD ? next_open(target.text(), flags, mode)
                                   : next_openat(directory, target.text(), flags, mode);
    if (fd >= 0) {
        set_mark(fd, mark_for(target, writing));
    }
    return target.settle(fd);
}

mode_t creation_mode(int flags, va_list arguments)
{
    bool creates = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    return creates ? static_cast<mode_t>(va_arg(arguments, unsigned)) : 0;
}

// A stream's own writes do not pass through write(), so a stream replaces a node by truncating it.
bool may_open_stream(const host_path &path, bool writing)
{
    if (path.where() != zone::sysfs || !writing) {
        return true;
    }
    if (next_access(path.text(), F_OK) != 0) {
        return false;
    }
    if (path.write_protected()) {
        errno = EACCES;
        return false;
    }
    return true;
}

FILE *open_stream(const char *path, const char *mode, FILE *reused)
{
    host_path target(path);
    bool writing = strpbrk(mode, "wa+") != nullptr;
    FILE *stream = nullptr;
    if (reused != nullptr) {
        set_mark(fileno(reused), mark::none);
    }
    if (may_open_stream(target, writing)) {
        stream = reused != nullptr ? next_freopen(target.text(), mode, reused) : next_fopen(target.text(), mode);
    }
    if (stream == nullptr) {
        target.settle(-1);
    } else {
        set_mark(fileno(stream), mark_for(target, writing));
    }
    return stream;
}

template <typename Check>
int check_access(const char *path, int mode, Check check)
{
    host_path target(path);
    if ((mode & W_OK) != 0 && target.write_protected()) {
        return refuse(EACCES);
    }
    return target.settle(check(target.text()));
}

void make_character_device(struct stat *info, unsigned card)
{
    info->st_mode = S_IFCHR | 0660;
    info->st_rdev = makedev(drm_major, card);
}

template <typename Query>
int stat_path(const char *path, struct stat *info, Query query)
{
    host_path target(path);
    int result = target.settle(query(target.text()));
    unsigned card = 0;
    if (result == 0 && target.where() == zone::dri && card_of_path(target.text(), &card)) {
        make_character_device(info, card);
    }
    return result;
}

int stat_descriptor(int fd, struct stat *info)
{
    int result = next_fstat(fd, info);
    unsigned card = 0;
    if (result == 0 && card_of_descriptor(fd, &card)) {
        make_character_device(info, card);
    }
    return result;
}

int copy_mark(int from, int to)
{
    if (to >= 0) {
        set_mark(to, mark_of(from));
    }
    return to;
}

char *resolve(const char *path, char *resolved)
{
    host_path target(path);
    if (!target.inside()) {
        return next_realpath(path, resolved);
    }
    char whole[PATH_MAX];
    if (next_realpath(target.text(), whole) == nullptr) {
        return nullptr;
    }
    const char *name = outside_name(whole);
    if (resolved == nullptr) {
        return strdup(name);
    }
    return static_cast<char *>(memcpy(resolved, name, strlen(name) + 1));
}

ssize_t read_link(const char *path, char *buffer, std::size_t size)
{
    host_path target(path);
    return next_readlink(target.text(), buffer, size);
}

} // namespace
} // namespace veksim

using namespace veksim;

#define VEKSIM_OPEN(name, symbol) \
    int name(const char *path, int flags, ...) VEKSIM_HOOK(symbol); \
    int name(const char *path, int flags, ...) \
    { \
        va_list arguments; \
        va_start(arguments, flags); \
        mode_t mode = creation_mode(flags, arguments); \
        va_end(arguments); \
        return open_path(AT_FDCWD, path, flags, mode); \
    }

#define VEKSIM_OPENAT(name, symbol) \
    int name(int directory, const char *path, int flags, ...) VEKSIM_HOOK(symbol); \
    int name(int directory, const char *path, int flags, ...) \
    { \
        va_list arguments; \
        va_start(arguments, flags); \
        mode_t mode = creation_mode(flags, arguments); \
        va_end(arguments); \
        return open_path(directory, path, flags, mode); \
    }

#define VEKSIM_FOPEN(name, symbol) \
    FILE *name(const char *path, const char *mode) VEKSIM_HOOK(symbol); \
    FILE *name(const char *path, const char *mode) \
    { \
        return open_stream(path, mode, nullptr); \
    }

#define VEKSIM_FREOPEN(name, symbol) \
    FILE *name(const char *path, const char *mode, FILE *stream) VEKSIM_HOOK(symbol); \
    FILE *name(const char *path, const char *mode, FILE *stream) \
    { \
        return path == nullptr ? next_freopen(path, mode, stream) : open_stream(path, mode, stream); \
    }

#define VEKSIM_STAT(name, symbol, real) \
    int name(const char *path, struct stat *info) VEKSIM_HOOK(symbol); \
    int name(const char *path, struct stat *info) \
    { \
        return stat_path(path, info, [&](const char *text) { return real(text, info); }); \
    }

#define VEKSIM_FSTAT(name, symbol) \
    int name(int fd, struct stat *info) VEKSIM_HOOK(symbol); \
    int name(int fd, struct stat *info) \
    { \
        return stat_descriptor(fd, info); \
    }

#define VEKSIM_FSTATAT(name, symbol) \
    int name(int directory, const char *path, struct stat *info, int flags) VEKSIM_HOOK(symbol); \
    int name(int directory, const char *path, struct stat *info, int flags) \
    { \
        if ((flags & AT_EMPTY_PATH) != 0 && (path == nullptr || *path == '\0') && directory >= 0) { \
            return stat_descriptor(directory, info); \
        } \
        return stat_path(path, info, [&](const char *text) { return next_fstatat(directory, text, info, flags); }); \
    }

// The names programs and tools built before the plain ones were functions use.
#define VEKSIM_OLD_STAT(name, symbol, real) \
    int name(int, const char *path, struct stat *info) VEKSIM_HOOK(symbol); \
    int name(int, const char *path, struct stat *info) \
    { \
        return stat_path(path, info, [&](const char *text) { return real(text, info); }); \
    }

#define VEKSIM_OLD_FSTAT(name, symbol) \
    int name(int, int fd, struct stat *info) VEKSIM_HOOK(symbol); \
    int name(int, int fd, struct stat *info) \
    { \
        return stat_descriptor(fd, info); \
    }

#define VEKSIM_SCANDIR(name, symbol) \
    int name(const char *path, struct dirent ***names, scan_filter *filter, scan_order *order) VEKSIM_HOOK(symbol); \
    int name(const char *path, struct dirent ***names, scan_filter *filter, scan_order *order) \
    { \
        host_path target(path); \
        return target.settle(next_scandir(target.text(), names, filter, order)); \
    }

#define VEKSIM_PWRITE(name, symbol) \
    ssize_t name(int fd, const void *bytes, std::size_t size, off_t offset) VEKSIM_HOOK(symbol); \
    ssize_t name(int fd, const void *bytes, std::size_t size, off_t offset) \
    { \
        return mark_of(fd) == mark::store ? store(fd, bytes, size) : next_pwrite(fd, bytes, size, offset); \
    }

#define VEKSIM_FCNTL(name, symbol) \
    int name(int fd, int command, ...) VEKSIM_HOOK(symbol); \
    int name(int fd, int command, ...) \
    { \
        va_list arguments; \
        va_start(arguments, command); \
        void *argument = va_arg(arguments, void *); \
        va_end(arguments); \
        int result = next_fcntl(fd, command, argument); \
        bool copies = command == F_DUPFD || command == F_DUPFD_CLOEXEC; \
        return copies ? copy_mark(fd, result) : result; \
    }

#define VEKSIM_XATTR(name, symbol, real) \
    ssize_t name(const char *path, const char *key, void *value, std::size_t size) VEKSIM_HOOK(symbol); \
    ssize_t name(const char *path, const char *key, void *value, std::size_t size) \
    { \
        host_path target(path); \
        return real(target.text(), key, value, size); \
    }

extern "C" {

VEKSIM_OPEN(hook_open, "open")
VEKSIM_OPEN(hook_open64, "open64")
VEKSIM_OPEN(hook_open_2, "__open_2")
VEKSIM_OPEN(hook_open64_2, "__open64_2")
VEKSIM_OPENAT(hook_openat, "openat")
VEKSIM_OPENAT(hook_openat64, "openat64")
VEKSIM_OPENAT(hook_openat_2, "__openat_2")
VEKSIM_OPENAT(hook_openat64_2, "__openat64_2")
VEKSIM_FOPEN(hook_fopen, "fopen")
VEKSIM_FOPEN(hook_fopen64, "fopen64")
VEKSIM_FREOPEN(hook_freopen, "freopen")
VEKSIM_FREOPEN(hook_freopen64, "freopen64")
VEKSIM_SCANDIR(hook_scandir, "scandir")
VEKSIM_SCANDIR(hook_scandir64, "scandir64")
VEKSIM_STAT(hook_stat, "stat", next_stat)
VEKSIM_STAT(hook_stat64, "stat64", next_stat)
VEKSIM_STAT(hook_lstat, "lstat", next_lstat)
VEKSIM_STAT(hook_lstat64, "lstat64", next_lstat)
VEKSIM_FSTAT(hook_fstat, "fstat")
VEKSIM_FSTAT(hook_fstat64, "fstat64")
VEKSIM_FSTATAT(hook_fstatat, "fstatat")
VEKSIM_FSTATAT(hook_fstatat64, "fstatat64")
VEKSIM_OLD_STAT(hook_xstat, "__xstat", next_stat)
VEKSIM_OLD_STAT(hook_xstat64, "__xstat64", next_stat)
VEKSIM_OLD_STAT(hook_lxstat, "__lxstat", next_lstat)
VEKSIM_OLD_STAT(hook_lxstat64, "__lxstat64", next_lstat)
VEKSIM_OLD_FSTAT(hook_fxstat, "__fxstat")
VEKSIM_OLD_FSTAT(hook_fxstat64, "__fxstat64")
VEKSIM_PWRITE(hook_pwrite, "pwrite")
VEKSIM_PWRITE(hook_pwrite64, "pwrite64")
VEKSIM_FCNTL(hook_fcntl, "fcntl")
VEKSIM_FCNTL(hook_fcntl64, "fcntl64")
VEKSIM_XATTR(hook_getxattr, "getxattr", next_getxattr)
VEKSIM_XATTR(hook_lgetxattr, "lgetxattr", next_lgetxattr)

int hook_fclose(FILE *stream) VEKSIM_HOOK("fclose");
int hook_fclose(FILE *stream)
{
    set_mark(fileno(stream), mark::none);
    return next_fclose(stream);
}

DIR *hook_opendir(const char *path) VEKSIM_HOOK("opendir");
DIR *hook_opendir(const char *path)
{
    host_path target(path);
    DIR *directory = next_opendir(target.text());
    target.settle(directory == nullptr ? -1 : 0);
    return directory;
}

int hook_access(const char *path, int mode) VEKSIM_HOOK("access");
int hook_access(const char *path, int mode)
{
    return check_access(path, mode, [&](const char *text) { return next_access(text, mode); });
}

int hook_euidaccess(const char *path, int mode) VEKSIM_HOOK("euidaccess");
int hook_euidaccess(const char *path, int mode)
{
    return check_access(path, mode, [&](const char *text) { return next_euidaccess(text, mode); });
}

int hook_eaccess(const char *path, int mode) VEKSIM_HOOK("eaccess");
int hook_eaccess(const char *path, int mode)
{
    return hook_euidaccess(path, mode);
}

int hook_faccessat(int directory, const char *path, int mode, int flags) VEKSIM_HOOK("faccessat");
int hook_faccessat(int directory, const char *path, int mode, int flags)
{
    return check_access(path, mode, [&](const char *text) { return next_faccessat(directory, text, mode, flags); });
}

int hook_statx(int directory, const char *path, int flags, unsigned mask, struct statx *info) VEKSIM_HOOK("statx");
int hook_statx(int directory, const char *path, int flags, unsigned mask, struct statx *info)
{
    host_path target(path);
    int result = target.settle(next_statx(directory, target.text(), flags, mask, info));
    unsigned card = 0;
    bool of_path = target.where() == zone::dri && card_of_path(target.text(), &card);
    if (result == 0 && (of_path || ((flags & AT_EMPTY_PATH) != 0 && card_of_descriptor(directory, &card)))) {
        info->stx_mode = static_cast<decltype(info->stx_mode)>(S_IFCHR | 0660);
        info->stx_rdev_major = drm_major;
        info->stx_rdev_minor = card;
    }
    return result;
}

ssize_t hook_readlink(const char *path, char *buffer, std::size_t size) VEKSIM_HOOK("readlink");
ssize_t hook_readlink(const char *path, char *buffer, std::size_t size)
{
    return read_link(path, buffer, size);
}

ssize_t hook_readlink_chk(const char *path, char *buffer, std::size_t size, std::size_t) VEKSIM_HOOK("__readlink_chk");
ssize_t hook_readlink_chk(const char *path, char *buffer, std::size_t size, std::size_t)
{
    return read_link(path, buffer, size);
}

char *hook_realpath(const char *path, char *resolved) VEKSIM_HOOK("realpath");
char *hook_realpath(const char *path, char *resolved)
{
    return resolve(path, resolved);
}

char *hook_realpath_chk(const char *path, char *resolved, std::size_t) VEKSIM_HOOK("__realpath_chk");
char *hook_realpath_chk(const char *path, char *resolved, std::size_t)
{
    return resolve(path, resolved);
}

int hook_unlink(const char *path) VEKSIM_HOOK("unlink");
int hook_unlink(const char *path)
{
    host_path target(path);
    return next_unlink(target.text());
}

int hook_chdir(const char *path) VEKSIM_HOOK("chdir");
int hook_chdir(const char *path)
{
    host_path target(path);
    return next_chdir(target.text());
}

void *hook_dlopen(const char *path, int flags) VEKSIM_HOOK("dlopen");
void *hook_dlopen(const char *path, int flags)
{
    host_path target(path);
    return next_dlopen(target.text(), flags);
}

ssize_t hook_write(int fd, const void *bytes, std::size_t size) VEKSIM_HOOK("write");
ssize_t hook_write(int fd, const void *bytes, std::size_t size)
{
    return mark_of(fd) == mark::store ? store(fd, bytes, size) : next_write(fd, bytes, size);
}

int hook_close(int fd) VEKSIM_HOOK("close");
int hook_close(int fd)
{
    set_mark(fd, mark::none);
    return next_close(fd);
}

int hook_dup(int fd) VEKSIM_HOOK("dup");
int hook_dup(int fd)
{
    return copy_mark(fd, next_dup(fd));
}

int hook_dup2(int fd, int target) VEKSIM_HOOK("dup2");
int hook_dup2(int fd, int target)
{
    return copy_mark(fd, next_dup2(fd, target));
}

int hook_dup3(int fd, int target, int flags) VEKSIM_HOOK("dup3");
int hook_dup3(int fd, int target, int flags)
{
    return copy_mark(fd, next_dup3(fd, target, flags));
}

int hook_ioctl(int fd, unsigned long request, ...) VEKSIM_HOOK("ioctl");
int hook_ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    unsigned card = 0;
    if (card_of_descriptor(fd, &card)) {
        return card_request(card, static_cast<unsigned>(request), argument);
    }
    return next_ioctl(fd, request, argument);
}

} // extern "C"
