// SPDX-License-Identifier: Apache-2.0
#include "memory_sizes.h"

#include <algorithm>
#include <cctype>
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

} // namespace vekml
