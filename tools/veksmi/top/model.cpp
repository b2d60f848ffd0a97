// SPDX-License-Identifier: Apache-2.0
#include "model.h"

#include "readings/process_facts.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace top {
namespace {

using readings::field_of;

constexpr const readings::field *fields_over_time[] = {
    &field_of("gpu_util_percent"),   &field_of("tdm_util_percent"),   &field_of("geom_util_percent"),
    &field_of("3d_util_percent"),    &field_of("cdm_util_percent"),   &field_of("memory_used"),
    &field_of("temperature"),        &field_of("memory_temperature"), &field_of("power"),
    &field_of("gfx_clock_mhz"),      &field_of("memory_clock_mhz"),   &field_of("fan_speed"),
    &field_of("video_encoder_rate"), &field_of("video_decoder_rate"),
};
static_assert(std::size(fields_over_time) == series_count);

double number_or(const readings::value &held, double otherwise)
{
    double number = otherwise;
    readings::as_number(held, number);
    return number;
}

std::string text_or_none(const readings::value &held)
{
    return readings::is_present(held) ? readings::printable(readings::text_of(held)) : std::string();
}

gpu_now gpu_from(const readings::answer &said, const gpu_now *before)
{
    gpu_now g;
    g.index = said.index;
    g.model = text_or_none(said[field_of("model")]);
    g.name = text_or_none(said[field_of("name")]);
    g.bus_id = readings::printable(said.bus_id);
    g.state = said.state;
    g.since = said.since;
    g.detail = said.detail;
    for (std::size_t i = 0; i < series_count; ++i)
        g.values[i] = static_cast<float>(number_or(said[*fields_over_time[i]], gap));
    g.has_encoder = !std::isnan(g.values[static_cast<std::size_t>(series::encoder)]);
    g.has_decoder = !std::isnan(g.values[static_cast<std::size_t>(series::decoder)]);
    g.memory_total = number_or(said[field_of("memory_total")], 0);
    g.slowdown = number_or(said[field_of("thermal_slowdown")], 0);
    g.shutdown = number_or(said[field_of("thermal_shutdown")], 0);
    g.fan_max = number_or(said[field_of("fan_speed_max")], 0);
    g.clock_max = number_or(said[field_of("gfx_clock_max_mhz")], 0);
    if (before != nullptr) {
        g.has_encoder |= before->has_encoder;
        g.has_decoder |= before->has_decoder;
        if (g.state != readings::gpu_state::ok) { // the charts of its past keep their scales
            g.memory_total = before->memory_total;
            g.slowdown = before->slowdown;
            g.shutdown = before->shutdown;
            g.fan_max = before->fan_max;
            g.clock_max = before->clock_max;
        }
    }
    return g;
}

void add_processes(const readings::answer &said, std::vector<process_now> &all)
{
    for (const readings::process &p : processes_in(said))
        all.push_back({.gpu = said.index,
                       .pid = p.pid,
                       .memory = p.memory,
                       .all_memory = p.memory_total,
                       .user = readings::printable(p.user),
                       .command = readings::printable(p.command.empty() ? p.name : p.command)});
}

// Negative when A comes first: the largest memory, but the lowest of everything else.
int compare(const process_now &a, const process_now &b, column by)
{
    const auto order = [](const auto &x, const auto &y) { return x < y ? -1 : y < x ? 1 : 0; };
    switch (by) {
    case column::gpu:
        return order(a.gpu, b.gpu);
    case column::pid:
        return order(a.pid, b.pid);
    case column::user:
        return order(a.user, b.user);
    case column::memory:
        return order(b.memory, a.memory);
    case column::all_memory:
        return order(b.all_memory, a.all_memory);
    case column::command:
        break;
    }
    return order(a.command, b.command);
}

bool contains(const std::string &text, const std::string &part)
{
    return strcasestr(text.c_str(), part.c_str()) != nullptr;
}

} // namespace

readings::request model::request()
{
    readings::request wanted{.fields = {std::begin(fields_over_time), std::end(fields_over_time)}, .processes = true};
    const auto beside = readings::pick<"model", "name", "memory_total", "thermal_slowdown", "thermal_shutdown",
                                       "fan_speed_max", "gfx_clock_max_mhz">();
    wanted.fields.insert(wanted.fields.end(), beside.begin(), beside.end());
    return wanted;
}

void model::take(const readings::answers &said, moment began, std::chrono::system_clock::time_point now)
{
    snapshot fresh{.began = began, .told = now, .any = true};
    past_.begin_round(began, wanted.interval);
    for (const readings::answer &one : said) {
        const auto before = std::find_if(latest_.gpus.begin(), latest_.gpus.end(),
                                         [&](const gpu_now &g) { return g.index == one.index; });
        fresh.gpus.push_back(gpu_from(one, before == latest_.gpus.end() ? nullptr : &*before));
        past_.add(one.index, fresh.gpus.back().values);
        add_processes(one, fresh.processes);
    }
    latest_ = std::move(fresh);
    if (!latest_.gpus.empty() && gpu(selected) == nullptr)
        selected = latest_.gpus.front().index;
}

const gpu_now *model::gpu(unsigned index) const
{
    const auto &all = shown().gpus;
    const auto found = std::find_if(all.begin(), all.end(), [&](const gpu_now &g) { return g.index == index; });
    return found == all.end() ? nullptr : &*found;
}

bool model::is_ill() const
{
    return std::any_of(latest_.gpus.begin(), latest_.gpus.end(), [](const gpu_now &g) { return is_sick(g.state); });
}

void model::pause(bool now)
{
    if (now && !frozen_)
        frozen_ = latest_;
    if (!now)
        frozen_.reset();
}

std::vector<process_now> model::listed(std::optional<unsigned> of) const
{
    std::vector<process_now> rows;
    for (const process_now &p : shown().processes) {
        const bool matches = filter.empty() || contains(p.command, filter) || contains(p.user, filter) ||
                             contains(std::to_string(p.pid), filter);
        if (matches && (!of || *of == p.gpu))
            rows.push_back(p);
    }
    std::sort(rows.begin(), rows.end(), [&](const process_now &a, const process_now &b) {
        const int first = compare(a, b, wanted.sort);
        if (first != 0)
            return wanted.reversed ? first > 0 : first < 0;
        for (const column by : {wanted.then_sort, column::gpu, column::pid}) {
            if (const int order = compare(a, b, by); order != 0)
                return order < 0;
        }
        return false;
    });
    return rows;
}

} // namespace top
