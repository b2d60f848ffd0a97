// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <sys/types.h>

namespace exporter {

struct credentials {
    std::string user{};
    std::string password{};
};

// Tells who may enter. A hash is meant to be slow, so each password is compared in a process of its own, once; one that
// was right is known again at once. A user that there is not costs what one that there is would.
class gate {
public:
    explicit gate(std::map<std::string, std::string> users);
    ~gate();
    gate(const gate &) = delete;
    gate &operator=(const gate &) = delete;

    bool is_open() const { return users_.empty(); } // to everybody
    bool knows(const credentials &who) const;

    // One comparison at a time; descriptor() becomes readable when it is done. False when none could be started.
    bool begin(const credentials &who);
    bool is_busy() const { return result_ >= 0; }
    int descriptor() const { return result_; }
    bool finish(); // whether they may enter

private:
    using digest = std::array<std::uint8_t, 32>;
    digest digest_of(const credentials &who) const;
    const std::string &hash_for(const credentials &who, bool &is_known) const;

    std::map<std::string, std::string> users_;
    std::array<std::uint8_t, 32> secret_{}; // of this process: the digests tell nothing without it
    std::set<digest> passed_;
    digest asked_{};
    bool is_known_ = false;
    pid_t process_ = -1;
    int result_ = -1;
};

} // namespace exporter
