// SPDX-License-Identifier: Apache-2.0
#include "driver_text.h"

#include "format.h"

#include <algorithm>
#include <sstream>

namespace veksim {
namespace {

template <typename First, typename... Rest>
std::string words(const First &first, const Rest &...rest)
{
    std::ostringstream text;
    text << first;
    ((text << ' ' << rest), ...);
    return text.str();
}

std::uint64_t percent(const busy_time &time)
{
    return time.cumulative == 0 ? 0 : time.active * 100 / time.cumulative;
}

std::uint64_t blocked(const busy_time &time)
{
    return (time.cumulative - time.active) / 10;
}

std::uint64_t idle(const busy_time &time)
{
    return time.cumulative - time.active - blocked(time);
}

std::array<std::int64_t, 22> counters(const process_entry &process)
{
    std::array<std::int64_t, 22> values{};
    values[0] = values[1] = 65536;                    // kmalloc
    values[2] = values[3] = 131072;                   // vmalloc
    values[8] = values[9] = process.local_bytes / 64; // page tables in local memory
    values[12] = values[13] = process.local_bytes;
    values[14] = values[15] = std::max<std::int64_t>(process.total_bytes - process.local_bytes, 0);
    values[16] = values[17] = process.total_bytes / 2; // mapped
    values[20] = values[21] = process.total_bytes;
    return values;
}

std::string joined(const std::array<std::int64_t, 22> &values)
{
    std::ostringstream text;
    for (std::int64_t value : values)
        text << ' ' << value;
    return text.str();
}

std::uint64_t local_free(const gpu_state &state)
{
    return state.local_total - state.local_used;
}

std::uint64_t system_free(const gpu_state &state)
{
    return state.system_total - state.system_used;
}

} // namespace

std::string static_info_text(const gpu_config &c)
{
    return words(c.asic_id, c.core_count, c.memory_count, c.memory_gib, c.memory_speed, c.primary_id, c.vendor_index,
                 c.chip_id, c.device_id, c.card_type, packed_version(c.firmware_version),
                 packed_version(c.vbios_version), 1, int{c.fan_support}, 1, int{c.power_support}, c.default_clock_hz,
                 c.memory_vendor, c.memory_package) +
           "\n";
}

std::string static_reply(const gpu_config &c)
{
    std::ostringstream text;
    text << "u32 " << words(c.asic_id, c.core_count, c.memory_count, c.memory_gib) << "\n"
         << "u64 " << c.memory_speed << "\n"
         << "u32 " << words(c.primary_id, c.vendor_index, c.chip_id, c.device_id, c.card_type) << "\n"
         << "text 32 " << c.static_text << "\n"
         << "u32 " << words(packed_version(c.firmware_version), packed_version(c.vbios_version)) << "\n"
         << "u32 " << words(1, int{c.fan_support}, 1, int{c.power_support}, 0) << "\n"
         << "u64 " << c.default_clock_hz << "\n"
         << "u32 " << words(c.memory_vendor, c.memory_package) << "\n";
    return text.str();
}

std::string util_text(const gpu_state &state)
{
    std::ostringstream text;
    auto put = [&](const busy_time &time) {
        text << words(time.active, blocked(time), idle(time), time.cumulative) << "\n";
    };
    text << "1\n";
    put(state.gpu);
    for (const busy_time &time : state.masters)
        put(time);
    text << state.timestamp << "\n";
    return text.str();
}

// The reply groups the nine masters by quantity, the node by master.
std::string util_reply(const gpu_state &state)
{
    std::ostringstream text;
    text << "u64 1\nu64 " << words(state.gpu.active, blocked(state.gpu), idle(state.gpu), state.gpu.cumulative) << "\n";
    auto put = [&](auto quantity) {
        text << "u64";
        for (const busy_time &time : state.masters)
            text << ' ' << quantity(time);
        text << "\n";
    };
    put([](const busy_time &time) { return time.active; });
    put(blocked);
    put(idle);
    put([](const busy_time &time) { return time.cumulative; });
    text << "u64 " << state.timestamp << "\n";
    return text.str();
}

std::string memory_text(const gpu_state &state)
{
    std::ostringstream text;
    text << words(local_free(state), state.local_total, system_free(state), state.system_total) << "\n"
         << state.processes.size() << "\n";
    for (const process_entry &process : state.processes)
        text << process.pid << joined(counters(process)) << "\n";
    return text.str();
}

std::string process_reply(const gpu_state &state)
{
    std::ostringstream text;
    for (const process_entry &process : state.processes)
        text << "u32 " << process.pid << " 0\ni64" << joined(counters(process)) << "\n";
    text << "zero 184\n";
    return text.str();
}

std::string debug_dump_text(const gpu_state &state)
{
    std::ostringstream text;
    text << "VEKGPU debug dump\n"
         << "UM info: 1.10 build 4711 release\n"
         << "KM info: 1.10 build 4711 release\n"
         << "DDK info: VEKGPU Driver 1.4.0\n"
         << "Memory regions:\n"
         << "0: GPU_LOCAL, Free Size: " << local_free(state) << ", Total Size: " << state.local_total << "\n"
         << "1: SYSMEM, Free Size: " << system_free(state) << ", Total Size: " << state.system_total << "\n"
         << "Faults: none\n";
    return text.str();
}

std::string status_text(const gpu_state &state)
{
    static constexpr const char *names[] = {"TDM", "GEOM", "3D", "CDM"};
    std::ostringstream text;
    text << "Driver status: OK\nGPU Utilisation: " << percent(state.gpu) << "%\n";
    for (std::size_t i = 0; i < std::size(names); ++i)
        text << names[i] << " Utilisation: " << percent(state.masters[i + 1]) << "%\n";
    return text.str();
}

std::string xmem_text(const video_state &state)
{
    std::ostringstream text;
    text << "vpu xmem\ncores: 2\n"
         << "dec:" << state.decoder_rate << " enc:" << state.encoder_rate << "\n"
         << "vcmd_enc_stat:" << state.encoder_commands << " vcmd_dec_stat:" << state.decoder_commands << "\n";
    return text.str();
}

std::string aer_text(bool correctable, const std::string &total_key, unsigned total)
{
    static const std::vector<std::string> correctable_errors = {"RxErr",   "BadTLP",      "BadDLLP",    "Rollover",
                                                                "Timeout", "NonFatalErr", "CorrIntErr", "HeaderOF"};
    static const std::vector<std::string> uncorrectable_errors = {"Undefined",     "DLP",
                                                                  "SDES",          "TLP",
                                                                  "FCP",           "CmpltTO",
                                                                  "CmpltAbrt",     "UnxCmplt",
                                                                  "RxOF",          "MalfTLP",
                                                                  "ECRC",          "UnsupReq",
                                                                  "ACSViol",       "UncorrIntErr",
                                                                  "BlockedTLP",    "AtomicOpBlocked",
                                                                  "TLPBlockedErr", "PoisonTLPBlocked"};
    std::ostringstream text;
    bool first = true;
    for (const std::string &error : correctable ? correctable_errors : uncorrectable_errors) {
        text << error << ' ' << (first ? total : 0) << "\n";
        first = false;
    }
    text << total_key << ' ' << total << "\n";
    return text.str();
}

std::string gddr_crc_text(const gpu_state &state)
{
    std::ostringstream text;
    for (const std::array<unsigned, 4> &device : state.memory_errors)
        text << words(device[0], device[1], device[2], device[3]) << "\n";
    return text.str();
}

std::string uevent_text(const gpu_config &c)
{
    return format("DRIVER=vekgpu\nPCI_CLASS=30000\nPCI_ID=%x:%x\nPCI_SUBSYS_ID=%x:%x\nPCI_SLOT_NAME=%s\n", c.vendor_id,
                  c.device_id, c.subsystem_vendor_id, c.subsystem_device_id, c.pci_address.c_str());
}

std::string modules_text(bool driver)
{
    std::string text = "Module                  Size  Used by\n";
    if (driver) {
        text += "vekgpu               1523712  6\n"
                "drm_kms_helper        204800  1 vekgpu\n";
    }
    return text + "drm                   602112  4 drm_kms_helper\n"
                  "xhci_pci               24576  0\n";
}

std::string packages_text()
{
    return "Desired=Unknown/Install/Remove/Purge/Hold\n"
           "| Status=Not/Inst/Conf-files/Unpacked/halF-conf/Half-inst/trig-aWait/Trig-pend\n"
           "|/ Err?=(none)/Reinst-required (Status,Err: uppercase=bad)\n"
           "||/ Name           Version      Architecture Description\n"
           "+++-==============-============-============-=================================\n"
           "ii  adduser        3.134        all          add and remove users and groups\n"
           "ii  vekgpu-driver  1.4.0-2      arm64        GPU kernel driver and firmware\n"
           "ii  zlib1g:arm64   1:1.2.13     arm64        compression library - runtime\n";
}

std::string dotted_version(const std::array<unsigned, 3> &v)
{
    return format("v%x.%x.%x", v[0], v[1], v[2]);
}

std::uint32_t packed_version(const std::array<unsigned, 3> &v)
{
    return (v[0] << 24) | (v[1] << 16) | v[2];
}

std::string chip_text(std::uint32_t chip_id)
{
    return format("%x", chip_id);
}

} // namespace veksim
