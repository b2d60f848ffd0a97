// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "debug_log.h"
#include "va_library.h"
#include "vekml.h"

#include <cstdint>

namespace vekml {

/** What libva has to say while it is asked. */
struct va_listeners {
    VAMessageCallback info;
    VAMessageCallback error;
};

/** Have libva start the GPU's own VA driver on the card's node and fill the record with all it can do, `valid` last; one
 *  that cannot be filled gets its names all the same. The process environment is changed meanwhile. */
vekml_return_t query_codecs(const trace_site &site, const va_library &va, const va_listeners &listeners,
                            std::uint32_t card_index, Vpu_codec_info_st *codecs);

/** Whether a record has been filled; if so, it may be read beside whoever filled it. */
bool is_filled(Vpu_codec_info_st &codecs);

} // namespace vekml
