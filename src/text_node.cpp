// SPDX-License-Identifier: Apache-2.0
#include "text_node.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <utility>

namespace vekml {

bool text_node::read(const node_ref &node)
{
    const unique_fd file = node.open(O_RDONLY);
    if (!file)
        return false;
    const ssize_t length = ::read(file.get(), text_, sizeof text_ - 1);
    text_[length > 0 ? length : 0] = '\0';
    return true;
}

bool long_text_node::read(const node_ref &node)
{
    const unique_fd file = node.open(O_RDONLY);
    if (!file)
        return false;
    ssize_t part = 1;
    while (part > 0 && (length_ < capacity_ - 1 || grow())) {
        part = ::read(file.get(), buffer_ + length_, capacity_ - 1 - length_);
        length_ += static_cast<std::size_t>(std::max<ssize_t>(part, 0));
    }
    buffer_[length_] = '\0';
    return true;
}

bool long_text_node::grow()
{
    const std::size_t capacity = capacity_ * 4;
    unique_text larger(capacity <= limit ? static_cast<char *>(malloc(capacity)) : nullptr);
    if (!larger)
        return false;
    std::memcpy(larger.get(), buffer_, length_);
    grown_ = std::move(larger);
    buffer_ = grown_.get();
    capacity_ = capacity;
    return true;
}

} // namespace vekml
