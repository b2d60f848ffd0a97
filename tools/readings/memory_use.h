// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "gpu.h"
#include "value.h"

// What of the GPU's memory is in use, by whom, and how often it erred.
namespace readings::memory_use {

value amount(gpu &g, std::uint64_t vekml_mem_info_t::*member);
value used_percent(gpu &g);
value errors(gpu &g, std::uint32_t (vekml_gddr_crc_t::*member)[4]); // one for each memory device
value process_count(gpu &g);

} // namespace readings::memory_use
