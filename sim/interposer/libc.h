// SPDX-License-Identifier: Apache-2.0
// The libc functions behind the hooks. Only these may be called for what is hooked: the plain names lead back here.
#pragma once

#include "next.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <dirent.h>
#include <ftw.h>
#include <glob.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <time.h>
#include <utime.h>

namespace veksim {

using scan_filter = int(const struct dirent *);
using walk_step = int(const char *, const struct stat *, int, struct FTW *);
using scan_order = int(const struct dirent **, const struct dirent **);

namespace libc {

inline constinit next<int(int, const char *, int, ...)> openat("openat");
inline constinit next<FILE *(const char *, const char *)> fopen("fopen");
inline constinit next<FILE *(const char *, const char *, FILE *)> freopen("freopen");
inline constinit next<int(FILE *)> fflush("fflush");
inline constinit next<int(FILE *)> fclose("fclose");
inline constinit next<DIR *(const char *)> opendir("opendir");
inline constinit next<DIR *(int)> fdopendir("fdopendir");
inline constinit next<struct dirent *(DIR *)> readdir("readdir");
inline constinit next<void(DIR *)> rewinddir("rewinddir");
inline constinit next<int(DIR *)> closedir("closedir");
inline constinit next<int(const char *, walk_step *, int, int)> nftw("nftw");
inline constinit next<void *(char *const *, int, void *)> fts_open("fts_open");
inline constinit next<void *(char *const *, int, void *)> fts64_open("fts64_open");
inline constinit next<int(int, const char *, struct dirent ***, scan_filter *, scan_order *)> scandirat("scandirat");
inline constinit next<int(const char *, int, int (*)(const char *, int), glob_t *)> glob("glob");
inline constinit next<void *(const char *, int)> dlopen("dlopen");

inline constinit next<int(int, const char *, int, int)> faccessat("faccessat");
inline constinit next<int(int, const char *, struct stat *, int)> fstatat("fstatat");
inline constinit next<int(int, const char *, int, unsigned, struct statx *)> statx("statx");
inline constinit next<ssize_t(int, const char *, char *, std::size_t)> readlinkat("readlinkat");
inline constinit next<char *(const char *, char *)> realpath("realpath");
inline constinit next<char *(char *, std::size_t)> getcwd("getcwd");
inline constinit next<ssize_t(const char *, const char *, void *, std::size_t)> getxattr("getxattr");
inline constinit next<ssize_t(const char *, const char *, void *, std::size_t)> lgetxattr("lgetxattr");
inline constinit next<ssize_t(const char *, char *, std::size_t)> listxattr("listxattr");
inline constinit next<ssize_t(const char *, char *, std::size_t)> llistxattr("llistxattr");
inline constinit next<int(const char *, struct statvfs *)> statvfs("statvfs");
inline constinit next<int(const char *, struct statfs *)> statfs("statfs");
inline constinit next<int(int, const char *, std::uint32_t)> inotify_add_watch("inotify_add_watch");

inline constinit next<int(const char *)> chdir("chdir");
inline constinit next<int(int, const char *, int)> unlinkat("unlinkat");
inline constinit next<int(const char *)> remove("remove");
inline constinit next<int(int, const char *, int, const char *, unsigned)> renameat2("renameat2");
inline constinit next<int(const char *, int, const char *)> symlinkat("symlinkat");
inline constinit next<int(int, const char *, mode_t)> mkdirat("mkdirat");
inline constinit next<int(int, const char *, mode_t, int)> fchmodat("fchmodat");
inline constinit next<int(const char *, off_t)> truncate("truncate");
inline constinit next<int(int, const char *, uid_t, gid_t, int)> fchownat("fchownat");
inline constinit next<int(int, const char *, int, const char *, int)> linkat("linkat");
inline constinit next<int(int, const char *, mode_t, dev_t)> mknodat("mknodat");
inline constinit next<int(int, const char *, const struct timespec *, int)> utimensat("utimensat");
inline constinit next<int(const char *, const struct utimbuf *)> utime("utime");
inline constinit next<int(int, const char *, const struct timeval *)> futimesat("futimesat");
inline constinit next<int(const char *, const struct timeval *)> lutimes("lutimes");

inline constinit next<int(int, struct stat *)> fstat("fstat");
inline constinit next<ssize_t(int, void *, std::size_t)> read("read");
inline constinit next<ssize_t(int, void *, std::size_t, off_t)> pread("pread");
inline constinit next<ssize_t(int, const struct iovec *, int)> readv("readv");
inline constinit next<ssize_t(int, const struct iovec *, int, off_t)> preadv("preadv");
inline constinit next<ssize_t(int, const void *, std::size_t)> write("write");
inline constinit next<ssize_t(int, const void *, std::size_t, off_t)> pwrite("pwrite");
inline constinit next<ssize_t(int, const struct iovec *, int)> writev("writev");
inline constinit next<int(int, const char *, va_list)> vdprintf("vdprintf");
inline constinit next<int(int, off_t)> ftruncate("ftruncate");
inline constinit next<ssize_t(int, int, off_t *, std::size_t)> sendfile("sendfile");
inline constinit next<ssize_t(int, off_t *, int, off_t *, std::size_t, unsigned)> copy_file_range("copy_file_range");
inline constinit next<int(int)> close("close");
inline constinit next<int(unsigned, unsigned, int)> close_range("close_range");
inline constinit next<void(int)> closefrom("closefrom");
inline constinit next<int(int)> dup("dup");
inline constinit next<int(int, int)> dup2("dup2");
inline constinit next<int(int, int, int)> dup3("dup3");
inline constinit next<int(int, int, ...)> fcntl("fcntl");
inline constinit next<int(int, unsigned long, ...)> ioctl("ioctl");

inline constinit next<FILE *(const char *, const char *)> popen("popen");
inline constinit next<int(FILE *)> pclose("pclose");

inline constinit next<int(struct timeval *, void *)> gettimeofday("gettimeofday");
inline constinit next<int(clockid_t, struct timespec *)> clock_gettime("clock_gettime");
inline constinit next<time_t(time_t *)> time("time");
inline constinit next<unsigned(unsigned)> sleep("sleep");
inline constinit next<int(useconds_t)> usleep("usleep");
inline constinit next<int(const struct timespec *, struct timespec *)> nanosleep("nanosleep");
inline constinit next<int(clockid_t, int, const struct timespec *, struct timespec *)>
    clock_nanosleep("clock_nanosleep");
inline constinit next<uid_t()> geteuid("geteuid");
inline constinit next<uid_t()> getuid("getuid");

} // namespace libc
} // namespace veksim
