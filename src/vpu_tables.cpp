// SPDX-License-Identifier: Apache-2.0
#include "vpu_tables.h"

#include "vek_smi_utils.h"

#include <cstdio>

namespace vekml {
namespace {

// VA's own numbering up to 34; 35 and 36 are extensions of the VA driver. Clients match the names as they are.
constexpr const char *profile_names[] = {
    "mpeg2 simple",
    "mpeg2 main",
    "mpeg4 simple",
    "mpeg4 advanced simple",
    "mpeg4 main",
    "h264 baseline",
    "h264 main",
    "h264 high",
    "vc1 simple",
    "vc1 main",
    "vc1 advanced",
    "h263 baseline",
    "jpeg baseline",
    "h264 constrained baseline",
    "vp8 version0.3",
    "h264 multiview high",
    "h264 stereo high",
    "hevc main",
    "hevc main-10bit",
    "vp9 profile0",
    "vp9 profile1",
    "vp9 profile2",
    "vp9 profile3",
    "hevc main-12bit",
    "hevc main yuv422 10it",
    "hevc main yuv422 12it",
    "hevc main yuv444",
    "hevc main yuv444 10bit",
    "hevc main yuv444 12bit",
    "hevc scc main",
    "hevc scc main 10bit",
    "hevc scc main yuv444",
    "av1 profile0",
    "av1 profile1",
    "hevc scc main yuv444 10bit",
    "avs2 main",
    "h264 high 10bit",
};
static_assert(std::size(profile_names) == VEKML_VPU_PROFILES);

constexpr const char *image_format_names[] = {
    "yuv420",     "yuv422",     "yuv444",     "yuv411", "greyscale", "yuv420-10b",  "yuv422-10b", "yuv444-10b",
    "yuv420-12b", "yuv422-12b", "yuv444-12b", "rgb16",  "rgb32",     "planner-rgb", "rgb32-10b",
};
constexpr std::uint32_t image_formats[] = {
    0x1, 0x2, 0x4, 0x8, 0x10, 0x100, 0x200, 0x400, 0x1000, 0x2000, 0x4000, 0x10000, 0x20000, 0x100000, 0x200000,
};
static_assert(std::size(image_format_names) == VEKML_VPU_IMAGE_FORMATS);

constexpr const char *rate_control_names[] = {
    "cbr", "vbr", "vcm", "cqp", "vbr-constrained", "icq", "mb", "cfs", "parallel", "qvbr", "avbr", "tcbrc",
};
constexpr std::uint32_t rate_controls[] = {
    0x2, 0x4, 0x8, 0x10, 0x20, 0x40, 0x80, 0x100, 0x200, 0x400, 0x800, 0x1000,
};
static_assert(std::size(rate_control_names) == VEKML_VPU_RATE_CONTROLS);

template <std::size_t Slots>
void name_slots(vpu_cap_item (&slots)[Slots], const char *const (&names)[Slots])
{
    for (std::uint32_t i = 0; i < Slots; ++i) {
        copy_text(slots[i].name, sizeof slots[i].name, names[i]);
        slots[i].index = i;
    }
}

/** What encoders and decoders have in common. */
template <typename Codec>
void name_codec(Codec &codec, std::uint32_t profile, const char *kind)
{
    snprintf(codec.name, sizeof codec.name, "%s %s", profile_names[profile], kind);
    codec.profile = profile;
    name_slots(codec.image_formats, image_format_names);
}

} // namespace

void init_vpu_codec_info(Vpu_codec_info_st *info)
{
    std::memset(info, 0, sizeof *info);
    copy_text(info->vendor, sizeof info->vendor, "UNKOWN");
    for (std::uint32_t profile = 0; profile < VEKML_VPU_PROFILES; ++profile) {
        name_codec(info->encoders[profile], profile, "encoder");
        name_slots(info->encoders[profile].rate_controls, rate_control_names);
        name_codec(info->decoders[profile], profile, "decoder");
    }
}

std::span<const std::uint32_t, VEKML_VPU_IMAGE_FORMATS> image_format_bits()
{
    return image_formats;
}

std::span<const std::uint32_t, VEKML_VPU_RATE_CONTROLS> rate_control_bits()
{
    return rate_controls;
}

} // namespace vekml
