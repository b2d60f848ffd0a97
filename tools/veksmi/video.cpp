// SPDX-License-Identifier: Apache-2.0
#include "video.h"

#include "output.h"

#include <span>
#include <unistd.h>

namespace {

constexpr useconds_t measuring_time = 500000;

std::vector<std::string> supported(std::span<const vpu_cap_item> items)
{
    std::vector<std::string> names;
    for (const vpu_cap_item &item : items) {
        if (item.supported == 1)
            names.push_back(printable(item.name));
    }
    return names;
}

std::string profile_name(const vpu_decoder_item &decoder)
{
    const std::string name = printable(decoder.name);
    return name.substr(0, name.rfind(" decoder"));
}

// Profile, what is decoded, what is encoded and how.
std::vector<std::string> codec_row(const codec &c)
{
    const auto in_a_cell = [](const std::vector<std::string> &names) {
        return fmt::format("{}", fmt::join(names, " "));
    };
    return {c.profile, in_a_cell(c.decoder_formats), in_a_cell(c.encoder_formats), in_a_cell(c.rate_controls)};
}

const field_list &load_fields()
{
    static const field_list fields =
        pick({"video_decoder_rate", "video_decoder_reserved", "video_encoder_rate", "video_encoder_reserved"});
    return fields;
}

void print_gpu(gpu &g)
{
    const std::string model = cell(field_of("model").get(g)), bus_id = cell(field_of("bus_id").get(g));
    print("{}\n", paint(colour::bold, fmt::format("GPU {}  {}  {}", g.index(), model, bus_id)));
    for (const field *f : load_fields())
        print("  {:<24}{}\n", label(*f), with_unit(*f, f->get(g)));
    if (g.codecs() == nullptr) {
        print("  {:<24}N/A\n", "codecs");
        return;
    }
    print("  {:<24}{}\n", "video driver", cell(text_value(g.codecs()->vendor)));
    using enum table::align;
    table rows({{"  PROFILE", left}, {"DECODES", left}, {"ENCODES", left}, {"RATE CONTROL", left}});
    for (const codec &c : codecs_of(g)) {
        std::vector<std::string> row = codec_row(c);
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
        for (const codec &c : codecs_of(g)) {
            std::vector<std::string> row = codec_row(c);
            row.insert(row.begin(), std::to_string(g.index()));
            put(csv_row(row));
        }
    }
}

} // namespace

std::vector<codec> codecs_of(gpu &g)
{
    std::vector<codec> found;
    const Vpu_codec_info_st *codecs = g.codecs();
    for (std::size_t i = 0; codecs != nullptr && i < VEKML_VPU_PROFILES; ++i) {
        const vpu_decoder_item &decoder = codecs->decoders[i];
        const vpu_encoder_item &encoder = codecs->encoders[i];
        codec c = {profile_name(decoder), decoder.supported == 1, encoder.supported == 1, {}, {}, {}};
        if (c.decoded)
            c.decoder_formats = supported(decoder.image_formats);
        if (c.encoded) {
            c.encoder_formats = supported(encoder.image_formats);
            c.rate_controls = supported(encoder.rate_controls);
        }
        if (c.decoded || c.encoded)
            found.push_back(std::move(c));
    }
    return found;
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
    return status_of(gpus);
}
