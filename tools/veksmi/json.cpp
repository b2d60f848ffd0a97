// SPDX-License-Identifier: Apache-2.0
#include "output.h"

namespace {

json missing_of(const field_list &fields, const answer &gpu, const json_extras &extras)
{
    json reasons = json::object();
    for (const field *f : fields) {
        if (const missing *why = why_missing(gpu[*f]))
            reasons[f->key] = name_of(why->why);
    }
    const auto add = [&](const char *key, const json &held, reason otherwise) {
        if (held.is_null())
            reasons[key] = name_of(gpu.state == gpu_state::ok ? otherwise : reason_of(gpu.state));
    };
    if (extras.processes) {
        const missing *why = why_missing(gpu[field_of("process_count")]);
        add("processes", gpu.processes, why == nullptr ? reason::failed : why->why);
    }
    if (extras.codecs)
        add("codecs", gpu.codecs,
            gpu.driverless                                ? reason::driverless
            : gpu.result == VEKML_ERROR_LIBRARY_NOT_FOUND ? reason::absent
                                                          : reason::failed);
    return reasons;
}

json gpu_object(const field_list &fields, const answer &gpu, const json_extras &extras)
{
    json object = object_of(gpu);
    for (const field *f : fields)
        object[f->key] = json_value(gpu[*f]);
    if (extras.processes)
        object["processes"] = gpu.processes;
    if (extras.codecs)
        object["codecs"] = gpu.codecs.is_null() ? json() : gpu.codecs["profiles"];
    if (json reasons = missing_of(fields, gpu, extras); !reasons.empty())
        object["missing"] = std::move(reasons);
    return object;
}

std::string document_of(json gpus, const json &head, json units)
{
    json document = {{"schema", 2}};
    document.update(head);
    document["gpus"] = std::move(gpus);
    document["units"] = std::move(units);
    return json_text(document);
}

} // namespace

json object_of(const answer &gpu)
{
    return {{"index", gpu.index},
            {"card", gpu.card ? json(*gpu.card) : json()},
            {"bus_id", gpu.bus_id.empty() ? json() : json(gpu.bus_id)},
            {"state", name_of(gpu.state)}};
}

json json_value(const value &v)
{
    return std::visit(
        [](const auto &held) -> json {
            if constexpr (std::is_same_v<std::decay_t<decltype(held)>, missing>)
                return nullptr;
            else
                return held;
        },
        v);
}

std::string json_document(const field_list &fields, const answers &gpus, const json_extras &extras)
{
    json head = json::object();
    for (const auto &[key, held] : extras.head)
        head[key] = json_value(held);
    json list = json::array(), units = json::object();
    for (const answer &gpu : gpus)
        list.push_back(gpu_object(fields, gpu, extras));
    for (const field *f : fields) {
        if (f->in != unit::none)
            units[f->key] = facts_of(f->in).symbol;
    }
    if (extras.processes)
        units["processes"] = facts_of(unit::byte).symbol;
    return document_of(std::move(list), head, std::move(units));
}

void print_document(json gpus, const json &head, json units)
{
    put(document_of(std::move(gpus), head, std::move(units)) + "\n");
}

std::string json_text(const json &document)
{
    // What a driver's text holds need not be UTF-8, nor fit to be shown: all but plain ASCII goes out escaped.
    std::string text = document.dump(-1, ' ', true, json::error_handler_t::replace);
    for (std::size_t at = 0; (at = text.find('\x7f', at)) != text.npos;)
        text.replace(at, 1, "\\u007f");
    return text;
}
