// SPDX-License-Identifier: Apache-2.0
#include "gpu.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

// How a node begins.
std::string beginning(const char *directory, const char *node)
{
    if (*directory == '\0')
        return {};
    const int file = open((std::string(directory) + "/" + node).c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return {};
    char text[16];
    const ssize_t length = read(file, text, sizeof text);
    close(file);
    return {text, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

bool holds_number(const char *directory, const char *node)
{
    const std::string text = beginning(directory, node);
    const std::size_t digit = text.find_first_not_of(" \t\n-");
    return digit != text.npos && text[digit] >= '0' && text[digit] <= '9';
}

// Out of band the getters tell of no failure, so a window that could not be mapped is one from the start.
vekml_return_t before_readings(vekml_device_t handle, bool driverless)
{
    if (!driverless || handle->bar0_mapped == 1)
        return VEKML_SUCCESS;
    return geteuid() == 0 ? VEKML_ERROR_NODE_IO : VEKML_ERROR_NO_PERMISSION;
}

} // namespace

gpu::gpu(vekml_device_t handle, unsigned index, bool driverless)
    : handle_(handle), index_(index), driverless_(driverless), result_(before_readings(handle, driverless))
{}

void gpu::note(vekml_return_t result)
{
    if (result_ == VEKML_SUCCESS)
        result_ = result;
}

void gpu::refresh()
{
    readings_ = {};
    snapshot_ = false;
    result_ = before_readings(handle_, driverless_);
    if (!facts_known_)
        facts_asked_ = false; // a driver that was still starting may have them now
}

void gpu::take_snapshot()
{
    refresh();
    if (driverless_)
        return;
    note(vekml_device_query_two_parts(handle_, &record_));
    snapshot_ = true;
    facts_asked_ = true;
    facts_known_ = record_.static_valid == 1;
}

bool gpu::answers(const char *hwmon_node) const
{
    return holds_number(handle_->hwmon_path, hwmon_node);
}

bool gpu::card_answers(const char *card_node) const
{
    return holds_number(handle_->card_path, card_node);
}

bool gpu::card_reads(const char *card_node) const
{
    return !beginning(handle_->card_path, card_node).empty();
}

const vekml_device_query_t *gpu::facts()
{
    if (!facts_asked_) {
        facts_asked_ = true;
        if (driverless_) {
            facts_known_ = mapped() && vekml_device_query_by_out_of_band(handle_, &record_) == VEKML_SUCCESS;
        } else {
            facts_known_ = vekml_device_query_static_info(handle_, &record_) == VEKML_SUCCESS;
            record_.static_valid = facts_known_ ? 1 : 0;
        }
    }
    return facts_known_ ? &record_ : nullptr;
}

// Without the flags, the nodes alone decide. Facts that do not even name the device tell nothing.
bool gpu::flags_known()
{
    return facts() != nullptr && record_.device_id != 0;
}

bool gpu::has_fan()
{
    return !flags_known() || record_.support_fan_info > 0;
}

bool gpu::has_power()
{
    return !flags_known() || record_.support_power_info > 0;
}

bool gpu::has_temperature()
{
    return driverless_ || !flags_known() || record_.support_temp_info > 0;
}

const temper_info &gpu::temperatures()
{
    if (!readings_.temperatures) {
        temper_info info{};
        if (driverless_) {
            vekml_device_get_temp_info_by_out_of_band(handle_, &info);
        } else if (snapshot_) {
            info.ctrl_mode = static_cast<std::int32_t>(record_.temperature[0]);
            info.temp_input = static_cast<std::int32_t>(record_.temperature[1]);
            info.temp_highest = static_cast<std::int32_t>(record_.temperature[2]);
        } else {
            return temperature_limits();
        }
        readings_.temperatures = info;
    }
    return *readings_.temperatures;
}

const temper_info &gpu::temperature_limits()
{
    if (!readings_.limits) {
        readings_.limits.emplace();
        vekml_device_get_temper_info(handle_, &*readings_.limits);
    }
    return *readings_.limits;
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
        } else if (snapshot_) {
            info.voltage = static_cast<std::int32_t>(record_.power_state);
            info.current = static_cast<std::int32_t>(record_.power[0]);
            info.power_average = static_cast<std::int32_t>(record_.power[1]);
            info.total_power = static_cast<std::int32_t>(record_.power[2]);
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
        clock_info info{};
        if (driverless_) {
            info.gfx_clk = static_cast<std::int32_t>(handle_->gpu_clock_mhz);
        } else if (snapshot_) {
            info.gddr_phys_clk = static_cast<std::int32_t>(record_.clock[0]);
            info.gfx_clk = static_cast<std::int32_t>(record_.clock[1]);
            info.cmcu_clk = static_cast<std::int32_t>(record_.clock[3]);
        } else {
            return all_clocks();
        }
        readings_.clocks = info;
    }
    return *readings_.clocks;
}

const clock_info &gpu::all_clocks()
{
    if (!readings_.all_clocks) {
        readings_.all_clocks.emplace();
        vekml_device_get_clock(handle_, &*readings_.all_clocks);
    }
    return *readings_.all_clocks;
}

std::uint32_t gpu::fan_speed()
{
    if (!readings_.fan_speed) {
        std::uint32_t speed = record_.fan_speed;
        if (driverless_)
            vekml_device_get_fan_speed_by_out_of_band(handle_, &speed);
        else if (!snapshot_)
            vekml_device_get_fan_speed(handle_, &speed);
        readings_.fan_speed = speed;
    }
    return *readings_.fan_speed;
}

std::optional<std::int32_t> gpu::thermal_limit(thm_type type)
{
    if (driverless_)
        return std::nullopt;
    thermal limits{};
    const vekml_return_t result = vekml_device_get_thermal(handle_, &limits, type);
    note(result);
    if (result != VEKML_SUCCESS)
        return std::nullopt;
    const std::int32_t values[] = {limits.vek_temp_slowdown, limits.vek_temp_shutdown, limits.vek_enable_thm_slowdown,
                                   limits.vek_enable_thm_shutdown};
    return values[type];
}

std::optional<std::int32_t> gpu::dvfs()
{
    if (driverless_)
        return std::nullopt;
    dvfs_t state{};
    const vekml_return_t result = vekml_device_get_dvfs_info(handle_, &state);
    note(result);
    return result == VEKML_SUCCESS ? std::optional(state.vek_enable_dvfs) : std::nullopt;
}

template <typename Record>
const std::optional<Record> &gpu::ask(reading<Record> &cache, vekml_return_t (*getter)(vekml_device_t, Record *))
{
    if (!cache.asked) {
        cache.asked = true;
        Record record{};
        if (!driverless_ && getter(handle_, &record) == VEKML_SUCCESS)
            cache.record = record;
    }
    return cache.record;
}

const std::optional<vekml_util_info_t> &gpu::load()
{
    if (!readings_.load.asked && record_is_whole())
        readings_.load = {true, record_.util};
    return ask(readings_.load, vekml_device_get_util_info);
}

const std::optional<vekml_mem_info_t> &gpu::memory()
{
    auto &cache = readings_.memory;
    if (!cache.asked && record_is_whole())
        cache = {true, record_.memory};
    ask(cache, vekml_device_get_mem_info);
    if (cache.record && cache.record->fb_total == 0)
        cache.record.reset(); // a success without sizes
    return cache.record;
}

const std::optional<vekml_process_info_t> &gpu::processes()
{
    auto &cache = readings_.processes;
    if (cache.asked || driverless_)
        return cache.record;
    cache.asked = true;
    vekml_process_info_t list{};
    // The query passes over a list that it could not read, so an empty one is asked for again.
    if (record_is_whole() && record_.pronum > 0) {
        list.process_num = record_.pronum;
        std::copy(std::begin(record_.process), std::end(record_.process), list.process);
        std::memcpy(list.process_name, record_.process_name, sizeof list.process_name);
    } else if (const vekml_return_t result = vekml_device_get_process_info(handle_, &list); result != 0) {
        note(result);
        return cache.record;
    }
    list.process_num = std::min<std::uint64_t>(list.process_num, VEKML_PROCESSES);
    // A node that is there and cannot be read gives an empty list as well.
    constexpr const char *node = "device/gpu_mem_util_info";
    const bool node_exists = access((std::string(handle_->card_path) + "/" + node).c_str(), F_OK) == 0;
    if (list.process_num == 0 && node_exists && !card_answers(node))
        return cache.record;
    cache.record = list;
    return cache.record;
}

const std::optional<vekml_gddr_crc_t> &gpu::memory_errors()
{
    return ask(readings_.memory_errors, vekml_device_get_gddr_crc);
}

const std::optional<vekml_driver_version_t> &gpu::driver_version()
{
    return ask(readings_.driver_version, vekml_device_get_driver_version);
}

const Vpu_codec_info_st *gpu::codecs()
{
    if (!codecs_ && !driverless_) {
        auto info = std::make_unique<Vpu_codec_info_st>();
        const vekml_return_t result = vekml_device_get_vpu_info(handle_, info.get());
        note(result);
        if (result == VEKML_SUCCESS)
            codecs_ = std::move(info);
    }
    return codecs_.get();
}

const std::optional<std::array<std::uint32_t, 4>> &gpu::video_load()
{
    return ask<std::array<std::uint32_t, 4>>(
        readings_.video_load, [](vekml_device_t handle, std::array<std::uint32_t, 4> *load) {
            return vekml_device_get_vpu_utlz(handle, &(*load)[0], &(*load)[1], &(*load)[2], &(*load)[3]);
        });
}
