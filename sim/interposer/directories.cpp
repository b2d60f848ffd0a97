// SPDX-License-Identifier: Apache-2.0
// The calls that list directories. One that holds some names of the tree's and others of the real host's, such as /proc
// or /sys/class, is listed from both.
#include "descriptors.h"
#include "libc.h"
#include "lock.h"
#include "tree.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace veksim {
namespace {

struct listing {
    DIR *real;
    DIR *tree;
    bool in_tree; // the real part is through
    char name[64];
};
std::array<listing, 32> listings{};
std::atomic<int> listings_count{0};
pthread_mutex_t listings_guard = PTHREAD_MUTEX_INITIALIZER;

listing *listing_of(DIR *directory)
{
    if (listings_count.load(std::memory_order_acquire) == 0)
        return nullptr;
    const lock held(listings_guard);
    for (listing &entry : listings) {
        if (entry.real == directory)
            return &entry;
    }
    return nullptr;
}

// REAL, which is directory NAME of the host, together with what the tree has of it.
DIR *join_listings(DIR *real, const char *name)
{
    char path[PATH_MAX];
    if (real == nullptr || name == nullptr || !tree_path(path, name))
        return real;
    int saved = errno;
    DIR *ours = libc::opendir(path);
    errno = saved;
    if (ours == nullptr)
        return real;
    const lock held(listings_guard);
    for (listing &entry : listings) {
        if (entry.real == nullptr) {
            entry = {real, ours, false, ""};
            snprintf(entry.name, sizeof entry.name, "%s", name);
            listings_count.fetch_add(1, std::memory_order_release);
            return real;
        }
    }
    libc::closedir(ours);
    return real;
}

bool is_led(const listing &directory, const char *name)
{
    char path[sizeof directory.name + NAME_MAX + 2];
    snprintf(path, sizeof path, "%s/%s", directory.name, name);
    return host_path(path).inside();
}

struct dirent *read_joined(listing &directory)
{
    if (!directory.in_tree) {
        while (struct dirent *entry = libc::readdir(directory.real)) {
            if (!is_led(directory, entry->d_name))
                return entry;
        }
        directory.in_tree = true;
    }
    while (struct dirent *entry = libc::readdir(directory.tree)) {
        if (entry->d_name[0] != '.' && is_led(directory, entry->d_name))
            return entry;
    }
    return nullptr;
}

// glob() walks directories by itself; these make it walk through the hooks.
void lead_glob(glob_t *matches)
{
    matches->gl_opendir = [](const char *path) -> void * { return opendir(path); };
    matches->gl_readdir = [](void *directory) { return readdir(static_cast<DIR *>(directory)); };
    matches->gl_closedir = [](void *directory) { closedir(static_cast<DIR *>(directory)); };
    matches->gl_stat = [](const char *path, struct stat *info) { return stat(path, info); };
    matches->gl_lstat = [](const char *path, struct stat *info) { return lstat(path, info); };
}

// As scandir() does it, over what readdir() gives.
int scan(DIR *directory, struct dirent ***names, scan_filter *filter, scan_order *order)
{
    struct dirent **found = nullptr;
    std::size_t count = 0;
    while (const struct dirent *entry = readdir(directory)) {
        if (filter != nullptr && filter(entry) == 0)
            continue;
        void *longer = realloc(found, (count + 1) * sizeof *found); // NOLINT: a list of pointers
        void *copy = malloc(entry->d_reclen);
        found = longer != nullptr ? static_cast<struct dirent **>(longer) : found;
        if (longer == nullptr || copy == nullptr) {
            free(copy);
            break;
        }
        found[count++] = static_cast<struct dirent *>(memcpy(copy, entry, entry->d_reclen));
    }
    if (order != nullptr && count > 1)
        qsort(found, count, sizeof *found, // NOLINT: likewise
              reinterpret_cast<int (*)(const void *, const void *)>(order));
    *names = found;
    return static_cast<int>(count);
}

__thread walk_step *current_step;

// The step of a walk, by the names that the host has.
int take_step(const char *path, const struct stat *info, int type, struct FTW *place)
{
    const char *name = name_on_host(path);
    struct FTW moved = *place;
    moved.base -= static_cast<int>(name - path);
    struct stat seen = *info;
    unsigned card = 0;
    if (card_of_path(path, &card))
        make_character_device(&seen, card);
    return current_step(name, &seen, type, &moved);
}

template <typename Open>
void *open_led_walk(Open &open, char *const *paths, int options, void *order)
{
    std::size_t count = 0;
    while (paths[count] != nullptr)
        ++count;
    char **led = static_cast<char **>(calloc(count + 1, sizeof *led));
    if (led == nullptr)
        return nullptr;
    for (std::size_t i = 0; i < count; ++i)
        led[i] = strdup(host_path(paths[i]).text());
    void *walk = open(const_cast<char *const *>(led), options, order);
    int saved = errno;
    for (std::size_t i = 0; i < count; ++i)
        free(led[i]);
    free(led);
    errno = saved;
    return walk;
}

} // namespace

extern "C" {

DIR *hook_opendir(const char *path)
{
    host_path target(path);
    DIR *directory = libc::opendir(target.text());
    target.or_planted_failure(directory == nullptr ? -1 : 0);
    return target.inside() ? directory : join_listings(directory, directory_of_both(path));
}
VEKSIM_PUBLISH(opendir, hook_opendir);

DIR *hook_fdopendir(int fd)
{
    char path[PATH_MAX];
    bool known = tree() != nullptr && node_of_descriptor(fd, path);
    return join_listings(libc::fdopendir(fd), known ? directory_of_both(path) : nullptr);
}
VEKSIM_PUBLISH(fdopendir, hook_fdopendir);

struct dirent *hook_readdir(DIR *directory)
{
    listing *both = listing_of(directory);
    return both == nullptr ? libc::readdir(directory) : read_joined(*both);
}
VEKSIM_PUBLISH(readdir, hook_readdir);
VEKSIM_PUBLISH(readdir64, hook_readdir);

void hook_rewinddir(DIR *directory)
{
    if (listing *both = listing_of(directory)) {
        libc::rewinddir(both->tree);
        both->in_tree = false;
    }
    libc::rewinddir(directory);
}
VEKSIM_PUBLISH(rewinddir, hook_rewinddir);

int hook_closedir(DIR *directory)
{
    if (listing *both = listing_of(directory)) {
        libc::closedir(both->tree);
        const lock held(listings_guard);
        *both = {};
        listings_count.fetch_sub(1, std::memory_order_release);
    }
    return libc::closedir(directory);
}
VEKSIM_PUBLISH(closedir, hook_closedir);

int hook_scandirat(int directory, const char *path, struct dirent ***names, scan_filter *filter, scan_order *order)
{
    host_path target(path, directory);
    if (target.inside() || directory_of_both(path) == nullptr)
        return target.or_planted_failure(libc::scandirat(directory, target.text(), names, filter, order));
    DIR *both = opendir(path);
    if (both == nullptr)
        return -1;
    int count = scan(both, names, filter, order);
    closedir(both);
    return count;
}
VEKSIM_PUBLISH(scandirat, hook_scandirat);
VEKSIM_PUBLISH(scandirat64, hook_scandirat);

int hook_scandir(const char *path, struct dirent ***names, scan_filter *filter, scan_order *order)
{
    return hook_scandirat(AT_FDCWD, path, names, filter, order);
}
VEKSIM_PUBLISH(scandir, hook_scandir);
VEKSIM_PUBLISH(scandir64, hook_scandir);

int hook_glob(const char *pattern, int flags, int (*report)(const char *, int), glob_t *matches)
{
    if (tree() == nullptr || (flags & GLOB_ALTDIRFUNC) != 0)
        return libc::glob(pattern, flags, report, matches);
    lead_glob(matches);
    int result = libc::glob(pattern, flags | GLOB_ALTDIRFUNC, report, matches);
    matches->gl_flags &= ~GLOB_ALTDIRFUNC;
    return result;
}
VEKSIM_PUBLISH(glob, hook_glob);
VEKSIM_PUBLISH(glob64, hook_glob);

int hook_nftw(const char *path, walk_step *step, int descriptors, int flags)
{
    host_path target(path);
    if (!target.inside())
        return libc::nftw(path, step, descriptors, flags);
    walk_step *outer = current_step;
    current_step = step;
    int result = libc::nftw(target.text(), take_step, descriptors, flags);
    current_step = outer;
    return result;
}
VEKSIM_PUBLISH(nftw, hook_nftw);
VEKSIM_PUBLISH(nftw64, hook_nftw);

// What such a walk meets bears the names that it has in the tree.
void *hook_fts_open(char *const *paths, int options, void *order)
{
    return open_led_walk(libc::fts_open, paths, options, order);
}
VEKSIM_PUBLISH(fts_open, hook_fts_open);

void *hook_fts64_open(char *const *paths, int options, void *order)
{
    return open_led_walk(libc::fts64_open, paths, options, order);
}
VEKSIM_PUBLISH(fts64_open, hook_fts64_open);

} // extern "C"
} // namespace veksim
