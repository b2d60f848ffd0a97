// SPDX-License-Identifier: Apache-2.0
#include "node_tree.h"

#include "format.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace veksim {
namespace {

[[noreturn]] void fail_with_errno(const fs::path &path)
{
    throw std::system_error(errno, std::generic_category(), path.string());
}

// Beside WHERE, so that a rename gets it there, or among the temporary ones.
fs::path fresh_directory(const fs::path &where)
{
    const char *base = std::getenv("TMPDIR");
    std::string name = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/veksim-XXXXXX";
    if (!where.empty())
        name = (where.parent_path() / ".veksim-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        fail_with_errno(where.empty() ? fs::path(name) : where);
    return fs::canonical(name);
}

// A node held against whoever writes it, as long as it is a plain file: what a person puts in its place may be gone
// at any moment, or never answer.
class held_node {
public:
    explicit held_node(const fs::path &path)
    {
        struct stat info {};
        if (lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode))
            return; // nor opened: a pipe would notice
        fd_ = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        plain_ = fd_ >= 0 && fstat(fd_, &info) == 0 && S_ISREG(info.st_mode);
        if (plain_)
            flock(fd_, LOCK_EX);
    }
    ~held_node()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    held_node(const held_node &) = delete;
    held_node &operator=(const held_node &) = delete;

    explicit operator bool() const { return plain_; }

    std::string text() const
    {
        std::string whole;
        char piece[4096];
        for (ssize_t size = 0; (size = ::read(fd_, piece, sizeof piece)) > 0;)
            whole.append(piece, static_cast<std::size_t>(size));
        return whole;
    }

private:
    int fd_ = -1;
    bool plain_ = false;
};

} // namespace

node_tree::node_tree(const fs::path &where)
{
    if (!where.empty())
        where_ = fs::weakly_canonical(fs::absolute(where.has_filename() ? where : where.parent_path()));
    root_ = fresh_directory(where_);
    fs::create_directory(root_ / "host");
}

void node_tree::keep()
{
    keep_ = true;
    if (where_.empty())
        return;
    const mode_t mask = umask(0);
    umask(mask);
    fs::permissions(root_, static_cast<fs::perms>(0777 & ~mask)); // it is no longer a secret of the build
    fs::rename(root_, where_);
    root_ = where_;
}

node_tree::~node_tree()
{
    if (!keep_) {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }
}

fs::path node_tree::path(const std::string &real) const
{
    return root_ / fs::path(real).relative_path();
}

// A rename, so that a reader finds the old text or the new one and never a piece. False when the place is gone.
bool node_tree::replace_file(const fs::path &target, const std::string &text)
{
    fs::path fresh = root_ / "host" / format("new-%d", static_cast<int>(getpid()));
    {
        std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
        file << text;
        if (!file.flush())
            fail_with_errno(fresh);
    }
    std::error_code error;
    fs::rename(fresh, target, error);
    return !error;
}

void node_tree::write(const std::string &real, const std::string &text)
{
    fs::path target = path(real);
    fs::create_directories(target.parent_path());
    if (fs::is_directory(fs::symlink_status(target)))
        fs::remove_all(target);
    if (!replace_file(target, text))
        fail_with_errno(target);
    auto entry = published_.find(real);
    if (entry != published_.end())
        entry->second = text;
}

void node_tree::write_number(const std::string &real, std::int64_t value)
{
    write(real, std::to_string(value) + "\n");
}

// A client that writes locks the node, so what it wrote is seen here before anything replaces it.
void node_tree::publish(const std::string &real, const std::string &text)
{
    auto [entry, fresh] = published_.try_emplace(real, text);
    if (fresh) {
        write(real, text);
        return;
    }
    fs::path target = path(real);
    if (entry->second == text)
        return;
    const held_node node(target);
    if (node && node.text() == entry->second && replace_file(target, text))
        entry->second = text;
}

std::optional<std::string> node_tree::take_written(const std::string &real)
{
    auto entry = published_.find(real);
    fs::path target = path(real);
    if (entry == published_.end())
        return std::nullopt;
    const held_node node(target);
    if (!node)
        return std::nullopt;
    std::string text = node.text();
    bool unfinished = text.empty(); // a stream is open on it
    if (unfinished || text == entry->second)
        return std::nullopt;
    entry->second = text;
    return text;
}

void node_tree::publish_number(const std::string &real, std::int64_t value)
{
    publish(real, std::to_string(value) + "\n");
}

std::string node_tree::read(const std::string &real) const
{
    const held_node node(path(real));
    return node ? node.text() : "";
}

bool node_tree::exists(const std::string &real) const
{
    return fs::exists(fs::symlink_status(path(real)));
}

void node_tree::remove(const std::string &real)
{
    fs::remove_all(path(real));
}

void node_tree::make_directory(const std::string &real)
{
    fs::path target = path(real);
    if (!fs::is_directory(fs::symlink_status(target)))
        fs::remove(target);
    fs::create_directories(target);
}

void node_tree::link(const std::string &real, const std::string &target)
{
    fs::create_directories(path(real).parent_path());
    fs::remove_all(path(real));
    fs::create_symlink(target, path(real));
}

void node_tree::link_to(const std::string &real, const std::string &other)
{
    link(real, fs::path(other).lexically_relative(fs::path(real).parent_path()).string());
}

void node_tree::move(const std::string &real, const std::string &to)
{
    fs::create_directories(path(to).parent_path());
    fs::rename(path(real), path(to));
}

void node_tree::set_mode(const std::string &real, unsigned mode)
{
    fs::permissions(path(real), static_cast<fs::perms>(mode));
}

void node_tree::fail(const std::string &real, int error)
{
    link(real, "errno:" + std::to_string(error));
}

void node_tree::fail_reads(const std::string &real, int error)
{
    link(real, "errno:" + std::to_string(error) + ":read");
}

void node_tree::stick(const std::string &real)
{
    link(real, "stuck");
}

void node_tree::fail_writes(const std::string &real)
{
    link(real, "/dev/full");
}

void node_tree::overwrite(const std::string &real, std::uint64_t offset, const void *bytes, std::size_t size)
{
    const fs::path target = path(real);
    int fd = open(target.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        fail_with_errno(target);
    ssize_t written = pwrite(fd, bytes, size, static_cast<off_t>(offset));
    close(fd);
    if (written != static_cast<ssize_t>(size))
        fail_with_errno(target);
}

void node_tree::withdraw(const std::string &real)
{
    remove(real);
    std::erase_if(published_, [&](const auto &entry) { return entry.first.starts_with(real + "/"); });
}

} // namespace veksim
