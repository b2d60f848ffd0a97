// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace exporter {

enum class dialect : std::uint8_t { text, openmetrics };

// What a scraper that sends ACCEPT in its header of that name likes best.
dialect preferred_dialect(std::string_view accept);
const char *content_type_of(dialect d);

enum class family_kind : std::uint8_t { gauge, counter, info };

using label_pair = std::pair<std::string_view, std::string_view>;

// Writes metrics as a scraper reads them: each family whole, its samples behind its description.
class exposition {
public:
    explicit exposition(dialect d) : dialect_(d) {}

    // NAME is that of the samples: a counter's ends in "_total", an information's in "_info".
    void begin_family(std::string_view name, family_kind kind, std::string_view help);
    void add(std::span<const label_pair> labels, double value); // nothing where the value is no finite number
    void add(std::initializer_list<label_pair> labels, double value) { add(std::span(labels), value); }

    std::string finish(); // the page; nothing more can be added

private:
    dialect dialect_;
    std::string page_;
    std::string name_;
    std::string description_; // of a family without a sample so far
};

} // namespace exporter
