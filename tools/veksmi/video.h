// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "gpu.h"

#include <string>
#include <vector>

// A profile that the GPU decodes, encodes or both; what it does not do has no names.
struct codec {
    std::string profile;
    bool decoded, encoded;
    std::vector<std::string> decoder_formats, encoder_formats, rate_controls;
};
std::vector<codec> codecs_of(gpu &); // none where they are not to be had
