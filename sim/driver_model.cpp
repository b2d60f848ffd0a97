// SPDX-License-Identifier: Apache-2.0
#include "driver_model.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace veksim {
namespace {

constexpr std::int64_t mebibyte = 1 << 20;
constexpr std::int64_t host_share = 24 * mebibyte; // of each process, in system memory
constexpr double ambient = 32;

// The share of the way to a goal that is covered in SECONDS.
double covered(double seconds, double time_constant)
{
    return 1 - std::exp(-seconds / time_constant);
}

int rounded(double value)
{
    return static_cast<int>(std::lround(value));
}

busy_time busy(double share)
{
    return {static_cast<std::uint64_t>(std::clamp(share, 0.0, 1.0) * 1000000), 1000000};
}

std::vector<process_entry> first_processes(int position, std::uint64_t local_total)
{
    static constexpr struct {
        const char *name;
        int share; // of local memory, in thousandths
    } programs[] = {{"compositor", 45}, {"modeler", 160}, {"player", 60}, {"terminal", 6}};
    std::vector<process_entry> processes;
    std::uint32_t pid = 3101 + static_cast<std::uint32_t>(position) * 100;
    for (const auto &program : programs) {
        auto local = static_cast<std::int64_t>(local_total) / 1000 * program.share;
        processes.push_back({pid, program.name, local, local + host_share});
        pid += 17;
    }
    return processes;
}

} // namespace

driver_model::driver_model(host_tree &tree, std::uint32_t seed) : tree_(tree)
{
    for (int i = 0; i < tree_.gpu_count(); ++i) {
        motion m;
        m.random.seed(seed + static_cast<std::uint32_t>(i));
        m.phase = i * 1.7;
        gpu_state state = tree_.state(i);
        m.temperature = state.temperature;
        m.fan_rpm = state.fan_rpm;
        m.power_w = state.power_w;
        m.voltage_mv = state.voltage_mv;
        state.processes = first_processes(i, state.local_total);
        state.temperature_highest = state.temperature;
        fill_readings(i, m, state);
        tree_.set_state(i, state);
        motions_.push_back(m);
    }
    tree_.set_live(true);
}

void driver_model::tick(double seconds)
{
    for (int i = 0; i < tree_.gpu_count(); ++i) {
        motion &m = motions_[static_cast<std::size_t>(i)];
        bool asked = !tree_.is_bare(i) && take_writes(i, m);
        if (seconds > 0) {
            move(i, m, seconds);
        } else if (asked) {
            gpu_state state = tree_.state(i);
            state.gfx_clock_mhz = clock_for(i, m);
            state.voltage_mv = m.voltage_mv;
            tree_.set_state(i, state);
        }
    }
    if (seconds > 0)
        move_video(seconds);
}

// The two readings that are also written: the graphics clock, in Hz, and the voltage.
bool driver_model::take_writes(int position, motion &m)
{
    auto clock = tree_.take_written(tree_.hwmon(position, "vek_gfx_freq_mhz"));
    if (clock)
        m.requested_clock_mhz = static_cast<int>(std::strtoll(clock->c_str(), nullptr, 10) / 1000000);
    auto voltage = tree_.take_written(tree_.hwmon(position, "in0_input"));
    if (voltage)
        m.voltage_mv = std::clamp(std::atoi(voltage->c_str()), 500, 1200);
    return clock || voltage;
}

void driver_model::move(int position, motion &m, double seconds)
{
    move_load(m, seconds);
    gpu_state state = tree_.state(position);
    double clock_share = clock_for(position, m) / 1000.0;
    double cap = static_cast<double>(setting(tree_.hwmon(position, "power1_cap"), 150));
    double power_goal = std::min(8 + 34 * m.load * clock_share, cap);
    m.power_w += (power_goal - m.power_w) * covered(seconds, 0.8);
    double cooling = 0.6 + m.fan_rpm / 4000;
    double temperature_goal = ambient + 1.35 * m.power_w / cooling;
    m.temperature += (temperature_goal - m.temperature) * covered(seconds, 12);
    m.fan_rpm += (fan_goal(position, m) - m.fan_rpm) * covered(seconds, 1.5);
    fill_readings(position, m, state);
    state.timestamp += static_cast<std::uint64_t>(seconds * 1e6);
    tree_.set_state(position, state);
}

void driver_model::move_load(motion &m, double seconds)
{
    m.elapsed += seconds;
    double noise = static_cast<double>(m.random() % 1000) / 1000 - 0.5;
    double goal = 0.5 + 0.32 * std::sin(m.elapsed / 9 + m.phase) + 0.12 * std::sin(m.elapsed / 2.3) + 0.15 * noise;
    m.load += (std::clamp(goal, 0.02, 0.99) - m.load) * covered(seconds, 1.2);
}

int driver_model::clock_for(int position, const motion &m) const
{
    const double top = static_cast<double>(tree_.config(position).default_clock_hz) / 1e6;
    double clock = m.requested_clock_mhz > 0 ? m.requested_clock_mhz : top;
    if (m.requested_clock_mhz == 0 && setting(tree_.card(position, "vek_enable_dvfs"), 1) != 0)
        clock = top * (0.55 + 0.45 * m.load);
    bool protects = setting(tree_.hwmon(position, "vek_enable_thm_slowdown"), 1) != 0;
    if (protects && m.temperature >= static_cast<double>(setting(tree_.hwmon(position, "vek_slowdown_temp"), 95)))
        clock /= 2;
    return rounded(clock);
}

// In mode 0 the firmware follows the temperature; otherwise the host's wish counts.
double driver_model::fan_goal(int position, const motion &m) const
{
    double share = std::clamp((m.temperature - 35) / 50, 0.1, 1.0);
    if (!tree_.is_bare(position) && setting(tree_.hwmon(position, "fan1_ctrl_mode"), 0) != 0) {
        bool pwm = tree_.config(position).fan == fan_kind::pwm;
        share = pwm ? static_cast<double>(setting(tree_.hwmon(position, "pwm1"), 3200) - slowest_pwm) /
                          (fastest_pwm - slowest_pwm)
                    : static_cast<double>(setting(tree_.hwmon(position, "fan1_target"), 50)) / 100;
    }
    return slowest_fan_rpm + std::clamp(share, 0.0, 1.0) * (fastest_fan_rpm - slowest_fan_rpm);
}

void driver_model::fill_readings(int position, const motion &m, gpu_state &state) const
{
    state.temperature = rounded(m.temperature);
    state.temperature_highest = std::max(state.temperature_highest, state.temperature);
    state.memory_temperature = rounded(m.temperature * 0.9 + 9);
    state.fan_rpm = rounded(m.fan_rpm);
    state.voltage_mv = m.voltage_mv + rounded(12 * (m.load - 0.5));
    state.power_w = rounded(m.power_w);
    state.total_power_w = rounded(m.power_w * 1.3 + 6);
    state.current_ma = rounded(m.power_w * 1e6 / state.voltage_mv);
    state.gfx_clock_mhz = clock_for(position, m);
    state.memory_clock_mhz = m.load > 0.08 ? 1750 : 400;
    state.gpu = busy(m.load);
    state.masters[1] = busy(m.load * 0.25);
    state.masters[2] = busy(m.load * 0.2);
    state.masters[3] = busy(m.load * 0.85);
    state.masters[4] = busy(m.load > 0.6 ? (m.load - 0.6) : 0);
    move_processes(m, state);
}

void driver_model::move_processes(const motion &m, gpu_state &state) const
{
    std::uint64_t used = 192 * mebibyte;
    for (std::size_t i = 0; i < state.processes.size(); ++i) {
        process_entry &process = state.processes[i];
        std::int64_t steady = process.total_bytes - host_share;
        double swing = 1 + 0.2 * std::sin(m.elapsed / (5 + static_cast<double>(i)) + m.phase);
        process.local_bytes = static_cast<std::int64_t>(static_cast<double>(steady) * 0.8 * swing) / 4096 * 4096;
        used += static_cast<std::uint64_t>(process.local_bytes);
    }
    state.local_used = std::min(used, state.local_total);
    state.system_used = 96 * mebibyte + static_cast<std::uint64_t>(m.load * 64) * mebibyte;
}

void driver_model::move_video(double seconds)
{
    video_elapsed_ += seconds;
    video_state video = tree_.video();
    video.encoder_rate = static_cast<std::uint64_t>(45 + 15 * std::sin(video_elapsed_ / 6));
    video.decoder_rate = static_cast<std::uint64_t>(30 + 10 * std::sin(video_elapsed_ / 4));
    encoded_ += static_cast<double>(video.encoder_rate) * seconds;
    decoded_ += static_cast<double>(video.decoder_rate) * seconds;
    auto whole_encoded = static_cast<std::uint64_t>(encoded_);
    auto whole_decoded = static_cast<std::uint64_t>(decoded_);
    video.encoder_commands += whole_encoded;
    video.decoder_commands += whole_decoded;
    encoded_ -= static_cast<double>(whole_encoded);
    decoded_ -= static_cast<double>(whole_decoded);
    tree_.set_video_state(video);
}

std::int64_t driver_model::setting(const std::string &real, std::int64_t otherwise) const
{
    std::string text = tree_.read(real);
    char *end = nullptr;
    std::int64_t value = std::strtoll(text.c_str(), &end, 10);
    return end == text.c_str() ? otherwise : value;
}

} // namespace veksim
