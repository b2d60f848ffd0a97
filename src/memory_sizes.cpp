// SPDX-License-Identifier: Apache-2.0
#include "memory_sizes.h"

#include "debugfs_dump.h"
#include "vek_smi_utils.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace vekml {
namespace {

constexpr auto nowhere = std::string_view::npos;

/** What stands behind the first occurrence of a word, in capitals or not; without data when there is none. */
std::string_view behind(std::string_view text, std::string_view word)
{
    const auto same = [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); };
    const auto found = std::search(text.begin(), text.end(), word.begin(), word.end(), same);
    if (found == text.end())
        return {};
    return text.substr(static_cast<std::size_t>(found - text.begin()) + word.size());
}

/** What stands behind the first "Free Size: N, Total Size: ". */
std::string_view behind_sizes(std::string_view text)
{
    constexpr std::string_view free_label = "free size: ", total_label = ", total size: ";
    while ((text = behind(text, free_label)).data() != nullptr) {
        text.remove_prefix(std::min(text.find_first_not_of("0123456789"), text.size()));
        const std::string_view rest = behind(text.substr(0, total_label.size()), total_label);
        if (rest.data() != nullptr)
            return text.substr(total_label.size());
    }
    return {};
}

bool has_system_sizes(std::string_view text)
{
    return behind_sizes(behind(text, "sysmem")).data() != nullptr;
}

/** Whether the pattern matches from the start of `line`, a line from its first "GPU_LOCAL" on. */
bool matches(std::string_view line, std::string_view next_line)
{
    const std::string_view rest = behind_sizes(line);
    if (rest.data() == nullptr)
        return false;
    const std::size_t blank = rest.find_first_of(" \t\v\f\r");
    return has_system_sizes(next_line) || (blank != nowhere && has_system_sizes(rest.substr(blank + 1)));
}

std::string_view line_at(std::string_view text, std::size_t at)
{
    return at < text.size() ? text.substr(at, text.find('\n', at) - at) : std::string_view();
}

} // namespace

const char *cut_to_memory_sizes(char *dump)
{
    constexpr std::string_view label = "gpu_local";
    // The matcher goes by the process's locale, where such bytes may be blanks or no characters at all.
    const auto foreign = [](char c) { return static_cast<unsigned char>(c) > 127; };
    std::replace_if(dump, dump + std::strlen(dump), foreign, '?');
    const std::string_view text = dump;
    for (std::size_t at = 0; at < text.size();) {
        const std::string_view line = line_at(text, at);
        at += line.size() + 1;
        const std::string_view rest = behind(line, label);
        if (rest.data() == nullptr)
            continue;
        const std::string_view next_line = line_at(text, at);
        if (!matches(rest, next_line))
            continue;
        const std::size_t end = next_line.empty() ? std::min(at, text.size()) : at + next_line.size();
        dump[end] = '\0';
        return dump + (static_cast<std::size_t>(rest.data() - text.data()) - label.size());
    }
    return "";
}

void complete_memory(const trace_site &site, vekml_mem_info_t *memory)
{
    memory->fb_used = memory->fb_total - memory->fb_free;
    memory->sys_used = memory->sys_total - memory->sys_free;
    TRACE_FOR(site, "memory->: fb_free:%lu, fb_total:%lu, fb_used:%lu; sys_free:%lu, sys_total:%lu, sys_used:%lu",
              memory->fb_free, memory->fb_total, memory->fb_used, memory->sys_free, memory->sys_total,
              memory->sys_used);
}

bool read_memory_dump(const trace_site &site, std::uint32_t table_index, vekml_mem_info_t *memory)
{
    constexpr dump_task task{"get gpu mem info", "get gpu mem info, An error occurred when malloc"};

    char path[64];
    snprintf(path, sizeof path, "/sys/kernel/debug/vekgpu/gpu%02d/debug_dump", static_cast<int>(table_index));
    const debugfs_dump dump = read_debugfs_dump(path);
    trace_failure(site, dump, path, task);
    if (!dump.has_text())
        return false;
    TRACE_FOR(site, "Buffer size:%d\n\n%s", static_cast<int>(dump.size), dump.text.get());
    TRACE_FOR(site, "memory address is %p", static_cast<void *>(memory));

    unique_text found[5]; // the match and its four numbers
    pick_regex(cut_to_memory_sizes(dump.text.get()), memory_sizes_pattern, 4, found);
    const auto number = [&](int group) { return found[group] ? found[group].get() : ""; };
    TRACE_FOR(site, "value1:%s, value2:%s, value3:%s, value4:%s", number(1), number(2), number(3), number(4));
    TRACE_FOR(site, "memory address is %p", static_cast<void *>(memory));
    const auto size = [&](int group) { return static_cast<std::uint64_t>(strtoll(number(group), nullptr, 10)); };
    *memory = {.fb_free = size(1),
               .fb_total = size(2),
               .fb_used = 0,
               .sys_free = size(3),
               .sys_total = size(4),
               .sys_used = 0};
    complete_memory(site, memory);
    return true;
}

} // namespace vekml
