// SPDX-License-Identifier: Apache-2.0
#include "node.h"

#include "number.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace readings {

missing lacking(const std::string &path, int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return {reason::absent, 0, path};
    case EACCES:
    case EPERM:
        return {reason::denied, error, path};
    case EOPNOTSUPP:
    case ENODATA:
        return {reason::unsupported, error, path};
    default:
        return {reason::failed, error, path};
    }
}

std::variant<std::string, missing> read_node(const std::string &path)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (file < 0)
        return lacking(path, errno);
    std::array<char, 4096> text;
    const ssize_t length = read(file, text.data(), text.size());
    const int error = errno;
    close(file);
    if (length < 0)
        return lacking(path, error);
    return std::string(text.data(), static_cast<std::size_t>(length));
}

value number_in(const std::string &path, std::int64_t lowest, std::int64_t highest)
{
    const auto found = read_node(path);
    if (const auto *why = std::get_if<missing>(&found))
        return *why;
    const auto number = to_number<std::int64_t>(trimmed(std::get<std::string>(found)));
    if (!number || *number < lowest || *number > highest)
        return missing{reason::malformed, 0, path};
    return *number;
}

} // namespace readings
