// SPDX-License-Identifier: Apache-2.0
#include "output.h"
#include "processes.h"
#include "session.h"

namespace {

const field_list &summary_fields()
{
    static const field_list fields =
        pick<"index", "model", "name", "bus_id", "temperature", "fan_speed", "power", "power_total", "gfx_clock_mhz",
             "memory_clock_mhz", "memory_used", "memory_total", "memory_util_percent", "gpu_util_percent",
             "tdm_util_percent", "geom_util_percent", "3d_util_percent", "cdm_util_percent">();
    return fields;
}

std::string bar(const answer &gpu, const field &f)
{
    constexpr std::uint64_t width = 20;
    double percent = 0;
    if (!as_number(gpu[f], percent))
        return fmt::format("[{:^{}}] {:>5}", "", width, shown(gpu, f));
    const auto whole = static_cast<std::uint64_t>(percent);
    const std::uint64_t filled = std::min<std::uint64_t>(width, (whole * width + 50) / 100);
    const colour c = whole >= 90 ? colour::red : whole >= 60 ? colour::yellow : colour::green;
    return fmt::format("[{}{:{}}] {:>3} %", paint(c, std::string(filled, '#')), "", width - filled, whole);
}

// "1.9 / 8.0 GiB"
std::string used_of_total(const answer &gpu)
{
    double used = 0, total = 0;
    if (!as_number(gpu[field_of("memory_used")], used) || !as_number(gpu[field_of("memory_total")], total))
        return shown(gpu, field_of("memory_used"));
    const std::string whole = human_bytes(total);
    std::string part = human_bytes(used);
    const std::string symbol = whole.substr(whole.find(' '));
    if (part.ends_with(symbol))
        part.resize(part.size() - symbol.size());
    return part + " / " + whole;
}

// PARTS in as few lines as the output's width allows, each with its width: colours take no columns.
void print_flowing(const std::vector<std::pair<std::string, std::size_t>> &parts)
{
    std::string line;
    std::size_t column = 0;
    const auto end_line = [&] {
        line.erase(line.find_last_not_of(' ') + 1);
        put(line + "\n");
    };
    for (const auto &[text, width] : parts) {
        if (column > 0 && column + width > output_width()) {
            end_line();
            column = 0;
        }
        if (column == 0)
            line = "  ";
        line += text;
        column = (column == 0 ? 2 : column) + width;
    }
    end_line();
}

void print_readings_of(const answer &gpu)
{
    std::vector<std::pair<std::string, std::size_t>> parts;
    const auto add = [&](const std::string &text) { parts.emplace_back(text, width_of(text)); };
    add(fmt::format("temp {:<8}", shown(gpu, field_of("temperature"))));
    add(fmt::format("fan {:<10}", shown(gpu, field_of("fan_speed"))));
    add(fmt::format("power {:<8}", shown(gpu, field_of("power"))));
    add(fmt::format("graphics {:<10}", shown(gpu, field_of("gfx_clock_mhz"))));
    add(fmt::format("memory {}", shown(gpu, field_of("memory_clock_mhz"))));
    print_flowing(parts);
    if (gpu.driverless)
        print("  memory {}\n", shown(gpu, firmware_field));
    else
        print("  memory {}  {}\n", bar(gpu, field_of("memory_util_percent")), used_of_total(gpu));
    constexpr std::size_t bar_width = 37;
    parts = {{fmt::format("load   {}  ", bar(gpu, field_of("gpu_util_percent"))), bar_width}};
    add(fmt::format("tdm {}, geom {}, 3d {}, cdm {}", shown(gpu, field_of("tdm_util_percent")),
                    shown(gpu, field_of("geom_util_percent")), shown(gpu, field_of("3d_util_percent")),
                    shown(gpu, field_of("cdm_util_percent"))));
    print_flowing(parts);
}

void print_gpu(const answer &gpu)
{
    const std::string heading = heading_of(gpu, pick<"model", "name">());
    const std::string bus_id = shown(gpu, field_of("bus_id"));
    const std::size_t taken = width_of(heading) + width_of(bus_id);
    const std::size_t width = std::min<std::size_t>(output_width(), 78);
    const std::string gap(std::max<std::size_t>(2, width - std::min(width, taken)), ' ');
    print("{}\n", paint(colour::bold, heading + gap + bus_id));
    if (gpu.state == gpu_state::ok)
        print_readings_of(gpu);
    else
        print("  {}\n", paint(gpu.state == gpu_state::asleep ? colour::bold : colour::red, what_became_of(gpu)));
}

} // namespace

int show_summary(const options &wanted, session &gpus)
{
    request asked{.fields = summary_fields(), .processes = wanted.shape != format::csv};
    asked.fields.push_back(&field_of("process_count"));
    if (wanted.out_of_band)
        asked.fields.push_back(&firmware_field);
    const answers said = gpus.ask(asked);
    if (wanted.shape == format::json) {
        print_json(summary_fields(), said, {.processes = true});
    } else if (wanted.shape == format::csv) {
        print_readings(wanted, summary_fields(), said);
    } else {
        for (const answer &gpu : said) {
            print_gpu(gpu);
            put("\n");
        }
        print_processes(said, process_order::memory);
    }
    return status_of(said);
}
