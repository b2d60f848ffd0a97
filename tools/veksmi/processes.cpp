// SPDX-License-Identifier: Apache-2.0
#include "processes.h"
#include "output.h"
#include "session.h"

#include <algorithm>

namespace {

struct process_row {
    unsigned gpu;
    std::uint64_t pid, memory, memory_total;
    std::string name;
};

std::string text_in(const json &object, const char *key)
{
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? printable(found->get<std::string>()) : "N/A";
}

std::vector<process_row> sorted_rows(const answers &gpus)
{
    std::vector<process_row> rows;
    for (const answer &gpu : gpus) {
        for (const json &process : gpu.processes)
            rows.push_back({gpu.index, process.value("pid", std::uint64_t{0}),
                            process.value("memory", std::uint64_t{0}), process.value("memory_total", std::uint64_t{0}),
                            text_in(process, "name")});
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const process_row &a, const process_row &b) { return a.memory > b.memory; });
    return rows;
}

void print_csv(const answers &gpus)
{
    put("index,pid,name,memory,memory_total\n");
    for (const process_row &row : sorted_rows(gpus))
        put(csv_row({std::to_string(row.gpu), std::to_string(row.pid), row.name, std::to_string(row.memory),
                     std::to_string(row.memory_total)}));
}

} // namespace

void print_processes(const answers &gpus)
{
    using enum table::align;
    table rows({{"GPU", right}, {"PID", right}, {"MEMORY", right}, {"ALL MEMORY", right}, {"NAME", left}});
    const std::vector<process_row> found = sorted_rows(gpus);
    for (const process_row &row : found)
        rows.add({std::to_string(row.gpu), std::to_string(row.pid), human_bytes(static_cast<double>(row.memory)),
                  human_bytes(static_cast<double>(row.memory_total)), row.name});
    if (!found.empty())
        rows.print();
    bool all_known = true;
    for (const answer &gpu : gpus) {
        if (gpu.processes.is_null()) {
            print("GPU {}: processes {}\n", gpu.index, shown(gpu, field_of("process_count")));
            all_known = false;
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
        print_csv(said);
    else
        print_processes(said);
    return status_of(said);
}
