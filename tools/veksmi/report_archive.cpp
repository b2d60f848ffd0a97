// SPDX-License-Identifier: Apache-2.0
#include "report_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <ctime>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace {

struct releaser {
    void operator()(archive *a) const { archive_write_free(a); }
    void operator()(archive_entry *e) const { archive_entry_free(e); }
};
using unique_archive = std::unique_ptr<archive, releaser>;
using unique_entry = std::unique_ptr<archive_entry, releaser>;

la_ssize_t append(archive *, void *packed, const void *bytes, std::size_t size)
{
    static_cast<std::string *>(packed)->append(static_cast<const char *>(bytes), size);
    return static_cast<la_ssize_t>(size);
}

void check(archive *a, int result)
{
    if (result == ARCHIVE_OK || result == ARCHIVE_WARN)
        return;
    const char *why = archive_error_string(a);
    throw std::runtime_error(why == nullptr ? "the archive cannot be made" : why);
}

} // namespace

void report_archive::add(const std::string &path, std::string text, unsigned mode)
{
    entries_.try_emplace(path, entry{kind::file, std::move(text), mode});
}

void report_archive::add_directory(const std::string &path)
{
    entries_.try_emplace(path, entry{kind::directory, {}, 0755});
}

void report_archive::add_link(const std::string &path, const std::string &target)
{
    entries_.try_emplace(path, entry{kind::link, target, 0777});
}

void report_archive::link_to(const std::string &path, const std::string &other)
{
    // The last name stays in the target: what it is tells more than a way up.
    const std::filesystem::path from = std::filesystem::path(path).parent_path(), to = other;
    add_link(path, to.parent_path().lexically_relative(from) / to.filename());
}

std::string report_archive::packed(const std::string &top) const
{
    std::string packed;
    const unique_archive out(archive_write_new());
    const unique_entry one(archive_entry_new());
    if (!out || !one)
        throw std::bad_alloc();
    check(out.get(), archive_write_set_format_pax_restricted(out.get()));
    check(out.get(), archive_write_add_filter_gzip(out.get()));
    check(out.get(), archive_write_set_filter_option(out.get(), "gzip", "timestamp", nullptr));
    check(out.get(), archive_write_set_bytes_in_last_block(out.get(), 1));
    check(out.get(), archive_write_open(out.get(), &packed, nullptr, append, nullptr));
    const std::time_t now = std::time(nullptr);
    for (const auto &[path, e] : entries_) {
        archive_entry_clear(one.get());
        archive_entry_set_pathname(one.get(), (top + path).c_str());
        archive_entry_set_filetype(one.get(), e.what == kind::directory ? AE_IFDIR
                                              : e.what == kind::link    ? AE_IFLNK
                                                                        : AE_IFREG);
        archive_entry_set_perm(one.get(), e.mode);
        archive_entry_set_mtime(one.get(), now, 0);
        archive_entry_set_uname(one.get(), "root");
        archive_entry_set_gname(one.get(), "root");
        if (e.what == kind::link)
            archive_entry_set_symlink(one.get(), e.content.c_str());
        else if (e.what == kind::file)
            archive_entry_set_size(one.get(), static_cast<la_int64_t>(e.content.size()));
        check(out.get(), archive_write_header(out.get(), one.get()));
        if (e.what == kind::file && archive_write_data(out.get(), e.content.data(), e.content.size()) < 0)
            check(out.get(), ARCHIVE_FATAL);
    }
    check(out.get(), archive_write_close(out.get()));
    return packed;
}
