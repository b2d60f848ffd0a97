// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>

namespace veksim {

enum class zone : std::uint8_t { outside, plain, sysfs, dri };

// A path as the program gave it, and where it leads: into the tree, or unchanged.
class host_path {
public:
    explicit host_path(const char *path, int directory = AT_FDCWD);
    const char *text() const { return text_; }
    zone where() const { return zone_; }
    bool inside() const { return zone_ != zone::outside; }

    // RESULT of a call on this path, with the error number of a failure planted there.
    int or_planted_failure(int result) const;
    bool write_protected() const;

private:
    void lead(const char *path);

    const char *text_;
    zone zone_ = zone::outside;
    char buffer_[PATH_MAX];
};

// The name of a directory that holds names of the tree's beside others, such as "/proc"; null for every other path.
const char *directory_of_both(const char *path);

const char *tree();     // null: no redirection
bool tree_is_trusted(); // its programs and libraries may run
// "TREE" + NAME into a buffer of PATH_MAX; false when there is no tree or no room.
bool tree_path(char *buffer, const char *name);
bool tree_has(const char *name);
// The name on the host of what lies in the tree; other paths as they are.
const char *name_on_host(const char *path);
// The same where an entry below host/stuck bears the node's name.
const char *name_of_node(const char *path);
// Where a link leads, into a buffer of PATH_MAX.
bool link_target(const char *link, char *buffer);

} // namespace veksim
