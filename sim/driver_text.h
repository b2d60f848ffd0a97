// SPDX-License-Identifier: Apache-2.0
// The texts the kernel driver publishes, and the replies of its requests.
#pragma once

#include "gpu.h"

#include <array>
#include <cstdint>
#include <string>

namespace veksim {

std::string static_info_text(const gpu_config &config);
std::string util_text(const gpu_state &state);
std::string memory_text(const gpu_state &state); // with the processes behind the figures
std::string debug_dump_text(const gpu_state &state);
std::string status_text(const gpu_state &state);
std::string xmem_text(const video_state &state);
std::string aer_text(bool correctable, const std::string &total_key, unsigned total);
std::string gddr_crc_text(const gpu_state &state);
std::string uevent_text(const gpu_config &config);
std::string modules_text(bool driver);
std::string packages_text();

std::string static_reply(const gpu_config &config);
std::string util_reply(const gpu_state &state);
std::string process_reply(const gpu_state &state);

std::string dotted_version(const std::array<unsigned, 3> &version); // "v1.2.3"
std::uint32_t packed_version(const std::array<unsigned, 3> &version);
std::string chip_text(std::uint32_t chip_id);

} // namespace veksim
