// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace vekml {

inline constexpr std::int32_t video_libraries_unknown = -999;

/** Whether libva and libva-drm are installed: 1 or 0 once they have been looked for, which happens once a process. */
extern std::int32_t video_libraries_valid;

/** Closing step of initialisation: look for the video libraries and take every GPU's first video-engine sample. */
void scan_vpus_when_smi_inited();

} // namespace vekml
