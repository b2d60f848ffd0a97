// SPDX-License-Identifier: Apache-2.0
#include "processes.h"
#include "output.h"

#include <algorithm>

namespace {

struct process_row {
    unsigned gpu;
    vekml_process_t process;
    std::string name;
};

std::vector<process_row> sorted_rows(gpu_list &gpus)
{
    std::vector<process_row> rows;
    for (gpu &g : gpus) {
        const auto &list = g.processes();
        for (std::size_t i = 0; list && i < list->process_num; ++i)
            rows.push_back({g.index(), list->process[i], cell(text_value(list->process_name[i]))});
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const process_row &a, const process_row &b) { return a.process.mem_lma > b.process.mem_lma; });
    return rows;
}

void print_csv(gpu_list &gpus)
{
    put("index,pid,name,memory,memory_total\n");
    for (const process_row &row : sorted_rows(gpus))
        put(csv_row({std::to_string(row.gpu), std::to_string(row.process.pid), row.name,
                     std::to_string(row.process.mem_lma), std::to_string(row.process.mem_total)}));
}

} // namespace

void print_processes(gpu_list &gpus)
{
    using enum table::align;
    table rows({{"GPU", right}, {"PID", right}, {"MEMORY", right}, {"ALL MEMORY", right}, {"NAME", left}});
    const std::vector<process_row> found = sorted_rows(gpus);
    for (const process_row &row : found)
        rows.add({std::to_string(row.gpu), std::to_string(row.process.pid), std::to_string(row.process.mem_lma),
                  std::to_string(row.process.mem_total), row.name});
    if (!found.empty())
        rows.print();
    bool all_known = true;
    for (gpu &g : gpus) {
        if (!g.processes()) {
            print("GPU {}: processes N/A\n", g.index());
            all_known = false;
        }
    }
    if (found.empty() && all_known)
        put("No process holds GPU memory.\n");
}

int list_processes(const options &wanted, gpu_list &gpus)
{
    if (wanted.shape == format::json)
        print_json(pick({"index", "model", "bus_id"}), gpus, {.processes = true});
    else if (wanted.shape == format::csv)
        print_csv(gpus);
    else
        print_processes(gpus);
    return status_of(gpus);
}
