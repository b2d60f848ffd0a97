// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host_tree.h"

#include <cstdint>
#include <random>
#include <vector>

namespace veksim {

// Keeps the GPUs of a tree alive: load comes and goes, and clocks, temperatures, power, fan, memory and
// processes follow it. The same seed gives the same run. What clients write is taken up at the next tick.
class driver_model {
public:
    explicit driver_model(host_tree &tree, std::uint32_t seed = 1);

    // Lets SECONDS pass. 0 moves nothing but answers what was written.
    void tick(double seconds);

private:
    struct motion {
        std::mt19937 random;
        double phase = 0;
        double elapsed = 0;
        double load = 0.4;
        double temperature = 48;
        double fan_rpm = 2400;
        double power_w = 20;
        int requested_clock_mhz = 0; // 0: as the load wants
        int voltage_mv = 850;
    };

    bool take_writes(int position, motion &m);
    void move(int position, motion &m, double seconds);
    void move_load(motion &m, double seconds);
    int clock_for(int position, const motion &m) const;
    double fan_goal(int position, const motion &m) const;
    void fill_readings(int position, const motion &m, gpu_state &state) const;
    void move_processes(const motion &m, gpu_state &state) const;
    void move_video(double seconds);
    std::int64_t setting(const std::string &real, std::int64_t otherwise) const;

    host_tree &tree_;
    std::vector<motion> motions_;
    double video_elapsed_ = 0;
    double encoded_ = 0;
    double decoded_ = 0;
};

} // namespace veksim
