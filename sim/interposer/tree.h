// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <climits>
#include <cstdint>
#include <sys/types.h>

struct stat;

#pragma GCC visibility push(hidden)
namespace veksim {

enum class zone : std::uint8_t { outside, plain, sysfs, dri };

// A path as the program gave it, and where it leads: into the tree, or unchanged.
class host_path {
public:
    explicit host_path(const char *path);
    const char *text() const { return text_; }
    zone where() const { return zone_; }
    bool inside() const { return zone_ != zone::outside; }

    // The result of a call on this path: a dangling link "errno:13" is a planted failure.
    int settle(int result) const;
    bool planted_failure() const;
    bool write_protected() const;

private:
    const char *text_;
    zone zone_ = zone::outside;
    char buffer_[PATH_MAX];
};

const char *tree(); // null: no redirection
// "TREE" + NAME into a buffer of PATH_MAX; false when there is no tree or no room.
bool tree_path(char *buffer, const char *name);
bool tree_has(const char *name);
// The text without the tree's path before it.
const char *outside_name(const char *path);

// What is known about a descriptor of this process.
enum class mark : std::uint8_t { none, store, card };
mark mark_of(int fd);
void set_mark(int fd, mark value);

bool card_of_path(const char *path_in_tree, unsigned *card);
bool card_of_descriptor(int fd, unsigned *card);

ssize_t store(int fd, const void *bytes, std::size_t size);
int card_request(unsigned card, unsigned request, void *argument);
void rewind_clock();

} // namespace veksim
#pragma GCC visibility pop
