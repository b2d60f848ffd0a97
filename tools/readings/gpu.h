// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "value.h"
#include "vekml.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace readings {

// What the library hands out whole, or the result code of its refusal.
template <typename Record>
struct reading {
    vekml_return_t result = VEKML_ERROR_NO_DATA;
    Record record{};
    explicit operator bool() const { return result == VEKML_SUCCESS; }
};

// One GPU as its reader sees it, and what was read of it since the last `forget`. Each reading is asked for once, when
// first wanted.
class gpu {
public:
    gpu(vekml_device_t handle, bool driverless);

    vekml_device_t handle() const { return handle_; }
    bool driverless() const { return driverless_; } // started through BAR0
    bool mapped() const { return handle_->bar0_mapped == 1; }
    std::string hwmon_node(const char *name) const;
    std::string card_node(const char *name) const;

    void forget();
    vekml_return_t result() const { return result_; } // of the first call that failed since then
    void note(vekml_return_t result);

    const vekml_device_query_t *facts(); // the record's static half; null when it cannot be had
    bool has_fan();
    bool has_power();
    bool has_temperature();

    const temper_info &temperatures(); // out of band only the present one and the memory's
    const power_info &power();
    const clock_info &clocks(); // out of band only the graphics clock
    std::uint32_t fan_speed();

    using video_rates = std::array<std::uint32_t, 4>; // encoder reserved and executed, decoder reserved and executed

    const reading<vekml_util_info_t> &load();
    const reading<vekml_mem_info_t> &memory();
    const reading<vekml_process_info_t> &processes();
    static constexpr std::uint32_t uncounted = UINT32_MAX; // a counter of which the node says nothing
    const reading<vekml_gddr_crc_t> &memory_errors();
    const reading<vekml_driver_version_t> &driver_version();
    const reading<video_rates> &video_load(); // waits where the first sample is too young for a rate

private:
    struct kept {
        std::optional<temper_info> temperatures;
        std::optional<power_info> power;
        std::optional<clock_info> clocks;
        std::optional<std::uint32_t> fan_speed;
        std::optional<reading<vekml_util_info_t>> load;
        std::optional<reading<vekml_mem_info_t>> memory;
        std::optional<reading<vekml_process_info_t>> processes;
        std::optional<reading<vekml_gddr_crc_t>> memory_errors;
        std::optional<reading<vekml_driver_version_t>> driver_version;
        std::optional<reading<video_rates>> video_load;
    };

    bool flags_known();
    template <typename Record>
    const reading<Record> &ask(std::optional<reading<Record>> &cache,
                               vekml_return_t (*getter)(vekml_device_t, Record *));

    vekml_device_t handle_;
    bool driverless_;
    bool facts_asked_ = false;
    bool facts_known_ = false;
    vekml_return_t result_ = VEKML_SUCCESS;
    std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
    std::unique_ptr<vekml_device_query_t> record_ = std::make_unique<vekml_device_query_t>();
    kept readings_;
};

} // namespace readings
