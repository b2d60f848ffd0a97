// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "answer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace readings {

// What goes between a reader and the program: one document a message, in as many packets as it takes.

using packet = std::vector<std::uint8_t>;

std::vector<packet> packets_of(const json &document);

// Puts the packets of a document together again.
class assembly {
public:
    enum class outcome { more, whole, garbage };
    outcome add(const std::uint8_t *data, std::size_t size);
    const json &document() const { return document_; } // once it is whole
    void clear();

private:
    packet collected_;
    json document_;
};

json request_document(const request &asked, std::uint64_t number);
std::optional<request> request_from(const json &document);

json value_document(const value &v);
std::optional<value> value_from(const json &document);

// Only what a reader knows: values, lists and results.
json answer_document(const answer &said, const request &asked, std::uint64_t number);
// False when the document is none of ours; SAID may be partly filled then.
bool take_answer(const json &document, answer &said);

// The number of the request that a document belongs to, and whether it is an answer at all.
std::optional<std::uint64_t> number_of(const json &document);

} // namespace readings
