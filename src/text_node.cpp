// SPDX-License-Identifier: Apache-2.0
#include "text_node.h"

#include <fcntl.h>

namespace vekml {

bool text_node::read(const char *path)
{
    const unique_fd node(open(path, O_RDONLY | O_CLOEXEC));
    if (!node)
        return false;
    const ssize_t length = ::read(node.get(), text_, sizeof text_ - 1);
    text_[length > 0 ? length : 0] = '\0';
    return true;
}

} // namespace vekml
