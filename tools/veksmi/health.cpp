// SPDX-License-Identifier: Apache-2.0
// A verdict per GPU, in the form that monitoring plugins give theirs.
#include "output.h"
#include "readings/thresholds.h"
#include "session.h"

#include <algorithm>
#include <optional>

namespace {

enum class verdict { ok, unknown, warning, critical }; // from the best to the worst

constexpr const char *names[] = {"ok", "unknown", "warning", "critical"};
constexpr int plugin_status[] = {0, 3, 1, 2};

struct finding {
    verdict weight;
    std::string text;
};
using findings = std::vector<finding>;

field_list looked_at()
{
    return pick<"model", "temperature", "thermal_slowdown", "temperature_critical", "thermal_slowdown_enabled",
                "thermal_shutdown_enabled", "fan_speed", "gpu_util_percent", "pcie_speed_gts", "pcie_speed_max_gts",
                "pcie_width", "pcie_width_max", "pcie_corrected_errors", "pcie_nonfatal_errors", "pcie_fatal_errors",
                "crc_write_errors", "crc_read_errors">();
}

std::optional<double> number_of(const answer &gpu, const field &f)
{
    double number = 0;
    return as_number(gpu[f], number) ? std::optional(number) : std::nullopt;
}

void judge_temperature(const answer &gpu, findings &found)
{
    const auto now = number_of(gpu, field_of("temperature"));
    auto limit = number_of(gpu, field_of("thermal_slowdown"));
    if (!limit)
        limit = number_of(gpu, field_of("temperature_critical"));
    if (!now || !limit)
        return;
    if (*now >= *limit - thresholds::critical_margin_celsius)
        found.push_back({verdict::critical, fmt::format("{:g} °C: at its limit of {:g} °C", *now, *limit)});
    else if (*now >= *limit - thresholds::slowdown_margin_celsius)
        found.push_back({verdict::warning, fmt::format("{:g} °C: close to its limit of {:g} °C", *now, *limit)});
}

void judge_fan(const answer &gpu, findings &found)
{
    const auto speed = number_of(gpu, field_of("fan_speed")), now = number_of(gpu, field_of("temperature"));
    if (speed && now && *speed < thresholds::fan_still_rpm && *now >= thresholds::fan_needed_celsius)
        found.push_back({verdict::critical, fmt::format("the fan stands still at {:g} °C", *now)});
}

void judge_protection(const answer &gpu, findings &found)
{
    if (number_of(gpu, field_of("thermal_slowdown_enabled")) == 0)
        found.push_back({verdict::warning, "slowdown protection is switched off"});
    if (number_of(gpu, field_of("thermal_shutdown_enabled")) == 0)
        found.push_back({verdict::warning, "shutdown protection is switched off"});
}

void judge_memory(const answer &gpu, findings &found)
{
    for (const field *f : pick<"crc_write_errors", "crc_read_errors">()) {
        const auto *counts = std::get_if<std::vector<std::uint64_t>>(&gpu[*f]);
        if (counts != nullptr && std::any_of(counts->begin(), counts->end(), [](std::uint64_t n) { return n > 0; }))
            found.push_back({verdict::warning, fmt::format("{}: {}", label(*f), text_of(gpu[*f]))});
    }
}

void judge_link(const answer &gpu, findings &found)
{
    constexpr double busy = 50; // an idle link may rest at a lower speed
    const auto fatal = number_of(gpu, field_of("pcie_fatal_errors")),
               nonfatal = number_of(gpu, field_of("pcie_nonfatal_errors")),
               corrected = number_of(gpu, field_of("pcie_corrected_errors")),
               width = number_of(gpu, field_of("pcie_width")), lanes = number_of(gpu, field_of("pcie_width_max")),
               speed = number_of(gpu, field_of("pcie_speed_gts")),
               fastest = number_of(gpu, field_of("pcie_speed_max_gts")),
               load = number_of(gpu, field_of("gpu_util_percent"));
    if (fatal && *fatal > thresholds::fatal_errors_per_hour)
        found.push_back({verdict::critical, fmt::format("{:g} fatal PCIe errors", *fatal)});
    if (nonfatal && *nonfatal > 0)
        found.push_back({verdict::warning, fmt::format("{:g} non-fatal PCIe errors", *nonfatal)});
    if (corrected && *corrected > thresholds::corrected_errors_per_hour)
        found.push_back({verdict::warning, fmt::format("{:g} corrected PCIe errors", *corrected)});
    if (width && lanes && *width < *lanes * thresholds::link_width_ratio)
        found.push_back({verdict::warning, fmt::format("the PCIe link has {:g} of {:g} lanes", *width, *lanes)});
    if (speed && fastest && load && *load >= busy && *speed < *fastest)
        found.push_back({verdict::warning, fmt::format("the PCIe link runs at {:g} of {:g} GT/s", *speed, *fastest)});
}

findings judge(const answer &gpu)
{
    if (gpu.state == gpu_state::asleep)
        return {{verdict::ok, "asleep, and left so"}};
    if (gpu.state != gpu_state::ok)
        return {{verdict::critical, what_became_of(gpu)}};
    findings found;
    judge_temperature(gpu, found);
    judge_fan(gpu, found);
    judge_protection(gpu, found);
    judge_memory(gpu, found);
    judge_link(gpu, found);
    if (found.empty() && !is_present(gpu[field_of("temperature")]))
        found.push_back({verdict::unknown, "its temperature is not to be had; veksmi why temperature tells why"});
    return found;
}

verdict worst_of(const findings &found)
{
    verdict worst = verdict::ok;
    for (const finding &f : found)
        worst = std::max(worst, f.weight);
    return worst;
}

std::string texts_of(const findings &found)
{
    std::string text;
    for (const finding &f : found)
        text += fmt::format("{}{}", text.empty() ? "" : "; ", f.text);
    return text;
}

json gpu_object(const answer &gpu, const findings &found)
{
    json reasons = json::array();
    for (const finding &f : found)
        reasons.push_back({{"verdict", names[static_cast<int>(f.weight)]}, {"reason", f.text}});
    json object = object_of(gpu);
    object["verdict"] = names[static_cast<int>(worst_of(found))];
    object["reasons"] = std::move(reasons);
    return object;
}

} // namespace

int show_health(const options &wanted, session &gpus)
{
    const answers said = gpus.ask_any({.fields = looked_at()});
    verdict worst = said.empty() ? verdict::unknown : verdict::ok;
    json list = json::array();
    if (wanted.shape == format::csv)
        put("index,bus_id,verdict,reasons\n");
    for (const answer &gpu : said) {
        const findings found = judge(gpu);
        const verdict of_it = worst_of(found);
        worst = std::max(worst, of_it);
        const char *name = names[static_cast<int>(of_it)];
        if (wanted.shape == format::json)
            list.push_back(gpu_object(gpu, found));
        else if (wanted.shape == format::csv)
            put(csv_row({std::to_string(gpu.index), gpu.bus_id, name, texts_of(found)}));
        else
            print("GPU {} {}{}{}\n", gpu.index,
                  of_it == verdict::ok ? paint(colour::green, name) : paint(colour::red, name),
                  found.empty() ? "" : ": ", printable(texts_of(found)));
    }
    if (wanted.shape == format::json)
        print_document(std::move(list), {{"verdict", names[static_cast<int>(worst)]}});
    if (said.empty())
        complain(fmt::format("no GPU found{}", hint_without_gpu(wanted)));
    return plugin_status[static_cast<int>(worst)];
}
