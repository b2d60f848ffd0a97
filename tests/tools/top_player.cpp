// SPDX-License-Identifier: Apache-2.0
//
// top_player GPUS: the live screen on readings made up for it, always the same. It plays 120 rounds, a second apart and as
// fast as it can, and then stands still.

#include "top/top.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>

namespace {

using readings::field_of;
using readings::gpu_state;

constexpr std::time_t start = 1767276000; // 2026-01-01 14:00:00 UTC
constexpr int rounds = 120;

class play : public top::source {
public:
    explicit play(unsigned gpus) : gpus_(gpus) {}
    void begin(const readings::request &, std::chrono::milliseconds) override { said_ = round(); }
    bool advance() override
    {
        if (now_ + 1 < rounds)
            ++now_;
        return true;
    }
    bool is_over() const override { return true; }
    const readings::answers &result() const override { return said_; }
    int descriptor() const override { return -1; }
    std::optional<clock::time_point> due() const override { return now(); }
    clock::time_point now() const override { return clock::time_point(std::chrono::seconds(1000 + now_)); }
    std::chrono::system_clock::time_point wall() const override { return wall_at(now_); }

private:
    static std::chrono::system_clock::time_point wall_at(int round)
    {
        return std::chrono::system_clock::from_time_t(start + round);
    }

    readings::answers round() const
    {
        readings::answers all;
        for (unsigned gpu = 0; gpu < gpus_; ++gpu)
            all.push_back(told_by(gpu));
        return all;
    }

    readings::answer told_by(unsigned gpu) const
    {
        readings::answer one;
        one.index = gpu;
        one.bus_id = "0000:0" + std::to_string(3 + gpu % 7) + ":00.0";
        const auto set = [&](const readings::field &f, readings::value v) { one.values[readings::index_of(f)] = v; };
        set(field_of("model"), std::string(gpu % 2 == 0 ? "VEK M310" : "VEK S280 XT"));
        set(field_of("name"), std::string(gpu == 2 ? "タロン-W2" : "TALON-M1"));
        if (gpu == 1 && now_ >= 90) {
            one.state = gpu_state::stuck;
            one.since = wall_at(90);
            one.detail = "reading fan_speed (/sys/class/drm/card1/device/hwmon/hwmon1/fan1_input)";
            return one;
        }
        if ((gpu == 2 && now_ >= 60 && now_ < 90) || gpu == 5) {
            one.state = gpu_state::asleep;
            one.since = wall_at(gpu == 5 ? 0 : 60);
            one.detail = "the device is suspended";
            return one;
        }
        const double wave = 0.5 + 0.5 * std::sin((now_ + 7.0 * gpu) / 9), step = now_ / 30 % 2 == 0 ? 0.2 : 0.8;
        const auto number = [](double n) { return readings::value(std::uint64_t(std::lround(n))); };
        set(field_of("gpu_util_percent"), number(100 * wave));
        set(field_of("tdm_util_percent"), number(20 * wave));
        set(field_of("geom_util_percent"), number(15 * step));
        set(field_of("3d_util_percent"), number(90 * wave));
        set(field_of("cdm_util_percent"), number(0));
        set(field_of("memory_used"), number((1 + 5 * step) * 1073741824));
        set(field_of("memory_total"), number(8.0 * 1073741824));
        set(field_of("temperature"), number(gpu == 3 ? 84 + 20 * wave : 48 + 20 * wave));
        set(field_of("memory_temperature"), number(50 + 10 * step));
        set(field_of("thermal_slowdown"), number(95));
        set(field_of("thermal_shutdown"), number(105));
        set(field_of("power"), 21.5 + std::round(800 * wave) / 10);
        set(field_of("gfx_clock_mhz"), number(400 + 1000 * step));
        set(field_of("gfx_clock_max_mhz"), number(1500));
        set(field_of("memory_clock_mhz"), number(1750));
        if (gpu != 3) // one has no fan
            set(field_of("fan_speed"), number(2000 + 1200 * wave));
        if (gpu == 0) {
            set(field_of("video_encoder_rate"), number(30 * step));
            set(field_of("video_decoder_rate"), number(0));
        }
        one.processes = readings::json::array();
        for (unsigned i = 0; i < 5; ++i) {
            constexpr const char *commands[] = {"compositor --display 1", "modeler \x1b]0;x\x07 \xe2\x80\xaetxt.exe",
                                                "エディタ 図面.vek", "player -l", ""};
            one.processes.push_back({{"pid", 3101 + 100 * gpu + 17 * i},
                                     {"name", "terminal"},
                                     {"memory", (5 - i) * (gpu + 1) * 77594624ULL},
                                     {"memory_total", (5 - i) * (gpu + 1) * 90177536ULL},
                                     {"user", i % 2 == 0 ? "ana" : "root"},
                                     {"command", commands[i]},
                                     {"unit", nullptr}});
        }
        return one;
    }

    unsigned gpus_;
    int now_ = 0;
    readings::answers said_{};
};

} // namespace

int main(int argc, char **argv)
{
    play made_up(argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 1);
    return static_cast<int>(top::run(made_up, {}));
}
