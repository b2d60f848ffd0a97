// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include <unistd.h>

namespace {

constexpr useconds_t measuring_time = 500000;

template <std::size_t Size>
std::string supported(const vpu_cap_item (&items)[Size])
{
    std::string names;
    for (const vpu_cap_item &item : items) {
        if (item.supported == 1)
            names += (names.empty() ? "" : " ") + printable(item.name);
    }
    return names;
}

// Profile, what is decoded, what is encoded and how: one row per profile that the GPU knows at all.
std::vector<std::vector<std::string>> codec_rows(gpu &g)
{
    std::vector<std::vector<std::string>> rows;
    const Vpu_codec_info_st *codecs = g.codecs();
    for (std::size_t i = 0; codecs != nullptr && i < VEKML_VPU_PROFILES; ++i) {
        const vpu_decoder_item &decoder = codecs->decoders[i];
        const vpu_encoder_item &encoder = codecs->encoders[i];
        if (decoder.supported != 1 && encoder.supported != 1)
            continue;
        std::vector<std::string> row = {profile_name(decoder), "", "", ""};
        if (decoder.supported == 1)
            row[1] = supported(decoder.image_formats);
        if (encoder.supported == 1) {
            row[2] = supported(encoder.image_formats);
            row[3] = supported(encoder.rate_controls);
        }
        rows.push_back(row);
    }
    return rows;
}

const field_list &load_fields()
{
    static const field_list fields =
        pick({"video_decoder_rate", "video_decoder_reserved", "video_encoder_rate", "video_encoder_reserved"});
    return fields;
}

void print_gpu(gpu &g)
{
    const auto heading = pick({"model", "bus_id"});
    put(paint(colour::bold,
              fmt::format("GPU {}  {}  {}", g.index(), cell(heading[0]->get(g)), cell(heading[1]->get(g)))));
    put("\n");
    for (const field *f : load_fields())
        print("  {:<24}{}\n", label(*f), with_unit(*f, f->get(g)));
    if (g.codecs() == nullptr) {
        print("  {:<24}N/A ({})\n", "codecs", meaning(g.result()));
        return;
    }
    print("  {:<24}{}\n", "video driver", cell(text_value(g.codecs()->vendor)));
    using enum table::align;
    table rows({{"  PROFILE", left}, {"DECODES", left}, {"ENCODES", left}, {"RATE CONTROL", left}});
    for (auto row : codec_rows(g)) {
        for (std::string &text : row)
            text = text.empty() ? "-" : text;
        row[0] = "  " + row[0];
        rows.add(row);
    }
    rows.print();
}

void print_csv(gpu_list &gpus)
{
    put("index,profile,decoder_image_formats,encoder_image_formats,encoder_rate_controls\n");
    for (gpu &g : gpus) {
        for (auto row : codec_rows(g)) {
            row.insert(row.begin(), std::to_string(g.index()));
            put(csv_row(row));
        }
    }
}

} // namespace

std::string profile_name(const vpu_decoder_item &decoder)
{
    const std::string name = printable(decoder.name);
    const std::size_t end = name.rfind(" decoder");
    return name.substr(0, end);
}

int show_video(const options &wanted, gpu_list &gpus)
{
    if (wanted.shape != format::csv)
        usleep(measuring_time); // the load is measured from the start of the library
    if (wanted.shape == format::json) {
        field_list fields = pick({"index", "model", "bus_id"});
        fields.insert(fields.end(), load_fields().begin(), load_fields().end());
        print_json(fields, gpus, {.codecs = true});
    } else if (wanted.shape == format::csv) {
        print_csv(gpus);
    } else {
        for (gpu &g : gpus) {
            put(&g == gpus.data() ? "" : "\n");
            print_gpu(g);
        }
    }
    return exit_status(first_failure(gpus));
}
