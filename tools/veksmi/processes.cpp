// SPDX-License-Identifier: Apache-2.0
#include "processes.h"
#include "output.h"
#include "readings/process_facts.h"
#include "session.h"

#include <algorithm>

namespace {

struct process_row {
    unsigned gpu;
    process of;
};

std::vector<process_row> sorted_rows(const answers &gpus, process_order order)
{
    std::vector<process_row> rows;
    for (const answer &gpu : gpus) {
        for (process &p : processes_in(gpu))
            rows.push_back({gpu.index, std::move(p)});
    }
    std::stable_sort(rows.begin(), rows.end(), [&](const process_row &a, const process_row &b) {
        switch (order) {
        case process_order::pid:
            return a.of.pid < b.of.pid;
        case process_order::user:
            return a.of.user != b.of.user ? a.of.user < b.of.user : a.of.memory > b.of.memory;
        default:
            return a.of.memory > b.of.memory;
        }
    });
    return rows;
}

void print_csv(const std::vector<process_row> &rows)
{
    put("index,pid,name,memory,memory_total,user,command,unit\n");
    for (const auto &[gpu, p] : rows)
        put(csv_row({std::to_string(gpu), std::to_string(p.pid), p.name, std::to_string(p.memory),
                     std::to_string(p.memory_total), p.user, p.command, p.unit}));
}

std::string or_none(const std::string &text)
{
    return text.empty() ? "N/A" : printable(text);
}

} // namespace

void print_processes(const answers &gpus, process_order order)
{
    using enum table::align;
    table rows({{"GPU", right},
                {"PID", right},
                {"USER", left},
                {"MEMORY", right},
                {"ALL MEMORY", right},
                {"NAME", left},
                {"UNIT", left},
                {"COMMAND", left}});
    const std::vector<process_row> found = sorted_rows(gpus, order);
    for (const auto &[gpu, p] : found)
        rows.add({std::to_string(gpu), std::to_string(p.pid), or_none(p.user),
                  human_bytes(static_cast<double>(p.memory)), human_bytes(static_cast<double>(p.memory_total)),
                  or_none(p.name), or_none(p.unit), or_none(p.command)});
    if (output_width() < 80)
        rows.leave_out("ALL MEMORY");
    if (!found.empty())
        rows.print();
    bool all_known = true;
    for (const answer &gpu : gpus) {
        if (gpu.processes.is_null()) {
            print("GPU {}: processes {}\n", gpu.index, shown(gpu, field_of("process_count")));
            all_known = false;
        } else if (gpu.processes.size() >= VEKML_PROCESSES) {
            print("GPU {}: the driver lists no more than {} processes; there may be others.\n", gpu.index,
                  VEKML_PROCESSES);
        }
    }
    if (found.empty() && all_known)
        put("No process holds GPU memory.\n");
}

int list_processes(const options &wanted, session &gpus)
{
    const field_list fields = pick<"index", "model", "bus_id">();
    const answers said = gpus.ask({.fields = pick<"index", "model", "bus_id", "process_count">(), .processes = true});
    if (wanted.shape == format::json)
        print_json(fields, said, {.processes = true});
    else if (wanted.shape == format::csv)
        print_csv(sorted_rows(said, wanted.order));
    else
        print_processes(said, wanted.order);
    return status_of(said);
}
