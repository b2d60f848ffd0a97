// SPDX-License-Identifier: Apache-2.0
// The user that a simulated host plays.
#include "libc.h"
#include "tree.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace veksim {
namespace {

// The user the tree names, or the real one.
uid_t played_user(next<uid_t()> &real)
{
    char path[PATH_MAX];
    if (!tree_path(path, "/host/euid"))
        return real();
    int saved = errno;
    char text[16] = "";
    int fd = libc::openat(AT_FDCWD, path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ssize_t length = fd < 0 ? -1 : libc::read(fd, text, sizeof text - 1);
    if (fd >= 0)
        libc::close(fd);
    errno = saved;
    return length > 0 ? static_cast<uid_t>(strtoul(text, nullptr, 10)) : real();
}

} // namespace

extern "C" {

uid_t hook_geteuid()
{
    return played_user(libc::geteuid);
}
VEKSIM_PUBLISH(geteuid, hook_geteuid);

// Someone who is not root is so in both respects; libva compares the two.
uid_t hook_getuid()
{
    return played_user(libc::getuid);
}
VEKSIM_PUBLISH(getuid, hook_getuid);

} // extern "C"
} // namespace veksim
