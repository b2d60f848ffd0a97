// SPDX-License-Identifier: Apache-2.0
// Libraries that a program loads by a path of the tree.
#include "libc.h"
#include "tree.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>

namespace veksim {
namespace {

// A file of the directory that this library is in, or of its veksim/.
bool own_file(char *path, const char *name)
{
    Dl_info self;
    if (dladdr(reinterpret_cast<void *>(&own_file), &self) == 0)
        return false;
    const char *slash = strrchr(self.dli_fname, '/');
    const int length = slash == nullptr ? 0 : static_cast<int>(slash + 1 - self.dli_fname);
    for (const char *folder : {"", "veksim/"}) {
        if (snprintf(path, PATH_MAX, "%.*s%s%s", length, self.dli_fname, folder, name) < PATH_MAX &&
            libc::faccessat(AT_FDCWD, path, R_OK, 0) == 0)
            return true;
    }
    return false;
}

// What an empty file at PATH stands for: this machine's own library of that name, or the video driver that came with
// this one.
const char *own_library(const char *path, char *buffer)
{
    static constexpr const char *own[][2] = {{"libva.so", "libva.so.2"}, {"libva-drm.so", "libva-drm.so.2"}};
    static constexpr const char video_driver[] = "vekgpu_drv_video.so";
    const char *name = strrchr(path, '/') + 1;
    for (const auto &[in_tree, soname] : own) {
        if (strcmp(name, in_tree) == 0 || strcmp(name, soname) == 0)
            return soname;
    }
    return strcmp(name, video_driver) == 0 && own_file(buffer, video_driver) ? buffer : nullptr;
}

} // namespace

extern "C" {

// Only a trusted tree may bring code.
void *hook_dlopen(const char *path, int flags)
{
    host_path target(path);
    if (!target.inside())
        return libc::dlopen(path, flags);
    struct stat info;
    char buffer[PATH_MAX];
    const char *library = target.text();
    if (libc::fstatat(AT_FDCWD, target.text(), &info, 0) == 0 && S_ISREG(info.st_mode) &&
        (info.st_size == 0 || !tree_is_trusted())) {
        const char *own = info.st_size == 0 ? own_library(target.text(), buffer) : nullptr;
        library = own != nullptr ? own : "/proc/no-such-library"; // which dlerror() will tell
    }
    return libc::dlopen(library, flags);
}
VEKSIM_PUBLISH(dlopen, hook_dlopen);

} // extern "C"
} // namespace veksim
