// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "raii.h"
#include "vek_smi_utils.h"

#include <cstddef>

namespace vekml {

/** The text of a node that holds a list of values; one open, one read. */
class text_node {
public:
    /** False when the node cannot be opened; one that opens but cannot be read has an empty text. */
    bool read(const node_ref &node);
    const char *text() const { return text_; }

private:
    char text_[node_capacity] = {};
};

/** The text of a node that has no fixed length, up to 1 MiB. */
class long_text_node {
public:
    static constexpr std::size_t limit = std::size_t{1} << 20;

    long_text_node() = default;
    long_text_node(const long_text_node &) = delete;
    long_text_node &operator=(const long_text_node &) = delete;

    /** False when the node cannot be opened; one that opens but cannot be read has an empty text. */
    bool read(const node_ref &node);
    const char *text() const { return buffer_; }
    std::size_t length() const { return length_; }

private:
    bool grow();

    char first_[node_capacity];
    unique_text grown_;
    char *buffer_ = first_;
    std::size_t capacity_ = sizeof first_;
    std::size_t length_ = 0;
};

} // namespace vekml
