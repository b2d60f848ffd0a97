// SPDX-License-Identifier: Apache-2.0
#include "output.h"
#include "video.h"

#include <nlohmann/json.hpp>

namespace {

using json = nlohmann::ordered_json;

json json_value(const value &v)
{
    return std::visit(
        [](const auto &held) -> json {
            if constexpr (std::is_same_v<std::decay_t<decltype(held)>, std::monostate>)
                return nullptr;
            else
                return held;
        },
        v);
}

json process_objects(gpu &g)
{
    const auto &processes = g.processes();
    if (!processes)
        return nullptr;
    json list = json::array();
    for (std::size_t i = 0; i < processes->process_num; ++i) {
        const vekml_process_t &process = processes->process[i];
        list.push_back({{"pid", process.pid},
                        {"name", json_value(text_value(processes->process_name[i]))},
                        {"memory", process.mem_lma},
                        {"memory_total", process.mem_total}});
    }
    return list;
}

json codec_objects(gpu &g)
{
    if (g.codecs() == nullptr)
        return nullptr;
    json list = json::array();
    for (const codec &c : codecs_of(g)) {
        json object = {{"profile", c.profile}, {"decoder", nullptr}, {"encoder", nullptr}};
        if (c.decoded)
            object["decoder"] = {{"image_formats", c.decoder_formats}};
        if (c.encoded)
            object["encoder"] = {{"image_formats", c.encoder_formats}, {"rate_controls", c.rate_controls}};
        list.push_back(std::move(object));
    }
    return list;
}

} // namespace

std::string json_document(const field_list &fields, const std::vector<gpu *> &gpus, const json_extras &extras)
{
    json document = {{"schema", 1}};
    for (const auto &[key, held] : extras.head)
        document[key] = json_value(held);
    json list = json::array();
    for (gpu *g : gpus) {
        json object = json::object();
        for (const field *f : fields)
            object[f->key] = json_value(f->get(*g));
        if (extras.processes)
            object["processes"] = process_objects(*g);
        if (extras.codecs)
            object["codecs"] = codec_objects(*g);
        list.push_back(std::move(object));
    }
    document["gpus"] = std::move(list);
    // What a driver's text holds need not be UTF-8.
    return document.dump(-1, ' ', false, json::error_handler_t::replace);
}
