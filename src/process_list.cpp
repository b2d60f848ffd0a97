// SPDX-License-Identifier: Apache-2.0
#include "process_list.h"

#include "drm_card.h"
#include "number_scan.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

const char *const process_mem_info[VEKML_PROCESS_STATISTICS] = {
    "PID",
    "MemoryUsageKMalloc",
    "MemoryUsageKMallocMax",
    "MemoryUsageVMalloc",
    "MemoryUsageVMallocMax",
    "MemoryUsageAllocPTMemoryUMA",
    "MemoryUsageAllocPTMemoryUMAMax",
    "MemoryUsageVMapPTUMA",
    "MemoryUsageVMapPTUMAMax",
    "MemoryUsageAllocPTMemoryLMA",
    "MemoryUsageAllocPTMemoryLMAMax",
    "MemoryUsageIORemapPTLMA",
    "MemoryUsageIORemapPTLMAMax",
    "MemoryUsageAllocGPUMemLMA",
    "MemoryUsageAllocGPUMemLMAMax",
    "MemoryUsageAllocGPUMemUMA",
    "MemoryUsageAllocGPUMemUMAMax",
    "MemoryUsageMappedGPUMemUMA/LMA",
    "MemoryUsageMappedGPUMemUMA/LMAMax",
    "MemoryUsageDmaBufImport",
    "MemoryUsageDmaBufImportMax",
    "MemoryUsageTotal",
    "MemoryUsageTotalMax",
};
// The same table under its older name.
extern const char *const meminfo[VEKML_PROCESS_STATISTICS] __attribute__((alias("process_mem_info")));

namespace vekml {
namespace {

constexpr std::size_t reply_entries = process_statistics.limit / sizeof(gpu_mem);
constexpr std::size_t live_limit = 30;

/** What one request takes. */
struct request_memory {
    unsigned char reply[process_statistics.limit];
    process_row rows[reply_entries];
};

bool is_alive(std::uint64_t pid)
{
    char path[100];
    snprintf(path, sizeof path, "/proc/%u", static_cast<std::uint32_t>(pid));
    return static_cast<bool>(unique_fd(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
}

void take_entries(request_memory &memory)
{
    for (std::size_t i = 0; i < reply_entries; ++i) {
        gpu_mem entry;
        std::memcpy(&entry, memory.reply + i * sizeof entry, sizeof entry);
        if (entry.ui32Pid == 0)
            return;
        memory.rows[i] = make_row(entry.ui32Pid, entry.i64StatValue);
    }
}

} // namespace

process_row make_row(std::uint32_t pid, const std::int64_t (&statistics)[VEKML_PROCESS_STATISTICS - 1])
{
    return {{pid, statistics[local_memory_label - 1], statistics[total_memory_label - 1]}, false};
}

process_rows read_entries(const trace_site &site, const long_text_node &node, std::size_t *entries)
{
    number_scan scan(node.text());
    std::uint64_t memory_size = 0;
    std::uint32_t count = 0;
    scan >> memory_size >> memory_size >> memory_size >> memory_size >> count;
    TRACE_FOR(site, "temp_num:%u", count);

    constexpr std::size_t shortest_entry = 2 * VEKML_PROCESS_STATISTICS;
    const std::size_t room = std::min<std::size_t>(count, node.length() / shortest_entry + 1);
    process_rows rows(static_cast<process_row *>(calloc(room + 1, sizeof(process_row))));
    if (!rows)
        return rows;
    for (*entries = 0; *entries < room; ++*entries) {
        std::uint32_t pid = 0;
        if (!(scan >> pid))
            break;
        TRACE_FOR(site, "&gpu_mem[i]->ui32Pid:%u", pid);
        std::int64_t statistics[VEKML_PROCESS_STATISTICS - 1] = {};
        for (std::int64_t &value : statistics) {
            scan >> value;
            TRACE_FOR(site, "gpu_mem[i]->i64StatValue[j]:%ld", value);
        }
        rows[*entries] = make_row(pid, statistics);
    }
    return rows;
}

process_list::census process_list::drop_ended(std::span<process_row> rows, std::size_t passed_over,
                                              std::size_t limit) const
{
    std::size_t filled = 0, live = 0;
    int ended = 0;
    for (std::size_t k = 0; k < rows.size() && rows[k].process.pid != 0 && live < limit; ++k) {
        const process_row entry = rows[k];
        trace_examined(k, entry.process.pid);
        if (is_alive(entry.process.pid)) {
            rows[filled] = entry;
            ++live;
            TRACE_FOR(site_, "\n\ni=%d  pid=%ld:", static_cast<int>(filled), entry.process.pid);
            trace_memory(entry.process);
        } else {
            rows[filled] = {};
            TRACE_FOR(site_, "remove_cnt=%d", ++ended);
            k += passed_over;
        }
        ++filled;
    }
    std::fill(rows.begin() + static_cast<std::ptrdiff_t>(filled), rows.end(), process_row{});
    return {live, filled};
}

process_row *process_list::largest(std::span<process_row> rows) const
{
    process_row *best = nullptr;
    std::int64_t max_num = 0;
    for (process_row &row : rows) {
        if (row.picked)
            continue;
        TRACE_FOR(site_, "info_data_mem[j][%d]:%ld", words_ == wording::query ? 2 : 1, row.process.mem_lma);
        if (row.process.mem_lma > max_num) {
            max_num = row.process.mem_lma;
            best = &row;
            TRACE_FOR(site_, "max_num:%ld", max_num);
        }
    }
    return best;
}

bool process_list::read_name(std::uint64_t pid, char (&name)[VEKML_PROCESS_NAME]) const
{
    char path[100];
    snprintf(path, sizeof path, "/proc/%ld/status", static_cast<long>(pid));
    const unique_fd status(open(path, O_RDONLY | O_CLOEXEC));
    if (!status) {
        TRACE_FOR(site_, "Error: open file %s failed.", path);
        return false;
    }
    char line[29] = {};
    if (::read(status.get(), line, sizeof line - 1) <= 0)
        return true;
    line[strcspn(line, "\n")] = '\0';
    constexpr char blanks[] = " \t\v\f\r";
    char *rest = nullptr;
    if (strtok_r(line, blanks, &rest) != nullptr) {
        if (const char *word = strtok_r(nullptr, blanks, &rest))
            copy_text(name, sizeof name, word);
    }
    return true;
}

bool process_list::select(std::span<process_row> rows, const process_slots &out, std::uint64_t *count) const
{
    std::size_t reported = 0;
    while (reported < VEKML_PROCESSES) {
        process_row *row = largest(rows);
        if (row == nullptr)
            break;
        row->picked = true;
        out.process[reported] = row->process;
        char name[VEKML_PROCESS_NAME] = {};
        if (!read_name(row->process.pid, name))
            return false;
        if (name[0] != '\0')
            copy_text(out.name[reported], sizeof name, name);
        trace_reported(reported, row->process, name);
        ++reported;
    }
    *count = reported;
    return true;
}

int process_list::request(std::uint32_t card_index, failures failing, const process_slots &out,
                          std::uint64_t *count) const
{
    const std::unique_ptr<request_memory, memory_releaser> memory(
        static_cast<request_memory *>(calloc(1, sizeof(request_memory))));
    if (!memory)
        return -1;
    drm_card card(card_index);
    if (!card.open()) {
        TRACE_FOR(site_, "\n%s: failed to open mem info file %s", strerror(errno), card.path());
        return -1;
    }
    const int result = card.request(process_statistics, memory->reply);
    TRACE_FOR(site_, "ret %d", result);
    if (result < 0 || (result > 0 && failing == failures::nonzero))
        return result;
    if (words_ == wording::query)
        TRACE_FOR(site_, "%zu", sizeof(gpu_mem));

    take_entries(*memory);
    const census found = drop_ended(memory->rows, 0, live_limit);
    TRACE_FOR(site_, "%s", words_ == wording::query ? "debug for sort." : "sort process by LMA mem.");
    if (found.live == 0) {
        *count = 0;
        return 0;
    }
    // The rows of ended processes may push live ones behind the thirtieth.
    return select(std::span(memory->rows, std::max(found.rows, live_limit)), out, count) ? 0 : -1;
}

// ---- The log ----

void process_list::trace_examined(std::size_t index, std::uint64_t pid) const
{
    if (words_ == wording::node)
        TRACE_FOR(site_, "k:%d \ngpu_mem->ui32Pid: %d\n:", static_cast<int>(index), static_cast<int>(pid));
    else if (words_ == wording::request)
        TRACE_FOR(site_, "\ngpu_mem->ui32Pid: %d\n:", static_cast<int>(pid));
    else
        TRACE_FOR(site_, "\ngpu_mem->ui32Pid: %u\n:", static_cast<unsigned>(pid));
}

void process_list::trace_memory(const vekml_process_t &process) const
{
    if (words_ == wording::query)
        return;
    TRACE_FOR(site_, "%-34s: %ld", process_mem_info[local_memory_label], process.mem_lma);
    TRACE_FOR(site_, "%-34s: %ld", process_mem_info[total_memory_label], process.mem_total);
}

void process_list::trace_reported(std::size_t index, const vekml_process_t &process, const char *name) const
{
    const int number = static_cast<int>(index);
    if (words_ != wording::query)
        TRACE_FOR(site_, "process_name[i]:%s", name);
    TRACE_FOR(site_, "i=%d  pid=%ld:", number, process.pid);
    if (words_ == wording::node)
        TRACE_FOR(site_, "pid:%ld name:%s", process.pid, name);
    else
        TRACE_FOR(site_, "%d: %s", number, name);
    trace_memory(process);
}

} // namespace vekml
