// SPDX-License-Identifier: Apache-2.0
#include "gpu.h"

#include <algorithm>
#include <thread>
#include <unistd.h>

namespace readings {
namespace {

// A rate over less time than this says more about the clock than about the engine.
constexpr auto shortest_sample = std::chrono::milliseconds(200);

// Out of band the getters tell of no failure, so a window that could not be mapped is one from the start.
vekml_return_t before_readings(vekml_device_t handle, bool driverless)
{
    if (!driverless || handle->bar0_mapped == 1)
        return VEKML_SUCCESS;
    return geteuid() == 0 ? VEKML_ERROR_NODE_IO : VEKML_ERROR_NO_PERMISSION;
}

vekml_return_t video_rates_of(vekml_device_t handle, gpu::video_rates *rates)
{
    auto &[encoder_reserved, encoder_executed, decoder_reserved, decoder_executed] = *rates;
    return vekml_device_get_vpu_utlz(handle, &encoder_reserved, &encoder_executed, &decoder_reserved,
                                     &decoder_executed);
}

} // namespace

gpu::gpu(vekml_device_t handle, bool driverless)
    : handle_(handle), driverless_(driverless), result_(before_readings(handle, driverless))
{}

std::string gpu::hwmon_node(const char *name) const
{
    // Where there is no such directory, its place is named all the same.
    return *handle_->hwmon_path == '\0' ? card_node("device/hwmon/hwmonN/") + name
                                        : std::string(handle_->hwmon_path) + "/" + name;
}

std::string gpu::card_node(const char *name) const
{
    return std::string(handle_->card_path) + "/" + name;
}

void gpu::note(vekml_return_t result)
{
    if (result_ == VEKML_SUCCESS && result != VEKML_ERROR_NOT_SUPPORTED)
        result_ = result;
}

void gpu::forget()
{
    readings_ = {};
    result_ = before_readings(handle_, driverless_);
    if (!facts_known_)
        facts_asked_ = false; // a driver that was still starting may have them now
}

const vekml_device_query_t *gpu::facts()
{
    if (!facts_asked_) {
        facts_asked_ = true;
        if (driverless_)
            facts_known_ = mapped() && vekml_device_query_by_out_of_band(handle_, record_.get()) == VEKML_SUCCESS;
        else
            facts_known_ = vekml_device_query_static_info(handle_, record_.get()) == VEKML_SUCCESS;
    }
    return facts_known_ ? record_.get() : nullptr;
}

// Without the flags, the nodes alone decide. Facts that do not even name the device tell nothing.
bool gpu::flags_known()
{
    return facts() != nullptr && record_->device_id != 0;
}

bool gpu::has_fan()
{
    return !flags_known() || record_->support_fan_info > 0;
}

bool gpu::has_power()
{
    return !flags_known() || record_->support_power_info > 0;
}

bool gpu::has_temperature()
{
    return driverless_ || !flags_known() || record_->support_temp_info > 0;
}

const temper_info &gpu::temperatures()
{
    if (!readings_.temperatures) {
        readings_.temperatures.emplace();
        if (driverless_)
            vekml_device_get_temp_info_by_out_of_band(handle_, &*readings_.temperatures);
        else
            vekml_device_get_temper_info(handle_, &*readings_.temperatures);
    }
    return *readings_.temperatures;
}

const power_info &gpu::power()
{
    if (!readings_.power) {
        power_info info{};
        if (driverless_) {
            std::uint32_t words[4]{};
            vekml_device_get_power_info_by_out_of_band(handle_, words);
            info.voltage = static_cast<std::int32_t>(words[0]);
            info.current = static_cast<std::int32_t>(words[1]);
            info.power_average = static_cast<std::int32_t>(words[2]);
            info.total_power = static_cast<std::int32_t>(words[3]);
        } else {
            vekml_device_get_power_info(handle_, &info);
        }
        readings_.power = info;
    }
    return *readings_.power;
}

const clock_info &gpu::clocks()
{
    if (!readings_.clocks) {
        readings_.clocks.emplace();
        if (driverless_)
            readings_.clocks->gfx_clk = static_cast<std::int32_t>(handle_->gpu_clock_mhz);
        else
            vekml_device_get_clock(handle_, &*readings_.clocks);
    }
    return *readings_.clocks;
}

std::uint32_t gpu::fan_speed()
{
    if (!readings_.fan_speed) {
        readings_.fan_speed = 0;
        if (driverless_)
            vekml_device_get_fan_speed_by_out_of_band(handle_, &*readings_.fan_speed);
        else
            vekml_device_get_fan_speed(handle_, &*readings_.fan_speed);
    }
    return *readings_.fan_speed;
}

template <typename Record>
const reading<Record> &gpu::ask(std::optional<reading<Record>> &cache,
                                vekml_return_t (*getter)(vekml_device_t, Record *))
{
    if (!cache) {
        cache.emplace();
        cache->result = getter(handle_, &cache->record);
    }
    return *cache;
}

const reading<vekml_util_info_t> &gpu::load()
{
    ask(readings_.load, vekml_device_get_util_info);
    note(readings_.load->result);
    return *readings_.load;
}

const reading<vekml_mem_info_t> &gpu::memory()
{
    ask(readings_.memory, vekml_device_get_mem_info);
    note(readings_.memory->result);
    return *readings_.memory;
}

const reading<vekml_process_info_t> &gpu::processes()
{
    ask(readings_.processes, vekml_device_get_process_info);
    vekml_process_info_t &list = readings_.processes->record;
    if (list.process_num > VEKML_PROCESSES)
        list.process_num = VEKML_PROCESSES;
    return *readings_.processes;
}

const reading<vekml_gddr_crc_t> &gpu::memory_errors()
{
    return ask<vekml_gddr_crc_t>(readings_.memory_errors, [](vekml_device_t handle, vekml_gddr_crc_t *errors) {
        for (auto *counters :
             {&errors->crc_write_cnt, &errors->crc_read_cnt, &errors->crc_write_retry_cnt, &errors->crc_read_retry_cnt})
            std::fill(std::begin(*counters), std::end(*counters), uncounted); // what the node leaves out stays
        return vekml_device_get_gddr_crc(handle, errors);
    });
}

const reading<vekml_driver_version_t> &gpu::driver_version()
{
    return ask(readings_.driver_version, vekml_device_get_driver_version);
}

const reading<gpu::video_rates> &gpu::video_load()
{
    if (!readings_.video_load && handle_->vpu_utlz_status == VEKML_SUCCESS)
        std::this_thread::sleep_until(started_ + shortest_sample);
    return ask(readings_.video_load, video_rates_of);
}

} // namespace readings
