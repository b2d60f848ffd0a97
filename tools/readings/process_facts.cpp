// SPDX-License-Identifier: Apache-2.0
#include "process_facts.h"

#include "message.h"
#include "node.h"
#include "read_field.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/format.h>
#include <pwd.h>
#include <sys/stat.h>

namespace readings {
namespace {

json text_or_null(const value &text)
{
    return is_present(text) ? json(text_of(text)) : json();
}

std::string file_of(std::uint64_t pid, const char *name)
{
    const auto text = read_node(fmt::format("/proc/{}/{}", pid, name));
    const auto *held = std::get_if<std::string>(&text);
    return held == nullptr ? std::string() : *held;
}

json user_of(std::uint64_t pid)
{
    struct stat facts {};
    if (stat(fmt::format("/proc/{}", pid).c_str(), &facts) != 0)
        return nullptr;
    passwd entry{};
    passwd *found = nullptr;
    char text[4096];
    if (getpwuid_r(facts.st_uid, &entry, text, sizeof text, &found) == 0 && found != nullptr)
        return found->pw_name;
    return std::to_string(facts.st_uid);
}

json command_of(std::uint64_t pid)
{
    std::string line = file_of(pid, "cmdline");
    std::replace(line.begin(), line.end(), '\0', ' ');
    return text_or_null(text_value(line));
}

bool is_container_id(std::string_view name)
{
    return name.size() >= 32 && name.find_first_not_of("0123456789abcdef") == name.npos;
}

// The service, scope or container that the last step of its control group names.
json unit_of(std::uint64_t pid)
{
    const std::string groups = file_of(pid, "cgroup");
    std::string_view rest = groups;
    while (!rest.empty()) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        if (!line.starts_with("0::") && line.find(":name=systemd:") == line.npos)
            continue;
        while (line.find('/') != line.npos) {
            std::string_view step = line.substr(line.rfind('/') + 1);
            line = line.substr(0, line.rfind('/'));
            std::string_view bare = step;
            for (const std::string_view end : {".scope", ".service"})
                bare = bare.ends_with(end) ? bare.substr(0, bare.size() - end.size()) : bare;
            const std::string_view last = bare.substr(bare.rfind('-') + 1);
            if (is_container_id(last))
                return fmt::format("container {}", last.substr(0, 12));
            if (step.ends_with(".service") || step.ends_with(".scope"))
                return std::string(step);
        }
    }
    return nullptr;
}

json in_bytes(std::int64_t counted)
{
    return value_document(present_units().scaled(quantity::memory, counted));
}

std::optional<std::uint64_t> number_in(const json &object, const char *key)
{
    const auto found = object.find(key);
    return found != object.end() && found->is_number_unsigned() ? std::optional(found->get<std::uint64_t>())
                                                                : std::nullopt;
}

std::string text_in(const json &object, const char *key)
{
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

} // namespace

std::vector<process> processes_in(const answer &said)
{
    std::vector<process> list;
    for (const json &object : said.processes) {
        const auto pid = number_in(object, "pid"), memory = number_in(object, "memory");
        if (pid && memory)
            list.push_back({*pid, *memory, number_in(object, "memory_total").value_or(0), text_in(object, "name"),
                            text_in(object, "user"), text_in(object, "command"), text_in(object, "unit")});
    }
    return list;
}

json processes_of(gpu &g)
{
    if (!is_present(read_field(field_of("process_count"), g)))
        return nullptr;
    const vekml_process_info_t &found = g.processes().record;
    json list = json::array();
    for (std::size_t i = 0; i < found.process_num; ++i) {
        const vekml_process_t &process = found.process[i];
        list.push_back({{"pid", process.pid},
                        {"name", text_or_null(text_value(found.process_name[i]))},
                        {"memory", in_bytes(process.mem_lma)},
                        {"memory_total", in_bytes(process.mem_total)},
                        {"user", user_of(process.pid)},
                        {"command", command_of(process.pid)},
                        {"unit", unit_of(process.pid)}});
    }
    return list;
}

} // namespace readings
