// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "raii.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace vekml {

// ---- Driver nodes: 0 on success, -1 on failure, every failure in the debug log ----

/** A driver attribute is at most this long; what lies behind is never read. */
inline constexpr std::size_t node_capacity = 4096;

/** The path of a node, cut where it exceeds the buffer. */
template <std::size_t Capacity = 256>
class node_path {
public:
    /** @param suffix begins with a slash */
    node_path(const char *directory, const char *suffix) : has_directory_(*directory != '\0')
    {
        const std::size_t length = append(0, directory);
        text_[append(length, suffix)] = '\0';
    }
    const char *text() const { return text_; }
    bool has_directory() const { return has_directory_; }

private:
    std::size_t append(std::size_t at, const char *piece)
    {
        const std::size_t length = strnlen(piece, Capacity - 1 - at);
        std::memcpy(text_ + at, piece, length);
        return at + length;
    }
    bool has_directory_;
    char text_[Capacity];
};

/** Which node to open. One whose directory is not known (a GPU without hwmon has none) is missing, whatever its name
 *  means in the root directory. */
class node_ref {
public:
    node_ref(const char *path) : path_(path) {}
    template <std::size_t Capacity>
    node_ref(const node_path<Capacity> &path) : path_(path.text()), missing_(!path.has_directory())
    {}
    const char *path() const { return path_; }
    bool allows(int access_mode) const { return !missing_ && access(path_, access_mode) == 0; }
    /** Not inherited by programs that the caller starts; errno tells the reason of a failure. */
    unique_fd open(int flags) const;

private:
    const char *path_;
    bool missing_ = false;
};

/** Read a node's text, less its last byte (a sysfs attribute's newline), into `dst`. An empty node is a success that
 *  leaves `dst` alone; a text that does not fit is cut, with a warning on standard output. */
int read_from_node(const node_ref &node, char *dst, std::uint32_t size);

/** Write a text into an existing node, unchanged. */
int write_to_node(const node_ref &node, const char *text);

/** Read one hexadecimal number; `*value` stays when the node holds none. */
int get_data_from_node(const node_ref &node, std::uint64_t *value);

/** The leading decimal integer of a text, in the width in which the library stores it; 0 when there is none. */
std::int32_t decimal(const char *text);

/** The text of one node or, where several are read in turn, of the last one that could be read. */
template <std::size_t Capacity = 20>
struct node_text {
    char text[Capacity] = {};

    int read(const node_ref &node) { return read_from_node(node, text, Capacity); }
    int read(const char *directory, const char *suffix) { return read(node_path<>(directory, suffix)); }
    std::int32_t number() const { return decimal(text); }
};

/** Copy a text into a buffer of `size` bytes, cut where it does not fit, always terminated. */
void copy_text(char *dst, std::size_t size, const char *text);

/** Copy a name into a field that keeps nothing of what it held behind the name. */
template <std::size_t Size>
void store_name(char (&field)[Size], const char *name)
{
    std::memset(field, 0, Size);
    copy_text(field, Size, name);
}

/** The name at an index that the driver delivered; empty when there is none. */
inline const char *name_at(std::span<const char *const> names, std::uint32_t index)
{
    return index < names.size() ? names[index] : "";
}

// ---- Text helpers ----

/** Match a POSIX extended expression (case-insensitive, newline-sensitive; the start of the text is not the start of a
 *  line) and hand out the whole match and its `n` groups in `out`, which has n + 1 places. 0 on a match, else -1. */
int pick_regex(const char *text, const char *pattern, std::uint32_t n, unique_text *out);

/** Write a packed version (major 8 bits, minor 8, patch 16) as "v%x.%x.%x"; leaves `dst` alone when it does not fit. */
void version_to_str(std::uint32_t version, char *dst, int size);

/** Write a number's hexadecimal digits, without a terminator and none for 0; leaves `dst` alone when they do not
 *  fit. */
void decimal_to_hex(std::uint32_t value, char *dst, int size);

/** Number of decimal digits, 0 for 0; a negative number counts as its unsigned value. */
std::uint32_t bits_of_integer(int value);

/** Parse a PCI address such as "0000:03:00.0". Each number is stored as it is accepted. 0, or -1 when malformed. */
int parse_dbdf(const char *text, std::uint64_t *domain, std::uint64_t *bus, std::uint64_t *device,
               std::uint64_t *function);

// ---- The host ----

/** 0 when the driver module is loaded, 1 when it is not, -1 when that cannot be found out. */
int is_out_of_band();

/** Version of the installed driver package; `ver` is left alone when there is none or it is longer than
 *  `size`. It has room for `size` + 1 bytes: the terminator is not counted. */
void get_driver_release_version(char *ver, std::uint32_t size);

/** Setters and debugfs readers are reserved for the effective user 0. */
bool is_root();

/** Whether the caller is root; tells anyone else so on standard output, with what that means for the call. */
bool require_root(const char *consequence);

} // namespace vekml
