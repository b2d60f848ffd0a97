// SPDX-License-Identifier: Apache-2.0
#include "vekml.h"

#include "debug_log.h"
#include "drm_card.h"
#include "firmware_block.h"
#include "live_fields.h"
#include "number_scan.h"
#include "text_node.h"
#include "vek_smi_utils.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <iterator>

using namespace vekml;

// ---- Static information -------------------------------------------------------------------------------------

namespace {

/** One value of the static node; either a word or a long word of the record. */
struct static_value {
    const char *name;
    std::uint32_t vekml_gpu_static_info_t::*word;
    std::uint64_t vekml_gpu_static_info_t::*long_word = nullptr;
};

/** In the order of the node and of the record. */
constexpr static_value static_values[] = {
    {"asic_id", &vekml_gpu_static_info_t::asic_id},
    {"core_num", &vekml_gpu_static_info_t::core_num},
    {"gddr_count", &vekml_gpu_static_info_t::gddr_count},
    {"gddr_size", &vekml_gpu_static_info_t::gddr_size},
    {"gddr_speed", nullptr, &vekml_gpu_static_info_t::gddr_speed},
    {"gpu_primary_id", &vekml_gpu_static_info_t::gpu_primary_id},
    {"vendor", &vekml_gpu_static_info_t::vendor},
    {"chip_id", &vekml_gpu_static_info_t::chip_id},
    {"device_id", &vekml_gpu_static_info_t::device_id},
    {"card_type", &vekml_gpu_static_info_t::card_type},
    {"fw_version", &vekml_gpu_static_info_t::fw_version},
    {"vbios_version", &vekml_gpu_static_info_t::vbios_version},
    {"fan_ctrl_mode", &vekml_gpu_static_info_t::fan_ctrl_mode},
    {"support_fan_info", &vekml_gpu_static_info_t::support_fan_info},
    {"support_temp_info", &vekml_gpu_static_info_t::support_temp_info},
    {"support_power_info", &vekml_gpu_static_info_t::support_power_info},
    {"gpu_default_freq", nullptr, &vekml_gpu_static_info_t::gpu_default_freq},
    {"gddr_vendor", &vekml_gpu_static_info_t::gddr_vendor},
    {"gddr_package_model", &vekml_gpu_static_info_t::gddr_package_model},
};

constexpr const char *vendor_names[] = {"VEK", "BITLAND", "GOODTIMES", "OTHERS"};
constexpr const char *card_type_names[] = {"Display Card", "Compute Card"};

template <std::size_t Size>
void store_version(char (&field)[Size], std::uint32_t version)
{
    copy_text(field, Size, "N/A"); // stays when the version does not fit
    version_to_str(version, field, Size);
}

/** Fill the fields that both sources deliver, logging as the step that does it. */
void translate(const char *step, const vekml_gpu_static_info_t &info, vekml_device_query_t *query)
{
    store_name(query->asic_type, name_at(asic_types, info.asic_id));
    TRACE_AS(step, "query->asci_type:%s", query->asic_type);
    query->core = info.core_num;
    query->gddr_count = info.gddr_count;
    query->gddr_speed = info.gddr_speed;
    query->gddr_size = info.gddr_size;
    const auto primary_id = static_cast<std::int32_t>(info.gpu_primary_id);
    snprintf(query->primary_id, sizeof query->primary_id, "%" PRId32, primary_id);
    TRACE_AS(step, "static_info->gpu_primary_id:%d", primary_id);
    TRACE_AS(step, "query->primary_id:%s", query->primary_id);
    constexpr auto last_vendor = static_cast<std::uint32_t>(std::size(vendor_names) - 1);
    store_name(query->vendor, vendor_names[std::min(info.vendor, last_vendor)]);
    TRACE_AS(step, "query->vendor:%s", query->vendor);
    std::memset(query->uuid, 0, sizeof query->uuid);
    decimal_to_hex(info.chip_id, query->uuid, sizeof query->uuid);
    TRACE_AS(step, "query->uuid:%s", query->uuid);
    query->device_id = info.device_id;
    TRACE_AS(step, "query->device_id:%lx", query->device_id);
    std::memset(query->chip_model, 0, sizeof query->chip_model);
    device_id_to_model(info.device_id, query->chip_model, sizeof query->chip_model);
    TRACE_AS(step, "query->chip_model:%s", query->chip_model);
    store_name(query->card_type, name_at(card_type_names, info.card_type));
    TRACE_AS(step, "query->card_type:%s", query->card_type);
    store_version(query->fw_ver, info.fw_version);
    TRACE_AS(step, "query->fw_ver:%s", query->fw_ver);
    store_version(query->vbios_version, info.vbios_version);
    TRACE_AS(step, "query->vbios_version:%s", query->vbios_version);
    query->fan_ctrl_mode = static_cast<std::int32_t>(info.fan_ctrl_mode);
    query->support_fan_info = static_cast<std::int32_t>(info.support_fan_info);
    query->support_temp_info = static_cast<std::int32_t>(info.support_temp_info);
    query->support_power_info = info.support_power_info;
    query->gpu_default_freq = info.gpu_default_freq;
}

/** @param indent what stands before the primary id: the sources differ in it */
void trace_summary(const char *step, const char *indent, const vekml_device_query_t &query)
{
    TRACE_AS(step,
             "asic_type: %s\n core: %d\n, gddr_count: %d\n, gddr_size: %d\n, gddr_speed: %ld\n%s, primary_id: %s\n"
             ", vendor: %s\n, uuid: %s\n, chip_model: %s\n, card_type: %s\n    , fw_ver: %s\n, vbios_version: %s\n"
             ", fan_ctrl_mode: %d\n, support_fan_info: %d\n, support_temp_info: %d\n    , support_power_info: %d\n"
             ", support_power_info: %d\n, gpu_default_freq:%lu",
             query.asic_type, query.core, query.gddr_count, query.gddr_size, query.gddr_speed, indent, query.primary_id,
             query.vendor, query.uuid, query.chip_model, query.card_type, query.fw_ver, query.vbios_version,
             query.fan_ctrl_mode, query.support_fan_info, query.support_temp_info, query.support_power_info,
             query.support_power_info, query.gpu_default_freq);
}

vekml_return_t vekml_device_query_static_info_helper_v2(vekml_device_t device, vekml_device_query_t *query)
{
    TRACE("\nenter vekml_device_query_static_info_helper_v2.");
    vekml_gpu_static_info_t info{};
    const vekml_return_t result = vekml_read_static_info_from_node(device->card_path, &info);
    if (result != VEKML_SUCCESS) {
        TRACE("read static info from node failed.");
        return result;
    }
    translate(__func__, info, query);
    query->gddr_package_model = info.gddr_package_model;
    TRACE("\n-----------in vekml_device_query_static_info_helper_v2----------");
    trace_summary(__func__, "\t", *query);
    TRACE("exit vekml_device_query_static_info_helper_v");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_query_static_info_helper(std::uint32_t card_index, vekml_device_query_t *query, int flag)
{
    TRACE("enter vekml_device_query_static_info_helper, flag:%d", flag);
    drm_card card(card_index);
    if (!card.open()) {
        TRACE("permission denied!");
        TRACE("For more information, please run this command with root authority!");
        return VEKML_ERROR_NO_PERMISSION;
    }
    vekml_gpu_static_info_t info{};
    if (card.request(flag == 1 ? first_static_information : second_static_information, &info) < 0) {
        TRACE("ioctl get gpu info failed!");
        return VEKML_ERROR_NO_PERMISSION;
    }
    TRACE("static_info->chip_id:%d", info.chip_id);
    translate(__func__, info, query);
    std::memcpy(query->static_text, info.static_text, sizeof query->static_text);
    query->static_text[sizeof query->static_text - 1] = '\0';
    TRACE("\n-----------vekml_device_query_static_info_helper----------");
    trace_summary(__func__, "    ", *query);
    TRACE("exit vekml_device_query_static_info");
    return VEKML_SUCCESS;
}

} // namespace

vekml_return_t vekml_read_static_info_from_node(const char *card_path, vekml_gpu_static_info_t *info)
{
    TRACE("\n enter vekml_read_static_info_from_node");
    const node_path<100> path(card_path, "/device/gpu_static_info");
    TRACE("path_name:%s", path.text());
    text_node node;
    if (!node.read(path)) {
        TRACE("read file: %s failed.", path.text());
        return VEKML_ERROR_NOT_FOUND;
    }
    number_scan numbers(node.text());
    for (const auto &value : static_values) {
        if (value.long_word != nullptr)
            numbers >> info->*value.long_word;
        else
            numbers >> info->*value.word;
    }
    for (const auto &value : static_values) {
        if (value.long_word != nullptr)
            TRACE("gpu_info->%s:%lu", value.name, info->*value.long_word);
        else if (value.word == &vekml_gpu_static_info_t::gddr_package_model)
            TRACE("gpu_info->%s:0x%x", value.name, info->*value.word);
        else
            TRACE("gpu_info->%s:%u", value.name, info->*value.word);
    }
    TRACE("\n exit vekml_read_static_info_from_node");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_query_static_info(vekml_device_t device, vekml_device_query_t *query)
{
    TRACE("\nenter veklm_device_query_static_info");
    if (vekml_device_query_static_info_helper_v2(device, query) == VEKML_SUCCESS) {
        TRACE("call vekml_device_query_static_info_helper_v2 to get satic info from file success.");
        return VEKML_SUCCESS;
    }
    // The messages name each other's flags: support staff search the log for them as they are.
    vekml_return_t result = vekml_device_query_static_info_helper(device->card_index, query, 1);
    if (result != VEKML_SUCCESS) {
        TRACE("call vekml_device_query_static_info_helper(device, query, 0) to get gpu static info failed.");
        result = vekml_device_query_static_info_helper(device->card_index, query, 0);
    }
    if (result != VEKML_SUCCESS) {
        TRACE("call vekml_device_query_static_info_helper(device, query, 1) to ioctl get gpu static info "
              "failed.");
        return result;
    }
    TRACE("exit veklm_device_query_static_info");
    return VEKML_SUCCESS;
}

// ---- Dynamic information ------------------------------------------------------------------------------------

namespace {

/** Fails where the fallback is to fill the record again. */
bool vekml_device_query_dynamic_info_helper_v2(vekml_device_t device, vekml_device_query_t *query)
{
    TRACE("enter vekml_device_query_dynamic_info_helper_v2");
    if (!take_live_fields(refresh, TRACE_SITE(__func__), device, query))
        return false;
    if (take(vekml_device_get_mem_info, device, query->memory) != VEKML_SUCCESS) {
        TRACE("call vekml_device_get_mem_info to get mem info failed.");
        return false;
    }
    if (take(vekml_device_get_util_info, device, query->util) != VEKML_SUCCESS) {
        puts("call vekml_device_get_util_info to get util info failed.");
        return false;
    }
    take_processes(TRACE_SITE(__func__), device, query);
    if (take_gddr_crc(TRACE_SITE(__func__), device, query) != VEKML_SUCCESS)
        return false;
    uint32_t gddr_width = 0;
    if (vekml_device_get_gddr_width(device, &gddr_width) != VEKML_SUCCESS) {
        TRACE("call vekml_device_get_gddr_width to get gddr width info failed.");
        return false;
    }
    query->gddr_width = gddr_width;
    TRACE("query->gddr_width: %u", query->gddr_width);
    if (vekml_device_get_gddr_type(device, query->gddr_type, sizeof query->gddr_type) != VEKML_SUCCESS) {
        TRACE("call vekml_device_get_gddr_type to get gddr type info failed.");
        return false;
    }
    TRACE("query->gddr_width: %s", query->gddr_type);
    TRACE("struct query address is %p", static_cast<void *>(query));
    TRACE("exit vekml_device_query_dynamic_info_helper_v2");
    return true;
}

vekml_return_t vekml_device_query_dynamic_info_helper_v1(vekml_device_t device, vekml_device_query_t *query)
{
    TRACE("enter vekml_device_query_dynamic_info_helper_v1");
    take_live_fields(fallback, TRACE_SITE(__func__), device, query);
    take(vekml_device_get_mem_info, device, query->memory);
    const vekml_return_t result = take_from_driver(TRACE_SITE(__func__), device, query);
    if (result == VEKML_SUCCESS)
        TRACE("exit vekml_device_query_dynamic_info_helper_v1");
    return result;
}

} // namespace

vekml_return_t vekml_device_query_dynamic_info(vekml_device_t device, vekml_device_query_t *query)
{
    TRACE("\nenter vekml_device_query_dynamic_info");
    if (vekml_device_query_dynamic_info_helper_v2(device, query)) {
        TRACE("call vekml_device_query_dynamic_info_helper_v2 to get dynamic info success.");
        return VEKML_SUCCESS;
    }
    const vekml_return_t result = vekml_device_query_dynamic_info_helper_v1(device, query);
    if (result != VEKML_SUCCESS) {
        TRACE("call vekml_device_query_dynamic_info_helper_v1 to get query info by ioctl failed.");
        return result;
    }
    TRACE("exit vekml_device_query_dynamic_info");
    return VEKML_SUCCESS;
}

// ---- The whole record ---------------------------------------------------------------------------------------

vekml_return_t vekml_device_query(vekml_device_t device, vekml_device_query_t *query)
{
    TRACE("enter vekml_device_query");
    take_live_fields(whole, TRACE_SITE(__func__), device, query);
    take(vekml_device_get_mem_info, device, query->memory);
    const vekml_return_t result = take_from_driver(TRACE_SITE(__func__), device, query);
    if (result == VEKML_SUCCESS)
        TRACE("exit vekml_device_query");
    return result;
}

vekml_return_t vekml_device_query_two_parts(vekml_device_t device, vekml_device_query_t *query)
{
    TRACE("enter vekml_device_query_two_parts");
    if (query->static_valid != 1 && vekml_device_query_static_info(device, query) != VEKML_SUCCESS) {
        TRACE("query static info failed.");
        TRACE("call vekml_device_query to get query info.");
        return vekml_device_query(device, query);
    }
    query->static_valid = 1;
    const vekml_return_t result = vekml_device_query_dynamic_info(device, query);
    if (result != VEKML_SUCCESS)
        TRACE("query dynamic info failed.");
    TRACE("exit vekml_device_query_two_parts");
    return result;
}

// ---- Out of band --------------------------------------------------------------------------------------------

namespace {

/** Copy the field of one record into that of another, cut where it does not fit, always terminated. */
template <std::size_t To, std::size_t From>
void copy_field(char (&dst)[To], const char (&src)[From])
{
    std::memcpy(dst, src, std::min(To, From));
    dst[To - 1] = '\0';
}

void copy_identity(vekml_device_query_t *query, const vekml_device_record_t &device)
{
    query->clock[1] = device.gpu_clock_mhz;
    copy_field(query->name, device.vendor_name);
    copy_field(query->vbios_version, device.vbios_version_text);
    copy_field(query->fw_ver, device.fw_version_text);
    query->pci_ids[0] = static_cast<std::uint32_t>(device.device_id);
    query->pci_ids[1] = static_cast<std::uint32_t>(device.vendor_id);
    query->pci_ids[2] = static_cast<std::uint32_t>(device.subsystem_device_id);
    query->pci_ids[3] = static_cast<std::uint32_t>(device.subsystem_vendor_id);
    query->device_id = device.device_id;
    query->pci_info[0] = device.domain;
    query->pci_info[1] = device.bus;
    query->pci_info[2] = device.device;
    query->pci_info[3] = device.function;
    query->memory.fb_total = device.fb_total;
    copy_field(query->chip_model, device.model);
}

/** Bring what the driver published into the units of the firmware block. */
void adjust_units(vekml_device_query_t *query)
{
    query->memory.fb_total = static_cast<std::uint64_t>(query->gddr_size) << 10;
    query->clock[1] /= 1000000;
    query->power[2] = static_cast<float>(query->power[2] / 1000.0);
}

} // namespace

vekml_return_t vekml_device_get_fan_speed_by_out_of_band(vekml_device_t handle, uint32_t *speed)
{
    if (handle->bar0_mapped == 0)
        return vekml_device_get_fan_speed(handle, speed);
    const uint32_t rpm = firmware_block(handle->mapped_bar0).word(firmware_word::present_rpm);
    TRACE("fwinfo->curRPM = %d", rpm);
    *speed = rpm;
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_temp_info_by_out_of_band(vekml_device_t handle, temper_info *info)
{
    if (handle->bar0_mapped == 0)
        return vekml_device_get_temper_info(handle, info);
    const firmware_block firmware(handle->mapped_bar0);
    const uint32_t temperature = firmware.half(firmware_word::present_temperature);
    const uint32_t memory_temperature = firmware.word(firmware_word::memory_temperature);
    TRACE("fwinfo->curTemp = %d", temperature);
    info->temp_input = static_cast<int32_t>(temperature);
    info->gddr_temp = static_cast<int32_t>(memory_temperature);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_power_info_by_out_of_band(vekml_device_t handle, uint32_t info[4])
{
    if (handle->bar0_mapped == 0) {
        power_info driver_info{};
        static_assert(sizeof driver_info == 4 * sizeof *info);
        const vekml_return_t result = vekml_device_get_power_info(handle, &driver_info);
        std::memcpy(info, &driver_info, sizeof driver_info);
        return result;
    }
    const firmware_block firmware(handle->mapped_bar0);
    const uint32_t voltage = firmware.word(firmware_word::present_voltage);
    const uint32_t current = firmware.word(firmware_word::present_current);
    const uint32_t power = firmware.word(firmware_word::present_power);
    const uint32_t total_power = firmware.word(firmware_word::total_power);
    TRACE("fwinfo->curVolt = %d", voltage);
    TRACE("fwinfo->curCurr = %d", current);
    TRACE("fwinfo->curPower = %d", power);
    TRACE("fwinfo->pwr_total = %d", total_power);
    info[0] = voltage;
    info[1] = current;
    info[2] = power;
    info[3] = total_power;
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_query_by_out_of_band(vekml_device_t handle, vekml_device_query_t *query)
{
    if (handle->bar0_mapped == 0) {
        const vekml_return_t result = vekml_device_query_two_parts(handle, query);
        adjust_units(query);
        return result;
    }
    copy_identity(query, *handle);
    temper_info temperatures{};
    vekml_device_get_temp_info_by_out_of_band(handle, &temperatures);
    query->temperature[1] = static_cast<uint64_t>(temperatures.temp_input);
    uint32_t power[4]{};
    vekml_device_get_power_info_by_out_of_band(handle, power);
    query->power_state = power[0];
    for (int i = 0; i < 3; ++i)
        query->power[i] = static_cast<float>(static_cast<int32_t>(power[i + 1]));
    vekml_device_get_fan_speed_by_out_of_band(handle, &query->fan_speed);
    query->support_fan_info = static_cast<int32_t>(handle->fw_word_0a0);
    query->support_power_info = handle->fw_word_09c;
    TRACE("query->support_fan_info:%d, query->support_power_info:%d", query->support_fan_info,
          query->support_power_info);
    return VEKML_SUCCESS;
}
