// SPDX-License-Identifier: Apache-2.0
#include "metrics.h"

#include "readings/process_facts.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fmt/format.h>
#include <set>

namespace exporter {
namespace {

using readings::field;
using readings::gpu_state;
using readings::metric_kind;

double in_base_units(double number, readings::unit u)
{
    const double factor = facts_of(u).to_base;
    // A division by ten is exact where a multiplication by a tenth is not: 0.57, not 0.5700000000000001.
    return factor < 1 ? number / std::round(1 / factor) : number * factor;
}

class writer {
public:
    writer(const snapshot &seen, dialect d) : seen_(seen), page_(d) {}

    std::string finish() { return page_.finish(); }

    void about_ourselves()
    {
        page_.begin_family("vekgpu_exporter_build_info", family_kind::info, "version of the exporter");
        page_.add({{"version", VEKGPU_ML_VERSION}}, 1);
        page_.begin_family("vekgpu_scrape_duration_seconds", family_kind::gauge, "how long asking the GPUs took");
        page_.add({}, std::round(seen_.took.count() * 1e6) / 1e6);
    }

    void states()
    {
        page_.begin_family("vekgpu_up", family_kind::gauge, "whether the GPU answered: 1 yes, 0 no");
        for (std::size_t i = 0; i < seen_.gpus.size(); ++i)
            page_.add({{"bus_id", bus_id(i)}}, seen_.gpus[i].state == gpu_state::ok ? 1 : 0);
        page_.begin_family("vekgpu_state", family_kind::gauge, "1 for the state that the GPU is in, 0 for the others");
        for (std::size_t i = 0; i < seen_.gpus.size(); ++i) {
            for (const gpu_state state : readings::all_states)
                page_.add({{"bus_id", bus_id(i)}, {"state", name_of(state)}}, seen_.gpus[i].state == state ? 1 : 0);
        }
        page_.begin_family("vekgpu_read_errors_total", family_kind::counter,
                           "readings that the driver did not give, by reason");
        for (std::size_t i = 0; i < seen_.gpus.size(); ++i) {
            for (std::size_t why = 0; why < std::size(error_reasons); ++why)
                page_.add({{"bus_id", bus_id(i)}, {"reason", name_of(error_reasons[why])}},
                          static_cast<double>(seen_.histories[i].errors[why]));
        }
        page_.begin_family("vekgpu_last_success_timestamp_seconds", family_kind::gauge, "when the GPU last answered");
        for (std::size_t i = 0; i < seen_.gpus.size(); ++i) {
            if (const auto &when = seen_.histories[i].last_success) {
                const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(when->time_since_epoch());
                page_.add({{"bus_id", bus_id(i)}}, static_cast<double>(since.count()) / 1000);
            }
        }
    }

    void facts()
    {
        page_.begin_family("vekgpu_info", family_kind::info, "what the GPU is");
        for (std::size_t i = 0; i < seen_.gpus.size(); ++i) {
            std::vector<label_pair> labels = {{"bus_id", bus_id(i)}};
            labels.insert(labels.end(), seen_.histories[i].facts.begin(), seen_.histories[i].facts.end());
            page_.add(labels, 1);
        }
    }

    // The field and, where it has siblings, all of them.
    void readings_of(const field &first)
    {
        const bool has_siblings = *first.exported.label_value != '\0';
        const std::string name = fmt::format("vekgpu_{}", first.exported.name);
        page_.begin_family(name,
                           first.exported.kind == metric_kind::counter ? family_kind::counter : family_kind::gauge,
                           has_siblings ? fmt::format("{}, for each {}", words(first), first.exported.label)
                                        : std::string(first.help));
        std::vector<const field *> siblings;
        for (const field &f : readings::all_fields) {
            if (std::strcmp(f.exported.name, first.exported.name) == 0 && f.exported.kind == first.exported.kind)
                siblings.push_back(&f);
        }
        for (std::size_t i = 0; i < seen_.gpus.size(); ++i) {
            for (const field *f : siblings)
                reading(i, *f);
        }
    }

    void processes(unsigned most)
    {
        page_.begin_family("vekgpu_process_memory_bytes", family_kind::gauge, "GPU memory of a process");
        for (std::size_t i = 0; i < seen_.gpus.size(); ++i)
            processes_of(i, most);
    }

private:
    std::string_view bus_id(std::size_t i) const { return seen_.histories[i].bus_id; }

    static std::string words(const field &f)
    {
        std::string text = f.exported.name;
        std::replace(text.begin(), text.end(), '_', ' ');
        return text;
    }

    void reading(std::size_t i, const field &f)
    {
        const readings::value &held = seen_.gpus[i][f];
        if (const auto *list = std::get_if<std::vector<std::uint64_t>>(&held)) {
            for (std::size_t at = 0; at < list->size(); ++at)
                page_.add({{"bus_id", bus_id(i)}, {f.exported.label, std::to_string(at)}},
                          in_base_units(static_cast<double>((*list)[at]), f.in));
            return;
        }
        double number = 0;
        if (!as_number(held, number))
            return;
        if (*f.exported.label != '\0')
            page_.add({{"bus_id", bus_id(i)}, {f.exported.label, f.exported.label_value}}, in_base_units(number, f.in));
        else
            page_.add({{"bus_id", bus_id(i)}}, in_base_units(number, f.in));
    }

    void processes_of(std::size_t i, unsigned most)
    {
        std::set<std::uint64_t> written; // a driver that names a process twice must not cost the whole page
        for (const readings::process &p : processes_in(seen_.gpus[i])) {
            if (written.size() < most && written.insert(p.pid).second)
                page_.add({{"bus_id", bus_id(i)}, {"pid", std::to_string(p.pid)}, {"name", p.name}, {"user", p.user}},
                          static_cast<double>(p.memory));
        }
    }

    const snapshot &seen_;
    exposition page_;
};

} // namespace

std::string metrics_page(const snapshot &seen, unsigned processes, dialect d)
{
    writer page(seen, d);
    page.about_ourselves();
    page.states();
    page.facts();
    std::set<std::string_view> written;
    for (const field &f : readings::all_fields) {
        const bool is_number = f.exported.kind == metric_kind::gauge || f.exported.kind == metric_kind::counter;
        if (is_number && written.insert(f.exported.name).second)
            page.readings_of(f);
    }
    if (processes > 0)
        page.processes(processes);
    return page.finish();
}

} // namespace exporter
