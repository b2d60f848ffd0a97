// SPDX-License-Identifier: Apache-2.0
// Files of a simulated host as any program meets them.
#pragma once

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

inline std::string slurp(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The error number of opening PATH so, 0 when it opens.
inline int open_error(const std::string &path, int flags)
{
    int fd = open(path.c_str(), flags, 0644);
    if (fd < 0)
        return errno;
    close(fd);
    return 0;
}

inline int store(const std::string &path, const std::string &text, int flags = O_RDWR)
{
    int fd = open(path.c_str(), flags, 0644);
    ssize_t written = write(fd, text.data(), text.size());
    int error = written < 0 ? errno : 0;
    close(fd);
    return error;
}
