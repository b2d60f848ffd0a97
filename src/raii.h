// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <unistd.h>
#include <utility>

namespace vekml {

/** An open file descriptor, never a standard one: a program may have closed those, and what it or the C library then
 *  prints would go into our file. */
class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(above_standard(fd)) {}
    unique_fd(unique_fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~unique_fd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1)
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = above_standard(fd);
    }

private:
    static int above_standard(int fd)
    {
        if (fd < 0 || fd > STDERR_FILENO)
            return fd;
        const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        const int reason = errno;
        close(fd);
        errno = reason;
        return moved;
    }

    int fd_ = -1;
};

/** Keeps others' code from opening something under a standard descriptor that the program has closed: takes those, with
 *  what can be read and written no more than a closed one. */
class closed_descriptors_taken {
public:
    closed_descriptors_taken()
    {
        while (count_ < std::size(taken_)) {
            const int fd = open("/", O_PATH | O_CLOEXEC);
            if (fd < 0)
                return;
            if (fd > STDERR_FILENO) {
                close(fd);
                return;
            }
            taken_[count_++] = fd;
        }
    }
    ~closed_descriptors_taken()
    {
        while (count_ > 0)
            close(taken_[--count_]);
    }
    closed_descriptors_taken(const closed_descriptors_taken &) = delete;
    closed_descriptors_taken &operator=(const closed_descriptors_taken &) = delete;

private:
    int taken_[3];
    std::size_t count_ = 0;
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

inline unique_file read_as_stream(unique_fd fd)
{
    unique_file stream(fd ? fdopen(fd.get(), "r") : nullptr);
    if (stream)
        fd.release();
    return stream;
}

inline unique_directory read_as_directory(unique_fd fd)
{
    unique_directory directory(fd ? fdopendir(fd.get()) : nullptr);
    if (directory)
        fd.release();
    return directory;
}

/** A NUL-terminated text from malloc. */
using unique_text = std::unique_ptr<char, memory_releaser>;

} // namespace vekml
