// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "options.h"
#include "readings/reader_pool.h"

#include <array>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace exporter {

// The reasons that count as errors of reading. A GPU without a fan, or asleep, is not in error.
inline constexpr readings::reason error_reasons[] = {readings::reason::denied, readings::reason::failed,
                                                     readings::reason::malformed};

// What is known of a GPU beyond one round.
struct gpu_history {
    std::string bus_id{};                                     // as in labels: never empty, never that of another GPU
    std::vector<std::pair<std::string, std::string>> facts{}; // labels of what it is, as last told
    std::array<std::uint64_t, std::size(error_reasons)> errors{};
    std::optional<std::chrono::system_clock::time_point> last_success{};
    readings::gpu_state state = readings::gpu_state::ok;
};

// What one round brought.
struct snapshot {
    readings::answers gpus{};
    std::vector<gpu_history> histories{}; // one for each of them
    std::chrono::duration<double> took{};
};
using shared_snapshot = std::shared_ptr<const snapshot>;

// Asks the GPUs for everything that has a metric, one round at a time, and remembers between the rounds.
class collection {
public:
    using clock = std::chrono::steady_clock;

    explicit collection(const options &wanted);

    bool is_running() const { return !pool_.is_over(); }
    void begin();   // unless a round is running; it may be over at once
    void advance(); // when descriptor() is readable or due() has come
    shared_snapshot latest() const { return latest_; }
    shared_snapshot so_far(); // of the round that is running, for those who cannot wait for its end
    shared_snapshot once();   // one round from beginning to end

    int descriptor() const { return pool_.descriptor(); }
    std::optional<clock::time_point> due() const { return pool_.due(); }

    // A round in which a GPU answered, or slept, or there was none.
    clock::time_point last_success() const { return last_success_; }

private:
    void take_in(const readings::answers &said);
    void remember(const readings::answer &said, gpu_history &history);
    std::string label_for(const readings::answer &said) const;
    shared_snapshot snapshot_of(const readings::answers &said) const;

    readings::request asked_;
    readings::reader_pool pool_;
    std::map<unsigned, gpu_history> histories_; // by index
    clock::time_point began_ = clock::now();
    clock::time_point last_success_ = clock::now();
    shared_snapshot latest_;
};

} // namespace exporter
