// SPDX-License-Identifier: Apache-2.0
#include "video_codecs.h"

#include <memory>
#include <span>

namespace readings {
namespace {

json supported(std::span<const vpu_cap_item> items)
{
    json names = json::array();
    for (const vpu_cap_item &item : items) {
        if (item.supported == 1)
            names.push_back(text_of(text_value(item.name)));
    }
    return names;
}

std::string profile_name(const vpu_decoder_item &decoder)
{
    const std::string name = text_of(text_value(decoder.name));
    return name.substr(0, name.rfind(" decoder"));
}

} // namespace

json codecs_of(gpu &g)
{
    if (g.driverless())
        return nullptr;
    const auto found = std::make_unique<Vpu_codec_info_st>();
    const vekml_return_t result = vekml_device_get_vpu_info(g.handle(), found.get());
    g.note(result);
    if (result != VEKML_SUCCESS)
        return nullptr;
    json profiles = json::array();
    for (std::size_t i = 0; i < VEKML_VPU_PROFILES; ++i) {
        const vpu_decoder_item &decoder = found->decoders[i];
        const vpu_encoder_item &encoder = found->encoders[i];
        json object = {{"profile", profile_name(decoder)}, {"decoder", nullptr}, {"encoder", nullptr}};
        if (decoder.supported == 1)
            object["decoder"] = {{"image_formats", supported(decoder.image_formats)}};
        if (encoder.supported == 1)
            object["encoder"] = {{"image_formats", supported(encoder.image_formats)},
                                 {"rate_controls", supported(encoder.rate_controls)}};
        if (decoder.supported == 1 || encoder.supported == 1)
            profiles.push_back(std::move(object));
    }
    const value vendor = text_value(found->vendor);
    return {{"vendor", is_present(vendor) ? json(text_of(vendor)) : json()}, {"profiles", std::move(profiles)}};
}

} // namespace readings
