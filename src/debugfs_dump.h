// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "debug_log.h"
#include "raii.h"

#include <cstddef>

namespace vekml {

/** The text of the driver's debugfs dump, or the step at which reading it failed. */
struct debugfs_dump {
    enum class step { none, allocate, open, read, grow, reread };

    static constexpr std::size_t first_size = 16384;
    static constexpr std::size_t largest_size = std::size_t{1} << 20;

    step failed = step::none;
    int descriptor = -1;           /**< as it was while the file was open; for messages only */
    int error = 0;                 /**< errno of the failed step */
    std::size_t size = first_size; /**< of the buffer; the size that could not be had is twice this after `grow` */
    unique_text text;              /**< zeroed behind the data up to `size`; null when nothing could be read */

    /** A failure to read on leaves the text read so far, which is used all the same. */
    bool has_text() const { return failed == step::none || failed == step::grow || failed == step::reread; }
};

/** Read a file that does not tell its size: one read of 16384 bytes and, for as long as a read fills its part of the
 *  buffer, a doubled buffer and a read into the new half, up to the largest size. */
debugfs_dump read_debugfs_dump(const char *path);

/** What a dump is read for; each task has its own words in the log. */
struct dump_task {
    const char *name;
    const char *no_memory;
};

/** Log the step that failed, if any. */
void trace_failure(const trace_site &site, const debugfs_dump &dump, const char *path, const dump_task &task);

} // namespace vekml
