// SPDX-License-Identifier: Apache-2.0
#include "debugfs_dump.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace vekml {

namespace {

/** Double the buffer, the new half zeroed. */
bool grow(debugfs_dump &dump)
{
    auto *larger = static_cast<char *>(realloc(dump.text.get(), dump.size * 2));
    if (larger == nullptr)
        return false;
    (void)dump.text.release();
    dump.text.reset(larger);
    std::memset(larger + dump.size, 0, dump.size);
    dump.size *= 2;
    return true;
}

void fail(debugfs_dump &dump, debugfs_dump::step step)
{
    dump.error = errno;
    dump.failed = step;
    if (!dump.has_text())
        dump.text.reset();
}

void read_whole(debugfs_dump &dump, int file)
{
    ssize_t length = read(file, dump.text.get(), dump.size);
    if (length < 0)
        return fail(dump, debugfs_dump::step::read);
    for (std::size_t part = dump.size; static_cast<std::size_t>(length) == part; part = dump.size / 2) {
        if (dump.size == debugfs_dump::largest_size)
            return;
        if (!grow(dump))
            return fail(dump, debugfs_dump::step::grow);
        const std::size_t half = dump.size / 2;
        length = read(file, dump.text.get() + half, half);
        if (length < 0)
            return fail(dump, debugfs_dump::step::reread);
    }
}

} // namespace

debugfs_dump read_debugfs_dump(const char *path)
{
    debugfs_dump dump;
    dump.text.reset(static_cast<char *>(calloc(dump.size, 1)));
    if (!dump.text) {
        fail(dump, debugfs_dump::step::allocate);
        return dump;
    }
    const unique_fd file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file) {
        fail(dump, debugfs_dump::step::open);
        return dump;
    }
    dump.descriptor = file.get();
    read_whole(dump, file.get());
    if (dump.text)
        dump.text.get()[dump.size - 1] = '\0';
    return dump;
}

void trace_failure(const trace_site &site, const debugfs_dump &dump, const char *path, const dump_task &task)
{
    const int size = static_cast<int>(dump.size);
    switch (dump.failed) {
    case debugfs_dump::step::none:
        break;
    case debugfs_dump::step::allocate:
        TRACE_FOR(site, "%s %d bytes to readbuf!", task.no_memory, size);
        break;
    case debugfs_dump::step::open:
        TRACE_FOR(site, "%s, open %s(fd:%d) error! errmsg:%s", task.name, path, dump.descriptor, strerror(dump.error));
        break;
    case debugfs_dump::step::read:
        TRACE_FOR(site, "%s, read %s(fd:%d) error! errmsg:%s", task.name, path, dump.descriptor, strerror(dump.error));
        break;
    case debugfs_dump::step::grow:
        TRACE_FOR(site, "An error occurred when remalloc %d bytes to readbuf!", size * 2);
        break;
    case debugfs_dump::step::reread:
        TRACE_FOR(site, "reread failed!");
        break;
    }
}

} // namespace vekml
