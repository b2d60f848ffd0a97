// SPDX-License-Identifier: Apache-2.0
#include "tree.h"

#include "../tree_check.h"
#include "../veksim.h"
#include "clock.h"
#include "descriptors.h"
#include "faults.h"
#include "libc.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <unistd.h>

namespace veksim {
namespace {

struct redirection {
    const char *prefix;
    zone where;
    bool whole; // the path itself only, nothing below it
};

constexpr redirection redirections[] = {
    {"/sys/class/drm", zone::sysfs, false},
    {"/tmp/smi.log", zone::plain, true},
    {"/etc/vekgpu/units.conf", zone::plain, true},
    {"/sys/kernel/debug", zone::sysfs, false},
    {"/sys/bus/pci", zone::sysfs, false},
    {"/sys/dev/char", zone::sysfs, false},
    {"/sys/devices", zone::sysfs, false},
    {"/dev/dri", zone::dri, false},
    {"/dev/mem", zone::plain, true},
    {"/opt/vekgpu/lib/aarch64-linux-gnu", zone::plain, false},
    {"/usr/lib64/vekgpu", zone::plain, false},
    {"/usr/lib/aarch64-linux-gnu/vekgpu", zone::plain, false},
    {"/usr/lib/aarch64-linux-gnu/dri", zone::plain, false},
};

constexpr const char *shared_directories[] = {"/proc",
                                              "/sys/class",
                                              "/sys/kernel",
                                              "/sys/bus",
                                              "/sys/dev",
                                              "/sys",
                                              "/dev",
                                              "/opt/vekgpu/lib",
                                              "/usr/lib64",
                                              "/tmp",
                                              "/etc/vekgpu",
                                              "/etc",
                                              "/usr/lib/aarch64-linux-gnu"};

// Two roots take turns, so that a reader of the old one never sees it half rewritten.
struct root {
    char path[PATH_MAX];
    std::size_t length;
};
root roots[2];
std::atomic<const root *> current{nullptr};
std::atomic<bool> asked_environment{false};
std::atomic<bool> trusted{false};
constexpr int not_executable = 126;

void use(const char *path)
{
    root *fresh = current.load() == &roots[0] ? &roots[1] : &roots[0];
    char resolved[PATH_MAX];
    const char *whole = libc::realpath(path, resolved) != nullptr ? resolved : path;
    fresh->length = strnlen(whole, sizeof fresh->path - 1);
    memcpy(fresh->path, whole, fresh->length);
    fresh->path[fresh->length] = '\0';
    current.store(fresh, std::memory_order_release);
}

bool is_set(const char *variable)
{
    const char *value = getenv(variable);
    return value != nullptr && *value != '\0';
}

// veksim has looked at the tree already; whoever loads this library without it may hold a stranger's.
void insist_on_data(const char *path)
{
    const char *checked = getenv("VEKSIM_TREE_CHECKED");
    char what[PATH_MAX];
    if (trusted.load() || (checked != nullptr && strcmp(checked, path) == 0) || tree_is_data(path, what, sizeof what))
        return;
    dprintf(STDERR_FILENO, "libveksim: %s: %s; set VEKSIM_TRUST_TREE=1 to use the tree all the same\n", path, what);
    _exit(not_executable);
}

const root *active()
{
    if (!asked_environment.load(std::memory_order_acquire)) {
        if (environ == nullptr)
            return nullptr; // too early in the program's life to know
        const char *path = getenv("VEKSIM_TREE");
        bool given = path != nullptr && *path != '\0';
        asked_environment.store(true, std::memory_order_release);
        if (given) {
            trusted.store(is_set("VEKSIM_TRUST_TREE"));
            insist_on_data(path);
            use(path);
            adopt_standard_descriptors();
        }
    }
    return current.load(std::memory_order_acquire);
}

const char *after_slashes(const char *path)
{
    while (path[0] == '/' || (path[0] == '.' && path[1] == '/'))
        ++path;
    return path;
}

// What follows PREFIX in PATH, however many slashes PATH spends on it; null when PATH lies elsewhere.
const char *after_prefix(const char *path, const char *prefix)
{
    for (; *prefix != '\0'; ++prefix) {
        if (*path++ != *prefix)
            return nullptr;
        if (*prefix == '/')
            path = after_slashes(path);
    }
    return *path == '\0' || *path == '/' ? path : nullptr;
}

// The pieces one after the other in a buffer of PATH_MAX; false when they do not fit.
bool join(char *buffer, std::initializer_list<const char *> pieces)
{
    std::size_t used = 0;
    for (const char *piece : pieces) {
        std::size_t length = strlen(piece);
        if (used + length >= PATH_MAX)
            return false;
        memcpy(buffer + used, piece, length);
        used += length;
    }
    buffer[used] = '\0';
    return true;
}

// "/proc/123" and below, for processes that the tree has.
bool is_simulated_process(const char *path)
{
    constexpr std::size_t prefix = sizeof "/proc/" - 1;
    char process[32] = "";
    std::size_t digits = strspn(path + prefix, "0123456789");
    char after = path[prefix + digits];
    if (digits == 0 || prefix + digits >= sizeof process || (after != '\0' && after != '/'))
        return false;
    memcpy(process, path, prefix + digits);
    return tree_has(process);
}

// PATH as it is seen from a directory, the working directory where that is AT_FDCWD.
bool make_absolute(char *buffer, int directory, const char *path)
{
    char link[32] = "/proc/self/cwd";
    char base[PATH_MAX];
    if (directory != AT_FDCWD)
        snprintf(link, sizeof link, "/proc/self/fd/%d", directory);
    if (!link_target(link, base))
        return false;
    char *name = base + (name_on_host(base) - base);
    for (path = after_slashes(path); strncmp(path, "../", 3) == 0; path = after_slashes(path + 3)) {
        char *last = strrchr(name, '/');
        if (last != nullptr)
            *last = '\0';
    }
    return join(buffer, {name, "/", path});
}

} // namespace

const char *directory_of_both(const char *path)
{
    char absolute[PATH_MAX];
    if (tree() == nullptr || (*path != '/' && !make_absolute(absolute, AT_FDCWD, path)))
        return nullptr;
    for (const char *name : shared_directories) {
        const char *below = after_prefix(*path == '/' ? path : absolute, name);
        if (below != nullptr && *after_slashes(below) == '\0')
            return name;
    }
    return nullptr;
}

const char *tree()
{
    const root *base = active();
    return base == nullptr ? nullptr : base->path;
}

bool tree_is_trusted()
{
    return trusted.load();
}

bool tree_path(char *buffer, const char *name)
{
    const char *base = tree();
    return base != nullptr && join(buffer, {base, name});
}

bool tree_has(const char *name)
{
    char path[PATH_MAX];
    if (!tree_path(path, name))
        return false;
    int saved = errno;
    bool present = libc::faccessat(AT_FDCWD, path, F_OK, 0) == 0;
    errno = saved;
    return present;
}

const char *name_on_host(const char *path)
{
    const root *base = active();
    if (base == nullptr || strncmp(path, base->path, base->length) != 0 || path[base->length] != '/')
        return path;
    const char *name = path + base->length;
    return after_prefix(name, "/host") == nullptr ? name : path; // a host knows nothing of its own making
}

const char *name_of_node(const char *path)
{
    const char *name = name_on_host(path);
    const root *base = active();
    if (name != path || base == nullptr || strncmp(path, base->path, base->length) != 0)
        return name;
    const char *stuck = after_prefix(path + base->length, "/host/stuck");
    return stuck != nullptr && *stuck != '\0' ? stuck : path;
}

bool link_target(const char *link, char *buffer)
{
    int saved = errno;
    ssize_t length = libc::readlinkat(AT_FDCWD, link, buffer, std::size_t{PATH_MAX - 1});
    errno = saved;
    buffer[length < 0 ? 0 : length] = '\0';
    return length > 0;
}

host_path::host_path(const char *path, int directory) : text_(path)
{
    if (path == nullptr || *path == '\0' || active() == nullptr)
        return;
    char absolute[PATH_MAX];
    if (*path == '/')
        lead(path);
    else if (make_absolute(absolute, directory, path))
        lead(absolute);
}

void host_path::lead(const char *path)
{
    if (strncmp(path, "/proc/", 6) == 0) {
        if (is_simulated_process(path) && tree_path(buffer_, path)) {
            text_ = buffer_;
            zone_ = zone::plain;
        }
        return;
    }
    if (path[0] != '/' || strchr("/.destuo", path[1]) == nullptr)
        return;
    for (const redirection &entry : redirections) {
        const char *below = after_prefix(path, entry.prefix);
        if (below != nullptr && (*below == '\0' || !entry.whole)) {
            const char *slash = *below == '\0' ? "" : "/";
            text_ = join(buffer_, {tree(), entry.prefix, slash, after_slashes(below)}) ? buffer_ : "";
            zone_ = entry.where;
            return;
        }
    }
}

int host_path::or_planted_failure(int result) const
{
    if (result < 0 && inside()) {
        const planted fault = planted_at(text_);
        errno = fault.error != 0 ? fault.error : errno;
    }
    return result;
}

bool host_path::write_protected() const
{
    struct stat info;
    int saved = errno;
    bool closed = zone_ == zone::sysfs && libc::fstatat(AT_FDCWD, text_, &info, 0) == 0 && (info.st_mode & 0222) == 0;
    errno = saved;
    return closed;
}

} // namespace veksim

extern "C" __attribute__((visibility("default"))) void veksim_use(const char *path)
{
    veksim::asked_environment.store(true);
    veksim::trusted.store(true); // the program's own making
    if (path == nullptr)
        veksim::current.store(nullptr);
    else
        veksim::use(path);
    veksim::rewind_clock();
}
