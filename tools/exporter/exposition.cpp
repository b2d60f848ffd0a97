// SPDX-License-Identifier: Apache-2.0
#include "exposition.h"

#include "readings/value.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <optional>

namespace exporter {
namespace {

constexpr std::string_view openmetrics_type = "application/openmetrics-text";

// Takes the part of TEXT before SEPARATOR off it.
std::string_view next_part(std::string_view &text, char separator)
{
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view part = readings::trimmed(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    return part;
}

struct range { // of an Accept header
    std::string_view type;
    double quality = 1;
    bool is_known_version = true;
};

range range_from(std::string_view text)
{
    range found{.type = next_part(text, ';')};
    while (!text.empty()) {
        const std::string_view parameter = next_part(text, ';');
        if (parameter.starts_with("q=")) {
            const char *begin = parameter.data() + 2, *end = parameter.data() + parameter.size();
            if (std::from_chars(begin, end, found.quality).ec != std::errc())
                found.quality = 0;
        } else if (parameter.starts_with("version=")) {
            found.is_known_version = parameter == "version=1.0.0" || parameter == "version=0.0.1";
        }
    }
    return found;
}

// Backslashes and line ends; in a label's value quotes as well.
std::string escaped(std::string_view text, bool in_quotes)
{
    std::string safe;
    safe.reserve(text.size());
    for (const char c : text) {
        if (c == '\n') {
            safe += "\\n";
            continue;
        }
        if (c == '\\' || (in_quotes && c == '"'))
            safe += '\\';
        safe += c;
    }
    return safe;
}

constexpr std::string_view suffix_of(family_kind kind)
{
    return kind == family_kind::counter ? "_total" : kind == family_kind::info ? "_info" : "";
}

} // namespace

dialect preferred_dialect(std::string_view accept)
{
    double openmetrics = 0, text = 0;
    while (!accept.empty()) {
        const range r = range_from(next_part(accept, ','));
        if (r.type == openmetrics_type && r.is_known_version)
            openmetrics = std::max(openmetrics, r.quality);
        else if (r.type == "text/plain")
            text = std::max(text, r.quality);
    }
    return openmetrics > 0 && openmetrics >= text ? dialect::openmetrics : dialect::text;
}

const char *content_type_of(dialect d)
{
    return d == dialect::openmetrics ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                                     : "text/plain; version=0.0.4; charset=utf-8";
}

void exposition::begin_family(std::string_view name, family_kind kind, std::string_view help)
{
    const bool open = dialect_ == dialect::openmetrics;
    const std::string_view family = open ? name.substr(0, name.size() - suffix_of(kind).size()) : name;
    const std::string_view type = kind == family_kind::counter        ? "counter"
                                  : kind == family_kind::info && open ? "info"
                                                                      : "gauge";
    name_ = name;
    description_ = fmt::format("# HELP {0} {1}\n# TYPE {0} {2}\n", family, escaped(help, open), type);
}

void exposition::add(std::span<const label_pair> labels, double value)
{
    if (!std::isfinite(value))
        return;
    page_ += std::exchange(description_, {});
    page_ += name_;
    char next = '{';
    for (const auto &[name, text] : labels) {
        fmt::format_to(std::back_inserter(page_), "{}{}=\"{}\"", next, name, escaped(readings::printable(text), true));
        next = ',';
    }
    fmt::format_to(std::back_inserter(page_), "{}{}\n", labels.empty() ? " " : "} ", value);
}

std::string exposition::finish()
{
    if (dialect_ == dialect::openmetrics)
        page_ += "# EOF\n";
    return std::move(page_);
}

} // namespace exporter
