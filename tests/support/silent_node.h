// SPDX-License-Identifier: Apache-2.0
// A node of a tree that never answers, in the state that no signal ends. Only root may have one, where the kernel
// offers FUSE:
//
//     silent_node node(host.path(host.hwmon(0, "temp1_input")), "48\n");
//     if (!node)
//         GTEST_SKIP() << node.why_not();
#pragma once

#include <filesystem>
#include <string>
#include <sys/types.h>

class silent_node {
public:
    explicit silent_node(const std::filesystem::path &file, const std::string &text);
    ~silent_node(); // those who hang fail with ENOTCONN or the like
    silent_node(const silent_node &) = delete;
    silent_node &operator=(const silent_node &) = delete;

    explicit operator bool() const { return why_not_.empty(); }
    const std::string &why_not() const { return why_not_; }
    void answer() const; // whoever hangs reads the text, as do those to come

private:
    std::filesystem::path file_;
    pid_t server_ = -1;
    std::string why_not_;
};
