// SPDX-License-Identifier: Apache-2.0
#include "message.h"

#include <algorithm>
#include <iterator>

namespace readings {
namespace {

constexpr std::size_t packet_size = 32768; // below what a socket's buffer takes in any case
constexpr std::size_t longest_message = 64 * 1024 * 1024;
enum continuation : std::uint8_t { last = 0, more = 1 };

// Looks at the nesting alone: a document that is deep for the sake of it would exhaust the stack of whoever builds it.
class depth_guard : public nlohmann::json_sax<json> {
public:
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t &) override { return true; }
    bool string(string_t &) override { return true; }
    bool binary(binary_t &) override { return true; }
    bool key(string_t &) override { return true; }
    bool start_object(std::size_t) override { return enter(); }
    bool end_object() override { return leave(); }
    bool start_array(std::size_t) override { return enter(); }
    bool end_array() override { return leave(); }
    bool parse_error(std::size_t, const std::string &, const nlohmann::detail::exception &) override { return false; }

private:
    static constexpr int deepest = 12;
    bool enter() { return ++depth_ <= deepest; }
    bool leave()
    {
        --depth_;
        return true;
    }
    int depth_ = 0;
};

bool has_flag(const json &document, const char *key)
{
    const auto found = document.find(key);
    return found != document.end() && found->is_boolean() && found->get<bool>();
}

std::optional<missing> missing_from(const json &document)
{
    const auto why = document.find("why"), error = document.find("errno"), node = document.find("node");
    if (why == document.end() || !why->is_number_unsigned() || error == document.end() || !error->is_number_integer() ||
        node == document.end() || !node->is_string())
        return std::nullopt;
    const auto number = why->get<std::uint64_t>();
    if (number >= std::size(all_reasons))
        return std::nullopt;
    return missing{all_reasons[number], error->get<int>(), node->get<std::string>()};
}

} // namespace

std::vector<packet> packets_of(const json &document)
{
    const packet whole = json::to_cbor(document);
    std::vector<packet> packets;
    for (std::size_t at = 0; at < whole.size(); at += packet_size) {
        const std::size_t size = std::min(packet_size, whole.size() - at);
        packet part = {at + size == whole.size() ? last : more};
        part.insert(part.end(), whole.begin() + static_cast<std::ptrdiff_t>(at),
                    whole.begin() + static_cast<std::ptrdiff_t>(at + size));
        packets.push_back(std::move(part));
    }
    return packets;
}

assembly::outcome assembly::add(const std::uint8_t *data, std::size_t size)
{
    if (size < 2 || data[0] > more || collected_.size() + size > longest_message)
        return outcome::garbage;
    collected_.insert(collected_.end(), data + 1, data + size);
    if (data[0] == more)
        return outcome::more;
    const packet whole = std::move(collected_);
    collected_.clear();
    depth_guard guard;
    if (!json::sax_parse(whole, &guard, json::input_format_t::cbor))
        return outcome::garbage;
    document_ = json::from_cbor(whole, true, false);
    return document_.is_object() ? outcome::whole : outcome::garbage;
}

void assembly::clear()
{
    collected_.clear();
    document_ = nullptr;
}

json request_document(const request &asked, std::uint64_t number)
{
    json fields = json::array();
    for (const field *f : asked.fields)
        fields.push_back(index_of(*f));
    return {{"number", number},
            {"fields", std::move(fields)},
            {"processes", asked.processes},
            {"codecs", asked.codecs},
            {"more", asked.more}};
}

std::optional<request> request_from(const json &document)
{
    const auto fields = document.find("fields"), extra = document.find("more");
    if (fields == document.end() || !fields->is_array() || extra == document.end() || !extra->is_object())
        return std::nullopt;
    request asked{.processes = has_flag(document, "processes"), .codecs = has_flag(document, "codecs"), .more = *extra};
    for (const json &index : *fields) {
        if (!index.is_number_unsigned() || index.get<std::uint64_t>() >= field_count)
            return std::nullopt;
        asked.fields.push_back(&all_fields[index.get<std::size_t>()]);
    }
    return asked;
}

json value_document(const value &v)
{
    return std::visit(
        [](const auto &held) -> json {
            if constexpr (std::is_same_v<std::decay_t<decltype(held)>, missing>)
                return {{"why", static_cast<unsigned>(held.why)}, {"errno", held.error}, {"node", held.node}};
            else
                return held;
        },
        v);
}

std::optional<value> value_from(const json &document)
{
    switch (document.type()) {
    case json::value_t::object: {
        const auto why = missing_from(document);
        return why ? std::optional<value>(*why) : std::nullopt;
    }
    case json::value_t::number_integer:
        return document.get<std::int64_t>();
    case json::value_t::number_unsigned:
        return document.get<std::uint64_t>();
    case json::value_t::number_float:
        return document.get<double>();
    case json::value_t::boolean:
        return document.get<bool>();
    case json::value_t::string:
        return document.get<std::string>();
    case json::value_t::array: {
        std::vector<std::uint64_t> list;
        for (const json &item : document) {
            if (!item.is_number_unsigned())
                return std::nullopt;
            list.push_back(item.get<std::uint64_t>());
        }
        return list;
    }
    default:
        return std::nullopt;
    }
}

json answer_document(const answer &said, const request &asked, std::uint64_t number)
{
    json values = json::array();
    for (const field *f : asked.fields)
        values.push_back({index_of(*f), value_document(said[*f])});
    return {{"number", number},
            {"bus_id", said.bus_id},
            {"driverless", said.driverless},
            {"lost", said.state == gpu_state::lost},
            {"values", std::move(values)},
            {"processes", said.processes},
            {"codecs", said.codecs},
            {"more", said.more},
            {"result", said.result},
            {"printed", said.printed}};
}

bool take_answer(const json &document, answer &said)
{
    const auto values = document.find("values"), result = document.find("result");
    if (values == document.end() || !values->is_array() || result == document.end() || !result->is_number_integer())
        return false;
    for (const json &item : *values) {
        if (!item.is_array() || item.size() != 2 || !item[0].is_number_unsigned() ||
            item[0].get<std::uint64_t>() >= field_count)
            return false;
        auto held = value_from(item[1]);
        if (!held)
            return false;
        said.values[item[0].get<std::size_t>()] = std::move(*held);
    }
    const auto text = [&](const char *key) {
        const auto found = document.find(key);
        return found != document.end() && found->is_string() ? found->get<std::string>() : std::string();
    };
    const auto part = [&](const char *key) {
        const auto found = document.find(key);
        return found != document.end() ? *found : json();
    };
    said.bus_id = text("bus_id");
    said.driverless = has_flag(document, "driverless");
    said.state = has_flag(document, "lost") ? gpu_state::lost : gpu_state::ok;
    said.processes = part("processes");
    said.codecs = part("codecs");
    said.more = part("more");
    said.result = result->get<int>();
    said.printed = text("printed");
    const bool shaped = (said.processes.is_array() || said.processes.is_null()) &&
                        (said.codecs.is_object() || said.codecs.is_null()) && said.more.is_object();
    return shaped;
}

std::optional<std::uint64_t> number_of(const json &document)
{
    const auto found = document.find("number");
    if (found == document.end() || !found->is_number_unsigned())
        return std::nullopt;
    return found->get<std::uint64_t>();
}

} // namespace readings
