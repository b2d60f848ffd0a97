// SPDX-License-Identifier: Apache-2.0
#include "tree.h"

#include "../veksim.h"
#include "next.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace veksim {
namespace {

next<int(const char *, int)> next_access("access");
next<int(const char *, struct stat *)> next_stat("stat");
next<int(int, struct stat *)> next_fstat("fstat");
next<ssize_t(const char *, char *, std::size_t)> next_readlink("readlink");
next<char *(const char *, char *)> next_realpath("realpath");
next<int(const char *, int, ...)> next_open("open");
next<ssize_t(int, const void *, std::size_t)> next_write("write");
next<ssize_t(int, const void *, std::size_t, off_t)> next_pwrite("pwrite");
next<int(int)> next_close("close");

struct redirection {
    const char *prefix;
    std::uint8_t length;
    zone where;
    bool whole; // the path itself only, nothing below it
};

template <std::size_t Size>
constexpr redirection redirect(const char (&prefix)[Size], zone where, bool whole)
{
    return {prefix, Size - 1, where, whole};
}

constexpr redirection redirections[] = {
    redirect("/sys/class/drm", zone::sysfs, false),
    redirect("/tmp/smi.log", zone::plain, true),
    redirect("/sys/kernel/debug", zone::sysfs, false),
    redirect("/sys/bus/pci", zone::sysfs, false),
    redirect("/sys/dev/char", zone::sysfs, false),
    redirect("/sys/devices", zone::sysfs, false),
    redirect("/dev/dri", zone::dri, false),
    redirect("/dev/mem", zone::plain, true),
    redirect("/opt/vekgpu/lib/aarch64-linux-gnu", zone::plain, false),
    redirect("/usr/lib64/vekgpu", zone::plain, false),
    redirect("/usr/lib/aarch64-linux-gnu/vekgpu", zone::plain, false),
    redirect("/usr/lib/aarch64-linux-gnu/dri", zone::plain, false),
};

// Two roots take turns, so that a reader of the old one never sees it half rewritten.
struct root {
    char path[PATH_MAX];
    std::size_t length;
};
root roots[2];
std::atomic<const root *> current{nullptr};
std::atomic<bool> asked_environment{false};

std::array<std::atomic<mark>, 4096> marks{};

void use(const char *path)
{
    root *fresh = current.load() == &roots[0] ? &roots[1] : &roots[0];
    char resolved[PATH_MAX];
    const char *whole = next_realpath(path, resolved) != nullptr ? resolved : path;
    fresh->length = strnlen(whole, sizeof fresh->path - 1);
    memcpy(fresh->path, whole, fresh->length);
    fresh->path[fresh->length] = '\0';
    current.store(fresh, std::memory_order_release);
}

// Descriptors opened by the program that started this one (a shell's "> node") are ours as well.
void adopt_standard_descriptors()
{
    for (int fd = 0; fd <= 2; ++fd) {
        char link[32];
        char target[PATH_MAX];
        snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
        ssize_t length = next_readlink(link, target, sizeof target - 1);
        if (length <= 0) {
            continue;
        }
        target[length] = '\0';
        const char *name = outside_name(target);
        if (name != target && strncmp(name, "/sys/", 5) == 0) {
            set_mark(fd, mark::store);
        }
    }
}

const root *active()
{
    if (!asked_environment.load(std::memory_order_acquire)) {
        if (environ == nullptr) {
            return nullptr; // too early in the program's life to know
        }
        const char *path = getenv("VEKSIM_TREE");
        if (path != nullptr && *path != '\0') {
            use(path);
        }
        asked_environment.store(true, std::memory_order_release);
        if (path != nullptr && *path != '\0') {
            adopt_standard_descriptors();
        }
    }
    return current.load(std::memory_order_acquire);
}

const redirection *find_redirection(const char *path)
{
    if (path[0] != '/' || strchr("stdou", path[1]) == nullptr) {
        return nullptr;
    }
    for (const redirection &entry : redirections) {
        if (strncmp(path, entry.prefix, entry.length) == 0) {
            char after = path[entry.length];
            if (after == '\0' || (after == '/' && !entry.whole)) {
                return &entry;
            }
        }
    }
    return nullptr;
}

bool join(char *buffer, const root &base, const char *name)
{
    std::size_t length = strlen(name);
    if (base.length + length >= PATH_MAX) {
        return false;
    }
    memcpy(buffer, base.path, base.length);
    memcpy(buffer + base.length, name, length + 1);
    return true;
}

// "/proc/123" and below, for processes that the tree has.
bool simulated_process(char *buffer, const root &base, const char *path)
{
    constexpr std::size_t prefix = sizeof "/proc/" - 1;
    std::size_t digits = strspn(path + prefix, "0123456789");
    char after = path[prefix + digits];
    if (digits == 0 || (after != '\0' && after != '/') || !join(buffer, base, path)) {
        return false;
    }
    char *end = buffer + base.length + prefix + digits;
    char kept = *end;
    *end = '\0';
    int saved = errno;
    bool present = next_access(buffer, F_OK) == 0;
    errno = saved;
    *end = kept;
    return present;
}

bool descriptor_path(int fd, char *buffer, std::size_t size)
{
    char link[32];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    ssize_t length = next_readlink(link, buffer, size - 1);
    if (length <= 0) {
        return false;
    }
    buffer[length] = '\0';
    return true;
}

// The driver rewrites some nodes by renaming; a descriptor opened before still means the node of that name.
int reopen_replaced(int fd)
{
    constexpr const char suffix[] = " (deleted)";
    char path[PATH_MAX];
    if (!descriptor_path(fd, path, sizeof path)) {
        return -1;
    }
    std::size_t length = strlen(path);
    if (length > sizeof suffix - 1 && strcmp(path + length - (sizeof suffix - 1), suffix) == 0) {
        path[length - (sizeof suffix - 1)] = '\0';
    }
    return next_open(path, O_WRONLY | O_CLOEXEC);
}

ssize_t replace_content(int fd, const void *bytes, std::size_t size)
{
    ssize_t written = next_pwrite(fd, bytes, size, off_t{0});
    if (written < 0) {
        return written;
    }
    off_t length = written;
    if (written > 0 && static_cast<const char *>(bytes)[written - 1] != '\n' && tree_has("/host/live")) {
        length += next_pwrite(fd, "\n", std::size_t{1}, static_cast<off_t>(written));
    }
    if (ftruncate(fd, length) != 0) {
        return -1;
    }
    lseek(fd, length, SEEK_SET);
    return written;
}

} // namespace

const char *tree()
{
    const root *base = active();
    return base == nullptr ? nullptr : base->path;
}

bool tree_path(char *buffer, const char *name)
{
    const root *base = active();
    return base != nullptr && join(buffer, *base, name);
}

bool tree_has(const char *name)
{
    char path[PATH_MAX];
    if (!tree_path(path, name)) {
        return false;
    }
    int saved = errno;
    bool present = next_access(path, F_OK) == 0;
    errno = saved;
    return present;
}

const char *outside_name(const char *path)
{
    const root *base = active();
    if (base != nullptr && strncmp(path, base->path, base->length) == 0 && path[base->length] == '/') {
        return path + base->length;
    }
    return path;
}

host_path::host_path(const char *path) : text_(path)
{
    const root *base = active();
    if (base == nullptr || path == nullptr) {
        return;
    }
    if (strncmp(path, "/proc/", 6) == 0) {
        if (simulated_process(buffer_, *base, path)) {
            text_ = buffer_;
            zone_ = zone::plain;
        }
        return;
    }
    const redirection *entry = find_redirection(path);
    if (entry != nullptr) {
        text_ = join(buffer_, *base, path) ? buffer_ : "";
        zone_ = entry->where;
    }
}

bool host_path::planted_failure() const
{
    if (!inside()) {
        return false;
    }
    int saved = errno;
    char target[32];
    ssize_t length = next_readlink(text_, target, sizeof target - 1);
    errno = saved;
    constexpr const char prefix[] = "errno:";
    if (length < static_cast<ssize_t>(sizeof prefix) || memcmp(target, prefix, sizeof prefix - 1) != 0) {
        return false;
    }
    target[length] = '\0';
    errno = atoi(target + sizeof prefix - 1);
    return true;
}

int host_path::settle(int result) const
{
    if (result < 0) {
        planted_failure();
    }
    return result;
}

bool host_path::write_protected() const
{
    struct stat info;
    int saved = errno;
    bool closed = zone_ == zone::sysfs && next_stat(text_, &info) == 0 && (info.st_mode & 0222) == 0;
    errno = saved;
    return closed;
}

mark mark_of(int fd)
{
    std::size_t index = static_cast<std::size_t>(fd);
    return index < marks.size() ? marks[index].load(std::memory_order_relaxed) : mark::none;
}

void set_mark(int fd, mark value)
{
    std::size_t index = static_cast<std::size_t>(fd);
    if (index < marks.size() && marks[index].load(std::memory_order_relaxed) != value) {
        marks[index].store(value, std::memory_order_relaxed);
    }
}

bool card_of_path(const char *path_in_tree, unsigned *card)
{
    constexpr const char prefix[] = "/dev/dri/card";
    const char *name = outside_name(path_in_tree);
    if (name == path_in_tree || strncmp(name, prefix, sizeof prefix - 1) != 0) {
        return false;
    }
    const char *number = name + sizeof prefix - 1;
    std::size_t digits = strspn(number, "0123456789");
    if (digits == 0 || digits > 3 || number[digits] != '\0') {
        return false;
    }
    *card = static_cast<unsigned>(atoi(number));
    return true;
}

bool card_of_descriptor(int fd, unsigned *card)
{
    char path[PATH_MAX];
    return mark_of(fd) == mark::card && descriptor_path(fd, path, sizeof path) && card_of_path(path, card);
}

// A sysfs attribute takes each write as its whole new value. The lock keeps the driver model from
// replacing the node between the look at it and the write.
ssize_t store(int fd, const void *bytes, std::size_t size)
{
    struct stat info;
    if (next_fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        return next_write(fd, bytes, size);
    }
    flock(fd, LOCK_EX);
    ssize_t written = -1;
    if (next_fstat(fd, &info) == 0 && info.st_nlink == 0) {
        flock(fd, LOCK_UN);
        int fresh = reopen_replaced(fd);
        if (fresh < 0) {
            return -1;
        }
        written = store(fresh, bytes, size);
        next_close(fresh);
        return written;
    }
    written = replace_content(fd, bytes, size);
    int saved = errno;
    flock(fd, LOCK_UN);
    errno = saved;
    return written;
}

} // namespace veksim

extern "C" __attribute__((visibility("default"))) void veksim_use(const char *path)
{
    veksim::asked_environment.store(true);
    if (path == nullptr) {
        veksim::current.store(nullptr);
    } else {
        veksim::use(path);
    }
    veksim::rewind_clock();
}
