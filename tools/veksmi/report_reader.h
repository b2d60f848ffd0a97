// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <poll.h>
#include <string>
#include <sys/types.h>
#include <vector>

// One thing to read as it stands.
struct node_job {
    enum class kind : std::uint8_t {
        node,    // what one read gives
        dump,    // up to 1 MiB
        end,     // the last 64 KiB of a plain file
        request, // the driver's reply on a card node
    };
    std::string path;
    kind what = kind::node;
    std::uint32_t request = 0, selector = 0;
};

struct node_result {
    enum class step : std::uint8_t { untried, opening, reading, done };
    step at = step::untried; // where it hangs, when it is not done
    step failed = step::untried;
    int error = 0; // of the step that failed
    bool writable = true;
    std::string text{};
};

// Reads one thing after the other in a process of its own, as any of them may hang for ever. Whoever hangs longer than
// PATIENCE is left waiting, and another process goes on behind it: so the whole costs no more than one deadline, and a
// node that does not answer hides no other.
class node_lane {
public:
    using clock = std::chrono::steady_clock;

    node_lane(std::vector<node_job> jobs, clock::duration patience);
    ~node_lane(); // ends the processes; one that cannot die is left behind
    node_lane(node_lane &&) noexcept = default;
    node_lane &operator=(node_lane &&) = delete;

    void advance(); // takes what has come, starts who is to go on
    bool is_over() const;
    void watch(std::vector<pollfd> &descriptors) const;
    const std::vector<node_result> &results() const { return results_; }

private:
    struct worker {
        pid_t pid;
        int pipe;
        std::size_t job;
        bool left_behind; // answers what it is at, and nothing more
        std::string received{};
    };

    bool start(std::size_t first);
    void take(worker &w);
    void end(worker &w);

    std::vector<node_job> jobs_;
    std::vector<node_result> results_;
    clock::duration patience_;
    clock::time_point last_step_{};
    std::vector<worker> workers_{};
};
