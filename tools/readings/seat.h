// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "answer.h"
#include "message.h"
#include "reader.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>

namespace readings {

// What has become of the process of a GPU, in the order of its life.
enum class life : std::uint8_t {
    none, // to be started when its time comes
    running,
    dying, // killed, and not reaped yet: an unkillable read
};

// The place of one GPU in a pool, or of a card that has not told yet: its reader process, started, killed and reaped here,
// and what the pool knows of it.
struct seat {
    using clock = std::chrono::steady_clock;

    seat(int events, unsigned card, std::string bus_id = {})
        : number(card), link_bus_id(std::move(bus_id)), events_(events)
    {}

    unsigned number; // of the card, or out of band the position
    std::string link_bus_id;
    bool present = true;
    bool of_another_maker = false;
    bool greeted = false; // told that it is ours
    std::optional<unsigned> index{};

    life alive = life::none;
    std::optional<reader> process{};
    clock::time_point start_at{}; // not before
    clock::time_point kill_at = clock::time_point::max();
    bool is_unkillable = false; // dying for longer than a process takes

    gpu_state state = gpu_state::ok;
    std::chrono::system_clock::time_point since{};
    std::string detail{};

    std::uint64_t asked = 0; // number of the request it is at, 0 when idle
    bool wanted = false;     // takes part in this round
    bool waited_for = false; // the round is not over without it
    bool answered = false;
    request at_work{}; // what it was asked last
    answer greeting{}; // who it is
    answer said{};

    void enter(gpu_state now, std::string why = {});
    void come_back(unsigned as);

    void start(const assignment &what);
    bool send(std::uint64_t as);        // what is at work; one that takes no requests is buried
    std::optional<json> next_message(); // nothing when no more has come; one that ended or talks nonsense is buried
    void has_answered();
    void give_grace();   // it is stuck: how long it may still answer before it is killed
    void end();          // kills it; what cannot die yet is reaped when it does
    void end_for_good(); // likewise, and looks whether it can die at all
    bool reap();
    void bury(std::string why);

private:
    static constexpr auto first_pause = std::chrono::seconds(1);

    void is_idle();
    void hang_up();
    void postpone();

    int events_; // epoll, told of each socket with its seat's address
    assembly incoming_{};
    pid_t dying_pid_ = -1;
    clock::duration pause_ = first_pause;
    clock::duration grace_{};
};

} // namespace readings
