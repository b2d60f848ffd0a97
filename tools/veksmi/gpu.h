// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "vekml.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

// One GPU and what was read of it since the last refresh. Each reading is asked for once, when first wanted, and is
// absent when it is not to be had: many getters report success all the same, so their nodes are looked at as well.
class gpu {
public:
    gpu(vekml_device_t handle, unsigned index, bool driverless);

    vekml_device_t handle() const { return handle_; }
    unsigned index() const { return index_; }
    bool driverless() const { return driverless_; } // started through BAR0
    bool mapped() const { return handle_->bar0_mapped == 1; }

    void refresh();                                   // forgets the readings
    void take_snapshot();                             // refreshes with one query of the whole record
    vekml_return_t result() const { return result_; } // of the first call that failed since the refresh

    bool answers(const char *hwmon_node) const; // the node holds a number
    bool card_answers(const char *card_node) const;
    bool card_reads(const char *card_node) const; // the node holds anything

    const vekml_device_query_t *facts(); // the record's static half
    bool has_fan();
    bool has_power();
    bool has_temperature();

    const temper_info &temperatures(); // mode, present and highest; out of band present and memory
    const temper_info &temperature_limits();
    const power_info &power();
    const clock_info &clocks(); // memory, graphics and CMCU
    const clock_info &all_clocks();
    std::uint32_t fan_speed();
    std::optional<std::int32_t> thermal_limit(thm_type type);
    std::optional<std::int32_t> dvfs();
    const std::optional<vekml_util_info_t> &load();
    const std::optional<vekml_mem_info_t> &memory();
    const std::optional<vekml_process_info_t> &processes();
    const std::optional<vekml_gddr_crc_t> &memory_errors();
    const std::optional<vekml_driver_version_t> &driver_version();
    const Vpu_codec_info_st *codecs();
    // Commands a second: encoder reserved and executed, decoder reserved and executed.
    const std::optional<std::array<std::uint32_t, 4>> &video_load();

private:
    // A reading that was not asked for yet, was asked for in vain, or is there.
    template <typename Record>
    struct reading {
        bool asked = false;
        std::optional<Record> record;
    };
    struct readings {
        std::optional<temper_info> temperatures, limits;
        std::optional<power_info> power;
        std::optional<clock_info> clocks, all_clocks;
        std::optional<std::uint32_t> fan_speed;
        reading<vekml_util_info_t> load;
        reading<vekml_mem_info_t> memory;
        reading<vekml_process_info_t> processes;
        reading<vekml_gddr_crc_t> memory_errors;
        reading<vekml_driver_version_t> driver_version;
        reading<std::array<std::uint32_t, 4>> video_load;
    };

    void note(vekml_return_t result);
    bool flags_known();
    bool record_is_whole() const { return snapshot_ && result_ == VEKML_SUCCESS; }
    template <typename Record>
    const std::optional<Record> &ask(reading<Record> &cache, vekml_return_t (*getter)(vekml_device_t, Record *));

    vekml_device_t handle_;
    unsigned index_;
    bool driverless_;
    bool snapshot_ = false;
    bool facts_asked_ = false;
    bool facts_known_ = false;
    vekml_return_t result_ = VEKML_SUCCESS;
    vekml_device_query_t record_{};
    readings readings_;
    std::unique_ptr<Vpu_codec_info_st> codecs_;
};

using gpu_list = std::vector<gpu>;
