// SPDX-License-Identifier: Apache-2.0
#include "processes.h"
#include "output.h"
#include "session.h"

#include <algorithm>

namespace {

struct process_row {
    unsigned gpu;
    std::uint64_t pid, memory, memory_total;
    std::string name, user, command, unit; // empty where nothing tells
};

std::string text_in(const json &object, const char *key)
{
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? printable(found->get<std::string>()) : std::string();
}

std::uint64_t number_in(const json &object, const char *key)
{
    const auto found = object.find(key);
    return found != object.end() && found->is_number_unsigned() ? found->get<std::uint64_t>() : 0;
}

std::vector<process_row> sorted_rows(const answers &gpus, process_order order)
{
    std::vector<process_row> rows;
    for (const answer &gpu : gpus) {
        for (const json &process : gpu.processes)
            rows.push_back({gpu.index, number_in(process, "pid"), number_in(process, "memory"),
                            number_in(process, "memory_total"), text_in(process, "name"), text_in(process, "user"),
                            text_in(process, "command"), text_in(process, "unit")});
    }
    std::stable_sort(rows.begin(), rows.end(), [&](const process_row &a, const process_row &b) {
        switch (order) {
        case process_order::pid:
            return a.pid < b.pid;
        case process_order::user:
            return a.user != b.user ? a.user < b.user : a.memory > b.memory;
        default:
            return a.memory > b.memory;
        }
    });
    return rows;
}

void print_csv(const std::vector<process_row> &rows)
{
    put("index,pid,name,memory,memory_total,user,command,unit\n");
    for (const process_row &row : rows)
        put(csv_row({std::to_string(row.gpu), std::to_string(row.pid), row.name, std::to_string(row.memory),
                     std::to_string(row.memory_total), row.user, row.command, row.unit}));
}

std::string or_none(const std::string &text)
{
    return text.empty() ? "N/A" : text;
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
    for (const process_row &row : found)
        rows.add({std::to_string(row.gpu), std::to_string(row.pid), or_none(row.user),
                  human_bytes(static_cast<double>(row.memory)), human_bytes(static_cast<double>(row.memory_total)),
                  or_none(row.name), or_none(row.unit), or_none(row.command)});
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
