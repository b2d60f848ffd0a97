// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <unistd.h>
#include <utility>

namespace vekml {

/** An open file descriptor. */
class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~unique_fd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    void reset(int fd = -1)
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

struct file_closer {
    void operator()(FILE *file) const { fclose(file); }
};
struct directory_closer {
    void operator()(DIR *directory) const { closedir(directory); }
};
struct memory_releaser {
    void operator()(void *memory) const { free(memory); }
};

using unique_file = std::unique_ptr<FILE, file_closer>;
using unique_directory = std::unique_ptr<DIR, directory_closer>;
/** A NUL-terminated text from malloc. */
using unique_text = std::unique_ptr<char, memory_releaser>;

} // namespace vekml
