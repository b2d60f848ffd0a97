// SPDX-License-Identifier: Apache-2.0
#include "tree_check.h"

#include "fault_link.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace veksim {
namespace {

constexpr int deepest = 64;

constexpr const char *library_folders[] = {"opt/vekgpu/lib/", "usr/lib64/vekgpu/", "usr/lib/aarch64-linux-gnu/"};

bool begins(const char *text, const char *prefix)
{
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

bool is_library_place(const char *path)
{
    for (const char *folder : library_folders) {
        if (begins(path, folder))
            return strstr(path, ".so") != nullptr;
    }
    return false;
}

bool is_fault(const char *target)
{
    const planted fault = fault_in(target);
    return fault.fails != moment::never || fault.sticks != moment::never || strcmp(target, "/dev/full") == 0 ||
           strcmp(target, "/dev/null") == 0;
}

// Steps up come first and are at most as many as the link's directory is deep, so that whatever links the names after
// them are, each of them checked as well, the way ends inside.
bool stays_inside(const char *target, int depth)
{
    if (*target == '/')
        return false;
    int up = 0;
    bool named = false;
    for (const char *at = target; *at != '\0';) {
        std::size_t length = strcspn(at, "/");
        const bool steps_up = length == 2 && at[0] == '.' && at[1] == '.';
        if (steps_up && (named || ++up > depth))
            return false;
        named = named || (length != 0 && !steps_up && !(length == 1 && at[0] == '.'));
        at += length;
        at += *at == '/' ? 1 : 0;
    }
    return true;
}

class tree_walk {
public:
    tree_walk(char *what, std::size_t size) : what_(what), size_(size) {}

    // DIRECTORY is closed. PATH is where it stands below the root.
    bool check(int directory, const char *path, int depth)
    {
        DIR *entries = directory < 0 ? nullptr : fdopendir(directory);
        if (entries == nullptr) {
            if (directory >= 0)
                close(directory);
            return refuse(path, strerror(errno));
        }
        bool fine = depth < deepest || refuse(path, "is too deep");
        while (const struct dirent *entry = fine ? readdir(entries) : nullptr) {
            if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
                fine = check_entry(directory, path, entry->d_name, depth);
        }
        closedir(entries);
        return fine;
    }

private:
    bool check_entry(int directory, const char *parent, const char *name, int depth)
    {
        char path[PATH_MAX];
        struct stat info;
        const int length = snprintf(path, sizeof path, "%s%s", parent, name);
        if (length < 0 || length >= PATH_MAX - 1)
            return refuse(parent, "is too deep");
        if (fstatat(directory, name, &info, AT_SYMLINK_NOFOLLOW) != 0)
            return errno == ENOENT || refuse(path, strerror(errno));
        switch (info.st_mode & S_IFMT) {
        case S_IFDIR:
            path[length] = '/';
            path[length + 1] = '\0';
            return check(openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC), path, depth + 1);
        case S_IFLNK:
            return check_link(directory, name, path, depth);
        case S_IFREG:
            return check_file(info, path);
        case S_IFIFO:
            return true;
        default:
            return refuse(path, "is a device or a socket");
        }
    }

    bool check_link(int directory, const char *name, const char *path, int depth)
    {
        char target[PATH_MAX];
        ssize_t length = readlinkat(directory, name, target, sizeof target - 1);
        target[length < 0 ? 0 : length] = '\0';
        return is_fault(target) || stays_inside(target, depth) ||
               refuse(path, "is a link that may lead out of the tree");
    }

    bool check_file(const struct stat &info, const char *path)
    {
        if (begins(path, "host/bin/"))
            return refuse(path, "is a program");
        if (info.st_size != 0 && is_library_place(path))
            return refuse(path, "is a library");
        return info.st_nlink == 1 || refuse(path, "has another name, maybe outside the tree");
    }

    bool refuse(const char *path, const char *why)
    {
        snprintf(what_, size_, "%s %s", *path == '\0' ? "." : path, why);
        for (char *at = what_; *at != '\0'; ++at)
            *at = static_cast<unsigned char>(*at) < ' ' || *at > '~' ? '?' : *at; // a name may be meant for a terminal
        return false;
    }

    char *what_;
    std::size_t size_;
};

} // namespace

bool tree_is_data(const char *root, char *what, std::size_t size)
{
    int directory = open(root, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return tree_walk(what, size).check(directory, "", 0);
}

} // namespace veksim
