// SPDX-License-Identifier: Apache-2.0
#include "output.h"
#include "session.h"

namespace {

const field_list &load_fields()
{
    static const field_list fields =
        pick<"video_decoder_rate", "video_decoder_reserved", "video_encoder_rate", "video_encoder_reserved">();
    return fields;
}

std::string names_in(const json &part, const char *key)
{
    std::string names;
    const auto found = part.is_object() ? part.find(key) : part.end();
    for (const json &name : found == part.end() ? json::array() : *found)
        names += fmt::format("{}{}", names.empty() ? "" : " ", printable(name.get<std::string>()));
    return names;
}

// Profile, what is decoded, what is encoded and how.
std::vector<std::string> codec_row(const json &codec)
{
    const json &decoder = codec.at("decoder"), &encoder = codec.at("encoder");
    return {printable(codec.at("profile").get<std::string>()), names_in(decoder, "image_formats"),
            names_in(encoder, "image_formats"), names_in(encoder, "rate_controls")};
}

std::string video_driver(const json &codecs)
{
    return codecs.at("vendor").is_string() ? printable(codecs.at("vendor").get<std::string>()) : "N/A";
}

void print_gpu(const answer &gpu)
{
    print("{}\n", paint(colour::bold, heading_of(gpu, pick<"model", "bus_id">())));
    for (const field *f : load_fields())
        print("  {:<24}{}\n", label(*f), shown(gpu, *f));
    if (gpu.codecs.is_null()) {
        print("  {:<24}{}\n", "codecs", gpu.state == gpu_state::ok ? "N/A" : name_of(gpu.state));
        return;
    }
    print("  {:<24}{}\n", "video driver", video_driver(gpu.codecs));
    using enum table::align;
    table rows({{"  PROFILE", left}, {"DECODES", left}, {"ENCODES", left}, {"RATE CONTROL", left}});
    for (const json &codec : gpu.codecs.at("profiles")) {
        std::vector<std::string> row = codec_row(codec);
        for (std::string &text : row)
            text = text.empty() ? "-" : text;
        row[0] = "  " + row[0];
        rows.add(row);
    }
    rows.print();
}

void print_csv(const answers &gpus)
{
    put("index,profile,decoder_image_formats,encoder_image_formats,encoder_rate_controls\n");
    for (const answer &gpu : gpus) {
        for (const json &codec : gpu.codecs.is_null() ? json::array() : gpu.codecs.at("profiles")) {
            std::vector<std::string> row = codec_row(codec);
            row.insert(row.begin(), std::to_string(gpu.index));
            put(csv_row(row));
        }
    }
}

} // namespace

int show_video(const options &wanted, session &gpus)
{
    request asked{.fields = pick<"index", "model", "bus_id">(), .codecs = true};
    if (wanted.shape != format::csv)
        asked.fields.insert(asked.fields.end(), load_fields().begin(), load_fields().end());
    const answers said = gpus.ask(asked);
    if (wanted.shape == format::json) {
        print_json(asked.fields, said, {.codecs = true});
    } else if (wanted.shape == format::csv) {
        print_csv(said);
    } else {
        for (const answer &gpu : said) {
            put(&gpu == said.data() ? "" : "\n");
            print_gpu(gpu);
        }
    }
    return status_of(said);
}
