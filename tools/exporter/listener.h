// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace exporter {

// Sockets that connections come in by.
class listeners {
public:
    listeners() = default;
    ~listeners(); // closes them, and removes the unix sockets that were made here
    listeners(const listeners &) = delete;
    listeners &operator=(const listeners &) = delete;

    // "HOST:PORT", "[IPV6]:PORT", ":PORT" or "unix:PATH". Throws a refusal.
    void open(const std::string &address);
    // What the service manager handed over by descriptor, if anything.
    void take_inherited();

    struct listener {
        int socket;
        std::string address; // "127.0.0.1:9899" with the port that it got, "unix:/run/..."
    };
    const std::vector<listener> &all() const { return all_; }

private:
    void open_unix(const std::string &path);
    void open_internet(const std::string &host, const std::string &port, const std::string &address);

    std::vector<listener> all_;
    std::vector<std::string> made_paths_;
};

} // namespace exporter
