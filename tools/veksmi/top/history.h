// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <vector>

namespace top {

// What is drawn over time.
enum class series : std::uint8_t {
    load,
    tdm,
    geom,
    threed,
    cdm,
    memory,
    temperature,
    memory_temperature,
    power,
    graphics_clock,
    memory_clock,
    fan,
    encoder,
    decoder,
};
inline constexpr std::size_t series_count = 14;
inline constexpr float gap = std::numeric_limits<float>::quiet_NaN(); // no value at that time

using samples = std::array<float, series_count>;
using moment = std::chrono::milliseconds; // since the program started

// A stretch of time, the columns of a chart side by side.
struct window {
    moment end{};
    std::chrono::milliseconds column{1000};
    std::size_t columns = 0;
};

// What was read of every GPU for an hour at least, in memory that does not grow with time.
class history {
public:
    static constexpr std::size_t capacity = 7200;                          // of rounds
    static constexpr auto finest = std::chrono::milliseconds(1000);        // what comes closer shares an entry
    static constexpr auto longest_round = std::chrono::milliseconds(6000); // while a GPU is waited for, values stand

    // Begins a round at AT; its values stand until the next, but no longer than rounds of this interval may take.
    void begin_round(moment at, std::chrono::milliseconds interval);
    void add(unsigned gpu, const samples &values); // to the round begun last

    moment newest() const;
    // The highest value within each column, or a gap.
    std::vector<float> columns(unsigned gpu, series of, const window &shown) const;
    std::size_t bytes() const;

private:
    struct round {
        moment at;
        moment stands_until;
    };
    const round &round_at(std::size_t number) const { return rounds_[number % capacity]; }

    std::vector<round> rounds_;
    std::size_t count_ = 0; // of rounds ever begun
    std::map<unsigned, std::vector<samples>> gpus_;
};

float highest(const std::vector<float> &values); // a gap when there is none

} // namespace top
