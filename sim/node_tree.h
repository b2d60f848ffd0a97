// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace veksim {

// A directory of nodes. Every path given is the absolute one of a real host
// ("/sys/class/drm/card0/device/vendor"); it is mapped below the directory.
// Errors throw std::filesystem::filesystem_error or std::system_error.
class node_tree {
public:
    // Built in a fresh directory that is removed at the end; keep() lets it stay, at WHERE if that is named. Nothing is
    // there before, so that what was never finished is not taken for a tree.
    explicit node_tree(const std::filesystem::path &where = {});
    ~node_tree();
    node_tree(const node_tree &) = delete;
    node_tree &operator=(const node_tree &) = delete;

    void keep();
    const std::filesystem::path &root() const { return root_; }
    std::filesystem::path path(const std::string &real) const; // where REAL lies in the tree

    // write() and the others replace whatever stands there and make missing parents.
    void write(const std::string &real, const std::string &text);
    void write_number(const std::string &real, std::int64_t value); // with the newline of a sysfs attribute
    std::string read(const std::string &real) const;                // "" when missing
    bool exists(const std::string &real) const;
    void remove(const std::string &real); // with everything below it
    void make_directory(const std::string &real);
    void link(const std::string &real, const std::string &target);
    void link_to(const std::string &real, const std::string &other); // relative, as sysfs has them
    void move(const std::string &real, const std::string &to);
    void set_mode(const std::string &real, unsigned mode); // without a write bit, even root cannot write it
    void fail(const std::string &real, int error);         // opening it fails with that error number
    void fail_reads(const std::string &real, int error);   // opening works, reading fails with it
    void stick(const std::string &real);                   // opening works, reading never ends
    void fail_writes(const std::string &real);             // opening works, writing fails with ENOSPC

    // What a client wrote into a reading since the driver last published it, once.
    std::optional<std::string> take_written(const std::string &real);

protected:
    // Makes a node of the driver's say TEXT. One that was taken away, turned into a fault or written by
    // someone else since stays as it is.
    void publish(const std::string &real, const std::string &text);
    void publish_number(const std::string &real, std::int64_t value);
    void withdraw(const std::string &real); // a directory of published nodes
    // Changes bytes of a file that others may have mapped, which is why it is not replaced.
    void overwrite(const std::string &real, std::uint64_t offset, const void *bytes, std::size_t size);

private:
    bool replace_file(const std::filesystem::path &target, const std::string &text);

    std::filesystem::path root_;
    std::filesystem::path where_;
    bool keep_ = false;
    std::map<std::string, std::string> published_;
};

} // namespace veksim
