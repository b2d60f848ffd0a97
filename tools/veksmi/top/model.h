// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "history.h"
#include "readings/answer.h"
#include "settings.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace top {

// A GPU as the last round told of it. Texts are fit for a terminal; a value that is not to be had is a gap.
struct gpu_now {
    unsigned index = 0;
    std::string model{}, name{}, bus_id{};
    readings::gpu_state state = readings::gpu_state::ok;
    std::chrono::system_clock::time_point since{};
    std::string detail{};
    samples values{};
    bool has_encoder = false, has_decoder = false;                                   // has ever told what they do
    double memory_total = 0, slowdown = 0, shutdown = 0, fan_max = 0, clock_max = 0; // 0 when not known
};

struct process_now {
    unsigned gpu = 0;
    std::uint64_t pid = 0, memory = 0, all_memory = 0;
    std::string user{}, command{};
};

enum class focus : std::uint8_t { gpus, processes };

// What is shown, without a terminal: what was read, and what was chosen. Time comes from the caller.
class model {
public:
    explicit model(settings chosen = {}) : wanted(chosen) {}

    static readings::request request();
    // A round that began at BEGAN, told at the wall's time NOW.
    void take(const readings::answers &said, moment began, std::chrono::system_clock::time_point now);

    struct snapshot {
        std::vector<gpu_now> gpus{}; // in the order of their indexes
        std::vector<process_now> processes{};
        moment began{};
        std::chrono::system_clock::time_point told{};
        bool any = false; // a round was told
    };
    const snapshot &shown() const { return frozen_ ? *frozen_ : latest_; }
    const history &past() const { return past_; }
    const gpu_now *gpu(unsigned index) const;
    bool is_ill() const; // one of them was stuck, crashed or lost when last asked

    bool paused() const { return frozen_.has_value(); }
    void pause(bool wanted);
    std::vector<process_now> listed(std::optional<unsigned> of) const; // filtered and sorted

    // ---- what was chosen
    settings wanted;
    focus at = focus::gpus;
    unsigned selected = 0; // a GPU's index
    bool in_depth = false; // the selected one alone
    bool helping = false;
    std::size_t first_process = 0; // of those listed that is on the screen
    std::string filter{};
    bool typing_filter = false;
    std::string word{}; // to the person, until the next key

private:
    snapshot latest_;
    std::optional<snapshot> frozen_;
    history past_;
};

} // namespace top
