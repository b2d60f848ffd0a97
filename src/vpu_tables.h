// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "vekml.h"

#include <cstdint>
#include <span>

namespace vekml {

/** Position of the profile in the codec tables, or -1 for one that has no place there. */
constexpr int profile_slot(int va_profile)
{
    return va_profile >= 0 && va_profile < VEKML_VPU_PROFILES ? va_profile : -1;
}

/** A codec record with every name in its place and nothing supported. */
void init_vpu_codec_info(Vpu_codec_info_st *info);

/** The VA bits behind the slots of a codec entry, in slot order. */
std::span<const std::uint32_t, VEKML_VPU_IMAGE_FORMATS> image_format_bits();
std::span<const std::uint32_t, VEKML_VPU_RATE_CONTROLS> rate_control_bits();

} // namespace vekml
