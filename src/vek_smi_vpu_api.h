// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>

namespace vekml {

/** Guards the lookup of the video libraries: it happens once a process, for whichever thread asks first. */
extern pthread_once_t video_libraries_lookup;

/** Closing step of initialisation: look for the video libraries and take every GPU's first video-engine sample. */
void scan_vpus_when_smi_inited();

} // namespace vekml
