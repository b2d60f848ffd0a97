// SPDX-License-Identifier: Apache-2.0
#include "report_mask.h"

#include "frame.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <fmt/format.h>
#include <functional>
#include <iterator>
#include <span>

namespace {

constexpr std::uint32_t first_placeholder = 0xc0de0001;
constexpr std::size_t chip_position = 7; // among the numbers of the static node
constexpr std::size_t chip_offset = 32;  // in the driver's record of them
constexpr std::size_t text_offset = 44, text_size = 32;
constexpr std::size_t static_size = 120, counters_size = 336, process_size = 184;

bool is_word(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// The same form: letters, digits and all that is neither stay what they are.
std::string shape_of(std::string_view text)
{
    std::string shape(text);
    for (char &c : shape) {
        const auto byte = static_cast<unsigned char>(c);
        c = std::isdigit(byte) != 0 ? '0' : std::isalpha(byte) != 0 || byte > 0x7f ? 'x' : c;
    }
    return shape;
}

std::string by_line(std::string_view text, const std::function<std::string(std::string_view)> &line_of)
{
    std::string made;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        made += line_of(text.substr(0, end));
        if (end == text.npos)
            break;
        made += '\n';
        text.remove_prefix(end + 1);
    }
    return made;
}

bool has_any(std::string_view text, std::span<const std::string_view> parts)
{
    return std::any_of(parts.begin(), parts.end(), [&](std::string_view part) { return text.find(part) != text.npos; });
}

bool begins_with_any(std::string_view text, std::span<const std::string_view> parts)
{
    return std::any_of(parts.begin(), parts.end(), [&](std::string_view part) { return text.starts_with(part); });
}

// ---- the driver's dump: sizes, versions and loads are kept

std::string dump_line(std::string_view line)
{
    constexpr std::string_view told[] = {"Free Size:", "UM info:", "KM info:", "DDK info:", "Utilisation:"};
    constexpr std::string_view vocabulary[] = {
        "UM",   "KM",   "DDK",   "info", "Driver", "build", "release", "debug",  "GPU_LOCAL",  "SYSMEM",
        "Free", "Size", "Total", "GPU",  "TDM",    "GEOM",  "CDM",     "VEKGPU", "Utilisation"};
    if (!has_any(line, told))
        return shape_of(line);
    std::string made;
    while (!line.empty()) {
        const auto end = static_cast<std::size_t>(std::find_if_not(line.begin(), line.end(), is_word) - line.begin());
        const std::string_view word = line.substr(0, end);
        const bool number = word.find_first_not_of("0123456789") == word.npos || word == "3D";
        const bool known = std::find(std::begin(vocabulary), std::end(vocabulary), word) != std::end(vocabulary);
        made += number || known ? std::string(word) : shape_of(word);
        line.remove_prefix(end);
        const auto next = static_cast<std::size_t>(std::find_if(line.begin(), line.end(), is_word) - line.begin());
        made += line.substr(0, next);
        line.remove_prefix(next);
    }
    return made;
}

// ---- the trace: who wrote when, and messages that tell of steps alone

// How long the prefix of a message is; 0 where the line is none's beginning.
std::size_t prefix_of(std::string_view line)
{
    constexpr std::string_view begin = "[DBG][", middle = "][vekml]", end = ">: ";
    const std::size_t tag = line.find(middle), message = line.find(end);
    if (!line.starts_with(begin) || tag == line.npos || message == line.npos || message < tag)
        return 0;
    const std::string_view when = line.substr(begin.size(), tag - begin.size());
    const std::string_view where = line.substr(tag + middle.size(), message - tag - middle.size());
    const bool plain = when.find_first_not_of("0123456789-:., pid") == when.npos &&
                       std::all_of(where.begin(), where.end(), [](char c) {
                           return is_word(c) || std::string_view("./()-<").find(c) != std::string_view::npos;
                       });
    return plain ? message + end.size() : 0;
}

std::string trace_line(std::string_view line)
{
    constexpr std::string_view kept[] = {"enter ",
                                         "exit ",
                                         "open error",
                                         "readsize is ",
                                         "call vekml_",
                                         "count is",
                                         "true_count",
                                         "node_path: /sys/",
                                         "-1, ",
                                         "read /sys/",
                                         "fopen() /sys/",
                                         "True Card path is /sys/",
                                         "hwmon path name:/sys/"};
    const std::size_t prefix = prefix_of(line);
    const std::string_view message = line.substr(prefix);
    if (prefix == 0)
        return shape_of(line);
    return std::string(line.substr(0, prefix)) +
           (begins_with_any(message, kept) ? std::string(message) : shape_of(message));
}

// ---- replies

template <typename Number>
Number number_at(const std::string &bytes, std::size_t offset)
{
    Number number{};
    if (offset + sizeof number <= bytes.size())
        std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
}

// COUNT numbers of the reply from OFFSET on, as a line.
template <typename Number>
std::string numbers(const char *keyword, const std::string &bytes, std::size_t offset, std::size_t count)
{
    std::string line = keyword;
    for (std::size_t i = 0; i < count; ++i)
        line += fmt::format(" {}", number_at<Number>(bytes, offset + i * sizeof(Number)));
    return line + "\n";
}

std::string hexadecimal(const std::string &bytes, std::size_t offset, std::size_t size)
{
    std::string line = "hex ";
    for (std::size_t i = offset; i < offset + size && i < bytes.size(); ++i)
        line += fmt::format("{:02x}", static_cast<unsigned char>(bytes[i]));
    return line + "\n";
}

std::string counters_reply(const std::string &bytes)
{
    std::string text;
    for (std::size_t i = 0; i < counters_size / sizeof(std::uint64_t); i += 6)
        text += numbers<std::uint64_t>("u64", bytes, i * sizeof(std::uint64_t), 6);
    return text;
}

std::string processes_reply(const std::string &bytes)
{
    std::string text;
    std::size_t at = 0;
    for (; at + process_size <= bytes.size() && number_at<std::uint32_t>(bytes, at) != 0; at += process_size)
        text +=
            numbers<std::uint32_t>("u32", bytes, at, 2) +
            numbers<std::int64_t>("i64", bytes, at + sizeof(std::uint64_t), process_size / sizeof(std::int64_t) - 1);
    return text + fmt::format("zero {}\n", process_size);
}

// ---- the rest

// Extended capabilities are a chain; a serial number is one of them.
std::string configuration(std::string bytes)
{
    constexpr std::size_t first = 0x100;
    constexpr std::uint32_t serial_number = 3;
    constexpr std::size_t serial_size = 8;
    std::size_t at = first;
    for (int link = 0; link < 64 && at >= first && at + 4 + serial_size <= bytes.size(); ++link) {
        const auto header = number_at<std::uint32_t>(bytes, at);
        if ((header & 0xffff) == serial_number)
            std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at) + 4, serial_size, '\0');
        at = header >> 20;
    }
    return bytes;
}

std::string package_line(std::string_view line)
{
    constexpr std::string_view kept[] = {"vekgpu", "libva", "libdrm", "pciaccess", "linux-image", "firmware", "mesa"};
    return line.starts_with("ii") && !has_any(line, kept) ? std::string() : std::string(line);
}

std::optional<std::uint32_t> chip_in(std::string_view text)
{
    const std::size_t end = text.find_last_not_of(" \t\r\n");
    text = text.substr(0, end == text.npos ? 0 : end + 1);
    std::uint32_t id = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), id, 16);
    return error == std::errc() && rest == text.data() + text.size() ? std::optional(id) : std::nullopt;
}

std::vector<std::string_view> words_of(std::string_view text)
{
    constexpr const char *blanks = " \t\r\n";
    std::vector<std::string_view> words;
    for (std::size_t at = text.find_first_not_of(blanks); at != text.npos; at = text.find_first_not_of(blanks, at)) {
        const std::size_t end = std::min(text.find_first_of(blanks, at), text.size());
        words.push_back(text.substr(at, end - at));
        at = end;
    }
    return words;
}

std::string_view name_in_status(std::string_view text)
{
    constexpr std::string_view label = "Name:\t";
    return text.starts_with(label) ? text.substr(label.size(), text.find('\n') - label.size()) : std::string_view();
}

} // namespace

void report_mask::learn_chip(std::uint32_t id)
{
    const auto next = static_cast<std::uint32_t>(chips_.size());
    const auto [entry, fresh] = chips_.try_emplace(id, first_placeholder + next);
    constexpr std::uint32_t telling = 0x10000; // smaller numbers mean many things
    if (!fresh || id < telling)
        return;
    secrets_[fmt::format("{:x}", id)] = secrets_[fmt::format("{:08x}", id)] = fmt::format("{:x}", entry->second);
    secrets_[fmt::format("{:X}", id)] = secrets_[fmt::format("{:08X}", id)] = fmt::format("{:X}", entry->second);
    secrets_[std::to_string(id)] = std::to_string(entry->second);
    secrets_[std::to_string(static_cast<std::int32_t>(id))] = std::to_string(entry->second);
}

void report_mask::learn(content what, std::string_view text)
{
    if (keep_all_)
        return;
    if (what == content::chip_id) {
        constexpr std::size_t telling = 4;
        const auto words = words_of(text);
        if (const auto id = chip_in(text); id && *id != 0)
            learn_chip(*id);
        else if (!id && words.size() == 1 && words.front().size() >= telling)
            secrets_[std::string(words.front())] = shape_of(words.front());
    } else if (what == content::static_facts) {
        const auto words = words_of(text);
        if (const auto id =
                words.size() > chip_position ? to_number<std::uint32_t>(words[chip_position]) : std::nullopt)
            learn_chip(*id);
    } else if (what == content::static_reply) {
        if (const auto id = number_at<std::uint32_t>(std::string(text), chip_offset); id != 0)
            learn_chip(id);
    } else if (what == content::process_status) {
        name_placeholder(name_in_status(text));
    }
}

std::string report_mask::chip_placeholder(std::uint32_t id)
{
    const auto found = chips_.find(id);
    return found == chips_.end() ? "0" : fmt::format("{:x}", found->second);
}

std::string report_mask::name_placeholder(std::string_view name)
{
    const auto found = names_.find(name);
    if (found != names_.end())
        return found->second;
    return names_[std::string(name)] = fmt::format("process-{}", names_.size());
}

// What was told in one place may stand in another as well.
std::string report_mask::without_secrets(std::string text) const
{
    for (const auto &[secret, placeholder] : secrets_) {
        for (std::size_t at = 0; (at = text.find(secret, at)) != text.npos;) {
            const bool whole = (at == 0 || !is_word(text[at - 1])) &&
                               (at + secret.size() == text.size() || !is_word(text[at + secret.size()]));
            const bool prefixed = at >= 2 && text[at - 1] == 'x' && text[at - 2] == '0';
            if (whole || prefixed)
                text.replace(at, secret.size(), placeholder);
            at += whole || prefixed ? placeholder.size() : 1;
        }
    }
    return text;
}

std::string report_mask::static_facts(const std::string &text)
{
    std::string made;
    std::size_t position = 0;
    const char *at = text.data();
    for (const std::string_view word : words_of(text)) {
        made.append(at, word.data());
        const auto number = to_number<std::uint64_t>(word);
        const auto chip = position == chip_position ? to_number<std::uint32_t>(word) : std::nullopt;
        if (chip && *chip != 0)
            made += std::to_string(chips_.contains(*chip) ? chips_.at(*chip) : 0);
        else
            made += number && position != chip_position ? std::string(word) : shape_of(word);
        at = word.data() + word.size();
        ++position;
    }
    return made.append(at, text.data() + text.size());
}

std::string report_mask::static_reply(std::string bytes)
{
    bytes.resize(static_size);
    const auto id = number_at<std::uint32_t>(bytes, chip_offset);
    if (!keep_all_) {
        const std::uint32_t shown = chips_.contains(id) ? chips_.at(id) : 0;
        std::memcpy(bytes.data() + chip_offset, &shown, sizeof shown);
        std::fill_n(bytes.begin() + text_offset, text_size, '\0');
    }
    using u32 = std::uint32_t;
    using u64 = std::uint64_t;
    return numbers<u32>("u32", bytes, 0, 4) + numbers<u64>("u64", bytes, 16, 1) + numbers<u32>("u32", bytes, 24, 5) +
           hexadecimal(bytes, text_offset, text_size) + numbers<u32>("u32", bytes, 76, 7) +
           numbers<u64>("u64", bytes, 104, 1) + numbers<u32>("u32", bytes, 112, 2);
}

std::string report_mask::status(const std::string &text)
{
    constexpr std::string_view kept[] = {"State:", "Tgid:", "Pid:", "PPid:", "Threads:"};
    std::string made = fmt::format("Name:\t{}\n", name_placeholder(name_in_status(text)));
    by_line(text, [&](std::string_view line) {
        if (begins_with_any(line, kept))
            made += std::string(line) + "\n";
        return std::string();
    });
    return made;
}

std::string report_mask::masked(content what, std::string text)
{
    switch (what) { // the same in every report
    case content::static_reply:
        return static_reply(std::move(text));
    case content::counters_reply:
        return counters_reply(text);
    case content::processes_reply:
        return processes_reply(text);
    default:
        break;
    }
    if (keep_all_)
        return text;
    switch (what) {
    case content::chip_id: {
        const auto id = chip_in(text);
        const std::size_t end = text.find_last_not_of(" \t\r\n") + 1;
        return (id ? chip_placeholder(*id) : shape_of(text.substr(0, end))) + text.substr(end);
    }
    case content::static_facts:
        return static_facts(text);
    case content::configuration:
        return configuration(std::move(text));
    case content::driver_dump:
        return without_secrets(by_line(text, dump_line));
    case content::trace:
        return without_secrets(by_line(text, trace_line));
    case content::process_status:
        return status(text);
    case content::process_name:
        return name_placeholder(text.substr(0, text.find_last_not_of('\n') + 1)) + "\n";
    case content::package_list: {
        std::string made;
        by_line(text, [&](std::string_view line) {
            if (const std::string held = package_line(line); !held.empty())
                made += held + "\n";
            return std::string();
        });
        return without_secrets(made);
    }
    default:
        return without_secrets(std::move(text));
    }
}

std::vector<unsigned> processes_in(content what, std::string_view text)
{
    std::vector<unsigned> found;
    if (what == content::processes_reply) {
        const std::string bytes(text);
        for (std::size_t at = 0; at + process_size <= bytes.size(); at += process_size) {
            const auto pid = number_at<std::uint32_t>(bytes, at);
            if (pid == 0)
                break;
            found.push_back(pid);
        }
        return found;
    }
    constexpr std::size_t sizes = 5, entry = 23; // four sizes and the number of entries; then an entry each
    const auto words = words_of(text);
    for (std::size_t i = sizes; i < words.size(); i += entry) {
        if (const auto pid = to_number<unsigned>(words[i]))
            found.push_back(*pid);
    }
    return found;
}
