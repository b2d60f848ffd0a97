// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "debug_log.h"
#include "raii.h"
#include "text_node.h"
#include "vekml.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace vekml {

/** One process in the driver's reply. */
struct gpu_mem {
    std::uint32_t ui32Pid; /**< 0 ends the list */
    std::uint32_t padding;
    std::int64_t i64StatValue[VEKML_PROCESS_STATISTICS - 1];
};
static_assert(sizeof(gpu_mem) == 184);

/** The statistics that are kept, by their place in ::process_mem_info. */
inline constexpr std::size_t local_memory_label = 13;
inline constexpr std::size_t total_memory_label = 21;

struct process_row {
    vekml_process_t process;
    bool picked;
};

using process_rows = std::unique_ptr<process_row[], memory_releaser>;

process_row make_row(std::uint32_t pid, const std::int64_t (&statistics)[VEKML_PROCESS_STATISTICS - 1]);

/** Read the entries behind the four memory sizes. The count is the driver's word alone: what the text does not hold is
 *  neither read nor made room for. */
process_rows read_entries(const trace_site &site, const long_text_node &node, std::size_t *entries);

/** Where the processes that are reported go. */
struct process_slots {
    vekml_process_t *process;
    char (*name)[VEKML_PROCESS_NAME];
};

/** Chooses the processes to report among those that the driver lists, telling each step to the log. */
class process_list {
public:
    /** Each caller of the list has its own words in the log; nothing else depends on it. */
    enum class wording { node, request, query };

    process_list(const trace_site &site, wording words) : site_(site), words_(words) {}

    struct census {
        std::size_t live;
        std::size_t rows; /**< in use: those of the live and of the ended processes */
    };

    /** Turn the driver's entries into working rows: each entry up to the first without a pid takes a row, which stays
     *  zero for a process that has ended.
     *  @param passed_over entries that are lost behind that of an ended process
     *  @param limit live processes to hold */
    census drop_ended(std::span<process_row> rows, std::size_t passed_over, std::size_t limit) const;

    /** Report the rows with most local memory, the largest first. False when a process's name cannot be had. */
    bool select(std::span<process_row> rows, const process_slots &out, std::uint64_t *count) const;

    /** Results of the request that are failures; not every caller minds positive ones. */
    enum class failures { negative, nonzero };

    /** Both of the above with what the driver delivers on request; 0, or the failure of a step. */
    int request(std::uint32_t card_index, failures failing, const process_slots &out, std::uint64_t *count) const;

private:
    void trace_examined(std::size_t index, std::uint64_t pid) const;
    void trace_memory(const vekml_process_t &process) const;
    void trace_reported(std::size_t index, const vekml_process_t &process, const char *name) const;
    process_row *largest(std::span<process_row> rows) const;
    bool read_name(std::uint64_t pid, char (&name)[VEKML_PROCESS_NAME]) const;

    trace_site site_;
    wording words_;
};

} // namespace vekml
