// SPDX-License-Identifier: Apache-2.0
#include "session.h"

#include "output.h"
#include "readings/pci_address.h"

#include <algorithm>
#include <cctype>
#include <limits>
#include <optional>

namespace {

// Copied when the first session begins: the originals stand in other files.
std::span<const extension> extensions()
{
    static const extension list[] = {setting_extension, topology_extension};
    return list;
}

struct range {
    unsigned first, last;
};

std::optional<range> to_range(std::string_view text)
{
    const std::size_t dash = text.find('-');
    const auto first = to_number<unsigned>(text.substr(0, dash));
    const auto last = dash == text.npos ? first : to_number<unsigned>(text.substr(dash + 1));
    return first && last && *first <= *last ? std::optional(range{*first, *last}) : std::nullopt;
}

bool same_text(std::string_view a, std::string_view b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

bool is_meant(const answer &gpu, const std::string &item)
{
    if (const auto where = pci_address_from(item))
        return pci_address_from(gpu.bus_id) == where;
    if (const auto indexes = to_range(item); indexes && gpu.index >= indexes->first && gpu.index <= indexes->last)
        return true;
    const auto *uuid = std::get_if<std::string>(&gpu[field_of("uuid")]);
    return uuid != nullptr && same_text(*uuid, item);
}

} // namespace

session::session(const options &wanted)
    : readers_({.deadline = wanted.deadline,
                .out_of_band = wanted.out_of_band,
                .wake = wanted.wake,
                .extensions = extensions()}),
      shape_(wanted.shape)
{
    if (!wanted.gpu.empty())
        choose(wanted.gpu);
}

void session::choose(const std::string &wanted)
{
    const answers known = readers_.round({});
    tell_library_lines(known);
    if (known.empty()) // as each command says in its own way; one that turns up now is not meant
        indexes_.push_back(std::numeric_limits<unsigned>::max());
    for (std::size_t start = 0; !known.empty() && start <= wanted.size();) {
        const std::size_t comma = std::min(wanted.find(',', start), wanted.size());
        const std::string item = wanted.substr(start, comma - start);
        const std::size_t before = indexes_.size();
        for (const answer &gpu : known) {
            if (is_meant(gpu, item))
                indexes_.push_back(gpu.index);
        }
        if (indexes_.size() == before)
            throw usage_error(
                fmt::format("no GPU \"{}\": this host has {}; veksmi list shows them", printable(item), known.size()));
        start = comma + 1;
    }
}

answers session::ask(const request &asked, int stop)
{
    answers said = ask_any(asked, stop);
    found_none_ = said.empty();
    if (found_none_ && shape_ == format::table)
        throw no_gpu_found();
    return said;
}

answers session::ask_any(const request &asked, int stop)
{
    answers said = readers_.round(asked, indexes_, stop);
    if (!asked.more.contains(setting_extension.name)) // whose lines are the reason of its failure
        tell_library_lines(said);
    return said;
}

void session::tell_library_lines(const answers &said)
{
    for (const answer &gpu : said) {
        std::string_view rest = gpu.printed;
        while (!rest.empty()) {
            const std::string_view line = rest.substr(0, rest.find('\n'));
            rest.remove_prefix(std::min(line.size() + 1, rest.size()));
            if (!line.empty() && told_.insert(std::string(line)).second)
                remark(printable(line));
        }
    }
}
