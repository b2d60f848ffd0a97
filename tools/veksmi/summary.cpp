// SPDX-License-Identifier: Apache-2.0
#include "output.h"
#include "processes.h"

namespace {

const field_list &summary_fields()
{
    static const field_list fields =
        pick({"index", "model", "name", "bus_id", "temperature", "fan_speed", "power", "power_total", "gfx_clock_mhz",
              "memory_clock_mhz", "memory_used", "memory_total", "memory_util_percent", "gpu_util_percent",
              "tdm_util_percent", "geom_util_percent", "3d_util_percent", "cdm_util_percent"});
    return fields;
}

std::string shown(gpu &g, std::string_view key)
{
    const field &f = field_of(key);
    return with_unit(f, f.get(g));
}

std::string bar(gpu &g, std::string_view key)
{
    constexpr std::uint64_t width = 25;
    const value v = field_of(key).get(g);
    const auto *percent = std::get_if<std::uint64_t>(&v);
    if (percent == nullptr)
        return fmt::format("[{:^{}}]   N/A", "", width);
    const std::uint64_t filled = std::min<std::uint64_t>(width, (*percent * width + 50) / 100);
    const colour c = *percent >= 90 ? colour::red : *percent >= 60 ? colour::yellow : colour::green;
    return fmt::format("[{}{:{}}] {:>3} %", paint(c, std::string(filled, '#')), "", width - filled, *percent);
}

void print_gpu(gpu &g)
{
    const std::string heading = fmt::format("GPU {}  {}  {}", g.index(), shown(g, "model"), shown(g, "name"));
    print("{}\n", paint(colour::bold, fmt::format("{:<65} {:>12}", heading, shown(g, "bus_id"))));
    print("  temperature {:<6} fan {:<6} power {:<6} graphics {:<10} memory {}\n", shown(g, "temperature"),
          shown(g, "fan_speed"), shown(g, "power"), shown(g, "gfx_clock_mhz"), shown(g, "memory_clock_mhz"));
    if (g.driverless())
        print("  memory {}\n", shown(g, "firmware_memory_size_mib"));
    else
        print("  memory {}  {} of {}\n", bar(g, "memory_util_percent"), shown(g, "memory_used"),
              shown(g, "memory_total"));
    print("  load   {}  tdm {}, geom {}, 3d {}, cdm {}\n", bar(g, "gpu_util_percent"), shown(g, "tdm_util_percent"),
          shown(g, "geom_util_percent"), shown(g, "3d_util_percent"), shown(g, "cdm_util_percent"));
}

} // namespace

int show_summary(const options &wanted, gpu_list &gpus)
{
    for (gpu &g : gpus)
        g.take_snapshot();
    if (wanted.shape == format::json) {
        print_json(summary_fields(), gpus, {.processes = true});
    } else if (wanted.shape == format::csv) {
        print_readings(wanted, summary_fields(), gpus);
    } else {
        for (gpu &g : gpus) {
            print_gpu(g);
            put("\n");
        }
        print_processes(gpus);
    }
    return status_of(gpus);
}
