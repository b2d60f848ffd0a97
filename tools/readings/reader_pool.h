// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "answer.h"
#include "reader.h"

#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace readings {

struct pool_options {
    std::chrono::milliseconds deadline{5000};
    bool out_of_band = false;
    bool wake = false; // ask GPUs that sleep as well
    std::span<const extension> extensions{};
};

// A reader process for each card, asked together. The program that owns a pool has one thread and never starts the
// library itself: a card whose driver hangs costs its own reader, and nothing else.
class reader_pool {
public:
    using clock = std::chrono::steady_clock;

    explicit reader_pool(pool_options wanted);
    ~reader_pool(); // ends the readers; one that cannot die is left behind
    reader_pool(const reader_pool &) = delete;
    reader_pool &operator=(const reader_pool &) = delete;

    // Asks every GPU, or only those of the indexes in ONLY, and waits: until all have answered, or to the deadline. A
    // GPU that was stuck before is asked, not waited for. Ends early when STOP (a descriptor) becomes readable; what had
    // not been answered then is told as stuck, and stays as it was.
    answers round(const request &asked, const std::vector<unsigned> &only = {}, int stop = -1);

    // The same for a program with an event loop of its own: begin, then advance whenever descriptor() is readable or
    // due() has come. advance tells whether the round is over; result is then what was said. Between rounds, advance
    // takes late answers and starts readers anew.
    void begin(const request &asked, const std::vector<unsigned> &only = {});
    void begin(const request &asked, std::chrono::milliseconds deadline, const std::vector<unsigned> &only = {});
    bool advance();
    bool is_over() const;
    const answers &result() const;
    // Of a round that is not over: as if it were cut short now, though it goes on. Without GPUs that no round has told
    // of yet.
    answers so_far() const;
    int descriptor() const; // for epoll or poll, readable
    std::optional<clock::time_point> due() const;

private:
    struct state;
    std::unique_ptr<state> self_;
};

} // namespace readings
