// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "answer.h"
#include "gpu.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <sys/types.h>

namespace readings {

// What a program has its readers do beyond reading fields: RUN gets what stands under the name in a request's `more`,
// and what it returns stands there in the answer's. It runs in the reader's process.
struct extension {
    const char *name;
    json (*run)(gpu &, const json &argument);
};

// What a reader is for: cardN, or out of band the GPU at a position of the device table.
struct assignment {
    unsigned number = 0;
    bool out_of_band = false;
    std::span<const extension> extensions{};
};

// What a reader is at, in memory that it shares with the program: still to be told when it hangs.
class progress {
public:
    // Until it is `starting` it may still hold what its program has open.
    static constexpr std::uint32_t settling = 0, starting = 1, idle = 2, processes = 3, codecs = 4, extended = 5,
                                   first_field = 16;

    progress();
    ~progress();
    progress(progress &&) noexcept;
    progress &operator=(progress &&) noexcept;
    void set(std::uint32_t step);
    std::uint32_t step() const;
    std::string text() const; // "reading fan_speed"

private:
    std::atomic<std::uint32_t> *step_;
};

// A reader process from the program's side.
class reader {
public:
    // Nothing when no process is to be had; errno tells why.
    static std::optional<reader> start(const assignment &what);

    reader(reader &&) noexcept;
    reader &operator=(reader &&) noexcept;
    ~reader(); // closes the socket; ending and reaping the process is the pool's

    pid_t pid() const { return pid_; }
    int socket() const { return socket_; }
    bool send(const request &asked, std::uint64_t number) const; // false when it cannot be told now
    std::string whereabouts() const; // of one that hangs: "reading fan_speed (/sys/.../fan1_input)"

private:
    reader(pid_t pid, int socket, progress shared) : pid_(pid), socket_(socket), progress_(std::move(shared)) {}
    pid_t pid_;
    int socket_;
    progress progress_;
};

} // namespace readings
