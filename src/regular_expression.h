// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <regex.h>

namespace vekml {

/** A compiled POSIX expression. */
class regular_expression {
public:
    regular_expression(const char *pattern, int flags) : error_(regcomp(&compiled_, pattern, flags)) {}
    regular_expression(const regular_expression &) = delete;
    regular_expression &operator=(const regular_expression &) = delete;
    ~regular_expression()
    {
        if (error_ == 0)
            regfree(&compiled_);
    }
    int error() const { return error_; }
    const regex_t *get() const { return &compiled_; }

private:
    regex_t compiled_;
    int error_;
};

} // namespace vekml
