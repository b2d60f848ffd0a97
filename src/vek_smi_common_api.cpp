// SPDX-License-Identifier: Apache-2.0
#include "vekml.h"

#include "debug_log.h"
#include "driver_version.h"
#include "memory_sizes.h"
#include "number_scan.h"
#include "process_list.h"
#include "text_node.h"
#include "utilisation.h"
#include "vek_smi_utils.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <unistd.h>

using namespace vekml;

// ---- Enumeration and handles --------------------------------------------------------------------------------
// Plain reads of the device table leave no trace.

vekml_return_t vekml_device_get_count(uint32_t *count)
{
    if (count == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    *count = globals.count;
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_handle_by_index(uint32_t index, vekml_device_t *handle)
{
    if (handle == nullptr || index >= globals.count)
        return VEKML_ERROR_INVALID_ARGUMENT;
    *handle = &globals.devices[index];
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_handle_by_pci_bus_id(vekml_device_t *handle, const char *pci_bus_id)
{
    TRACE("enter api function vekml_device_get_handle_by_bdfid");
    if (handle == nullptr || pci_bus_id == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    for (uint32_t i = 0; i < globals.count; ++i) {
        vekml_device_record_t &candidate = globals.devices[i];
        uint64_t domain = 0, bus = 0, device = 0, function = 0;
        const bool parsed = parse_dbdf(pci_bus_id, &domain, &bus, &device, &function) == 0;
        TRACE("domain %lx, bus %lx, device %lx, func %lx", domain, bus, device, function);
        if (parsed && domain == candidate.domain && bus == candidate.bus && device == candidate.device &&
            function == candidate.function) {
            TRACE(" for i %d, domain %lx, bus %lx, device %lx, func %lx", i, candidate.domain, candidate.bus,
                  candidate.device, candidate.function);
            *handle = &candidate;
            return VEKML_SUCCESS;
        }
    }
    puts("Unable to find a GPU with matching bus ID");
    TRACE("Unable to find a GPU with matching bus ID");
    return VEKML_ERROR_NO_DATA;
}

vekml_return_t vekml_device_get_name(vekml_device_t handle, char *name, uint32_t length)
{
    const size_t needed = strnlen(handle->name, sizeof handle->name - 1) + 1;
    if (needed > length)
        return VEKML_ERROR_INSUFFICIENT_SIZE;
    copy_text(name, needed, handle->name);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_minor_number(vekml_device_t handle, uint32_t *minor)
{
    *minor = handle->card_index;
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_card_index_by_handle(vekml_device_t handle, uint32_t *index)
{
    if (handle == nullptr || index == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    *index = handle->card_index;
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_pci_info(vekml_device_t handle, vekml_pci_info_t *pci)
{
    if (handle == nullptr || pci == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    pci->domain = handle->domain;
    pci->bus = handle->bus;
    pci->device = handle->device;
    pci->bdfid = handle->bdfid;
    pci->function = handle->function;
    copy_text(pci->busId, sizeof pci->busId, handle->dbdf);
    return VEKML_SUCCESS;
}

// ---- Static information -------------------------------------------------------------------------------------
// The plain attribute getters leave no trace of their own: the node reader tells what it found.

namespace {

constexpr char unknown_text[] = "unknown";
// Sizes of the buffers that callers keep.
constexpr std::size_t gddr_vendor_capacity = 8;
constexpr std::size_t video_text_capacity = 9;

/** Copy the text of a node, empty when it is unreadable, to a caller who keeps `Capacity` bytes. */
template <std::size_t Capacity>
vekml_return_t get_text(const char *directory, const char *node, char *dst)
{
    node_text<Capacity> text;
    text.read(directory, node);
    copy_text(dst, Capacity, text.text);
    return VEKML_SUCCESS;
}

vekml_return_t parse_asic_type(vekml_device_t device, uint32_t *arch_type)
{
    node_text<64> model;
    if (model.read(device->hwmon_path, "/vek_device_model") != 0) {
        TRACE("read vek_device_model to get asic_type failed");
        return VEKML_ERROR_NODE_IO;
    }
    char *rest = nullptr;
    const char *word = strtok_r(model.text, " ", &rest);
    if (word == nullptr) {
        TRACE("parse unknown");
        *arch_type = 2;
        return VEKML_SUCCESS;
    }
    TRACE("%s", word);
    const char *last = word;
    while ((word = strtok_r(nullptr, " ", &rest)) != nullptr)
        last = word;
    *arch_type = static_cast<uint32_t>(decimal(last));
    TRACE("arch_type = %d", *arch_type);
    return VEKML_SUCCESS;
}

const char *gddr_vendor_name(uint32_t number)
{
    constexpr const char *names[] = {"Samsung", "Hynix", "Micron"};
    return number < std::size(names) ? names[number] : unknown_text;
}

vekml_return_t vekml_device_get_num_gpu_cores_helper_v2(vekml_device_t device, uint32_t *cores)
{
    TRACE("\nenter vekml_device_get_num_gpu_cores_helper_v2");
    vekml_gpu_static_info_t info{};
    if (vekml_read_static_info_from_node(device->card_path, &info) != VEKML_SUCCESS) {
        TRACE("read static info from node failed.");
        *cores = 0;
        return VEKML_ERROR_NOT_FOUND;
    }
    *cores = info.core_num;
    TRACE("core num:%d", *cores);
    TRACE("exit vekml_device_get_num_gpu_cores_helper_v2");
    return VEKML_SUCCESS;
}

/** What every core delivers per clock, times cores and highest clock; logged as the function that asks. */
vekml_return_t get_fill_rate(const char *function, vekml_device_t device, float per_clock, float *rate)
{
    *rate = 0.0F;
    uint32_t cores = 0;
    vekml_return_t result = vekml_device_get_num_gpu_cores(device, &cores);
    if (result != VEKML_SUCCESS) {
        TRACE_AS(function, "call vekml_device_get_num_gpu_cores to get gpu cores failed.");
        return result;
    }
    uint32_t gfx_max = 0;
    result = vekml_device_get_gfx_clock_max(device, &gfx_max);
    if (result != VEKML_SUCCESS) {
        TRACE_AS(function, "call vekml_device_get_gfx_clock_max to the gfx max failed.");
        return result;
    }
    const float gfx_max_ghz = static_cast<float>(static_cast<int32_t>(gfx_max)) / 1000.0F;
    *rate = static_cast<float>(static_cast<int32_t>(cores)) * per_clock * gfx_max_ghz;
    TRACE_AS(function, "gpu core:%d gfx_max:%d gfx_max_ghz:%.2f", cores, gfx_max, static_cast<double>(gfx_max_ghz));
    return VEKML_SUCCESS;
}

} // namespace

vekml_return_t vekml_device_get_gddr_size(vekml_device_t device, uint32_t *size)
{
    const node_path<> path(device->hwmon_path, "/vek_gddr_size");
    if (!node_ref(path).allows(F_OK))
        return VEKML_ERROR_NODE_IO;
    node_text<20> text;
    text.read(path);
    *size = static_cast<uint32_t>(text.number());
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_gddr_speed(vekml_device_t device, uint64_t *speed)
{
    const node_path<> path(device->hwmon_path, "/vek_gddr_phys_speed");
    if (!node_ref(path).allows(F_OK))
        return VEKML_ERROR_NODE_IO;
    node_text<20> text;
    text.read(path);
    *speed = strtoull(text.text, nullptr, 0);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_gddr_count(vekml_device_t device, uint32_t *count)
{
    node_text<20> text;
    text.read(device->hwmon_path, "/vek_gddr_count");
    *count = static_cast<uint32_t>(text.number());
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_vendor(vekml_device_t device, char *vendor)
{
    return get_text<64>(device->hwmon_path, "/vek_vendor", vendor);
}

vekml_return_t vekml_device_get_fw_ver(vekml_device_t device, char *fw_ver)
{
    return get_text<20>(device->hwmon_path, "/vek_fw_ver", fw_ver);
}

vekml_return_t vekml_device_get_serial(vekml_device_t device, char *serial)
{
    return get_text<20>(device->hwmon_path, "/vek_chip_id", serial);
}

vekml_return_t vekml_device_get_vbios_version(vekml_device_t device, char *vbios)
{
    return get_text<50>(device->hwmon_path, "/vek_vbios", vbios);
}

vekml_return_t vekml_device_get_product_name(const char *dir, char *name)
{
    return get_text<16>(dir, "/vek_product_name", name);
}

vekml_return_t vekml_device_get_uuid(vekml_device_t device, char *uuid)
{
    if (device == nullptr || uuid == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    node_text<20> text;
    if (text.read(device->hwmon_path, "/vek_chip_id") != 0) {
        TRACE("device get uuid failed.");
        return VEKML_ERROR_NOT_FOUND;
    }
    copy_text(device->uuid, sizeof device->uuid, text.text);
    copy_text(uuid, sizeof text.text, text.text);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_asic_type(vekml_device_t device, uint32_t *arch_type)
{
    return parse_asic_type(device, arch_type);
}

vekml_return_t vekml_device_get_gddr_type(vekml_device_t device, char *gddr_type, uint32_t size)
{
    constexpr char type[] = "GDDR6";
    constexpr unsigned long smallest_size = 5; // counts characters: callers keep room for the terminator

    TRACE("\nenter vekml_device_get_gddr_type.");
    if (device == nullptr || gddr_type == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    if (size < smallest_size) {
        TRACE("The input gddr_type size must be greater than:%lu", smallest_size);
        return VEKML_ERROR_INSUFFICIENT_SIZE;
    }
    std::memcpy(gddr_type, type, sizeof type);
    TRACE("gddr_type:%s", gddr_type);
    TRACE("exit vekml_device_get_gddr_type.");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_gddr_vendor(vekml_device_t device, char *vendor)
{
    TRACE("\nenter vekml_device_get_gddr_vendor");
    if (device == nullptr || vendor == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    vekml_gpu_static_info_t info{};
    if (vekml_read_static_info_from_node(device->card_path, &info) != VEKML_SUCCESS) {
        TRACE("read static info from node failed.");
        copy_text(vendor, gddr_vendor_capacity, unknown_text);
        return VEKML_ERROR_NOT_FOUND;
    }
    TRACE("vendor_num:%d", info.gddr_vendor);
    copy_text(vendor, gddr_vendor_capacity, gddr_vendor_name(info.gddr_vendor));
    TRACE("gddr_vendor:%s", vendor);
    TRACE("exit vekml_device_get_gddr_vendor");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_device_id(vekml_device_t device, uint32_t *device_id)
{
    TRACE("\nenter vekml_device_get_device_id");
    if (device == nullptr || device_id == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    *device_id = static_cast<uint32_t>(device->device_id);
    TRACE("device_id:0x%04x", *device_id);
    TRACE("exit vekml_device_get_device_id.");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_gddr_width(vekml_device_t device, uint32_t *width)
{
    TRACE("\nenter vekml_device_get_gddr_width");
    if (device == nullptr || width == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    uint32_t device_id = 0;
    vekml_return_t result = vekml_device_get_device_id(device, &device_id);
    if (result != VEKML_SUCCESS) {
        *width = 0;
        TRACE("call vekml_device_get_device_id to get device_id failed.");
        return result;
    }
    result = vekml_device_id_to_gddr_width(device_id, width);
    if (result != VEKML_SUCCESS) {
        *width = 0;
        TRACE("call vekml_device_id_to_gddr_width to get gddr width failed.");
        return result;
    }
    TRACE("device_id:%lx", static_cast<unsigned long>(device_id));
    TRACE("gddr_width:%u", *width);
    TRACE("exit vekml_device_get_gddr_width");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_gfx_clock_max(vekml_device_t device, uint32_t *gfx_max)
{
    TRACE("\nenter vekml_device_get_gfx_clock_max.");
    if (device == nullptr || gfx_max == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    *gfx_max = 0;
    uint32_t device_id = 0;
    vekml_return_t result = vekml_device_get_device_id(device, &device_id);
    if (result != VEKML_SUCCESS) {
        puts("call vekml_device_get_device_id to get device_id failed.");
        return result;
    }
    uint32_t lower_bound = 0, upper_bound = 0;
    result = vekml_device_id_to_gfx_bound(device_id, &lower_bound, &upper_bound);
    if (result != VEKML_SUCCESS) {
        puts("call vekml_device_id_to_gfx_bound to get bound of gfx failed.");
        return result;
    }
    *gfx_max = upper_bound;
    TRACE("*gfx_max:%d", *gfx_max);
    TRACE("exit vekml_device_get_gfx_clock_max.");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_num_gpu_cores(vekml_device_t device, uint32_t *cores)
{
    TRACE("\nenter vekml_device_get_num_gpu_cores");
    if (device == nullptr || cores == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    vekml_return_t result = vekml_device_get_num_gpu_cores_helper_v2(device, cores);
    if (result != VEKML_SUCCESS) {
        *cores = 0;
        TRACE("call vekml_device_get_num_gpu_cores_helper_v2 to get gpu core num failed.");
        return result;
    }
    // The first read only tells whether the node is there; what the second finds is the answer.
    result = vekml_device_get_num_gpu_cores_helper_v2(device, cores);
    TRACE("core number:%d", *cores);
    TRACE("exit vekml_device_get_num_gpu_cores");
    return result;
}

vekml_return_t vekml_device_get_texture_fill_rate(vekml_device_t device, float *rate)
{
    TRACE("\nenter vekml_device_get_texture_fill_rate");
    if (device == nullptr || rate == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    const vekml_return_t result = get_fill_rate(__func__, device, 32.0F, rate);
    if (result != VEKML_SUCCESS)
        return result;
    TRACE("*texture_fill_rate:%.2f", static_cast<double>(*rate));
    TRACE("exit vekml_device_get_texture_fill_rate");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_pixel_fill_rate(vekml_device_t device, float *rate)
{
    TRACE("\nenter vekml_device_get_pixel_fill_rate");
    if (device == nullptr || rate == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    const vekml_return_t result = get_fill_rate(__func__, device, 16.0F, rate);
    if (result != VEKML_SUCCESS)
        return result;
    TRACE("pixel_fill_rate:%.2f", static_cast<double>(*rate));
    TRACE("exit vekml_device_get_pixel_fill_rate");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_video_decoder_encoder(vekml_device_t device, char *decoder, char *encoder)
{
    TRACE("\nenter vekml_device_get_video_decoder_encoder");
    if (device == nullptr || decoder == nullptr || encoder == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    uint32_t device_id = 0;
    const bool has_id = vekml_device_get_device_id(device, &device_id) == VEKML_SUCCESS;
    if (!has_id)
        TRACE("call vekml_device_get_device_id to get device_id failed.");
    const bool known = has_id && device_id_to_video_decoder_encoder(device_id, decoder, encoder) == VEKML_SUCCESS;
    if (has_id && !known)
        TRACE("call device_id_to_video_decoder_encoder to get decoder and encoder ability failed.");
    if (!known) {
        copy_text(decoder, video_text_capacity, unknown_text);
        copy_text(encoder, video_text_capacity, unknown_text);
        return VEKML_ERROR_NODE_IO;
    }
    TRACE("decoder:%s encoder:%s", decoder, encoder);
    TRACE("exit vekml_device_get_video_decoder_encoder");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_chip_process(vekml_device_t device, uint32_t *chip_process)
{
    if (device == nullptr) {
        TRACE("get device chip process failed, the device is NULL!");
        return VEKML_ERROR_INVALID_ARGUMENT;
    }
    if (chip_process == nullptr) {
        TRACE("get device chip process failed, the chip_process is NULL!");
        return VEKML_ERROR_INVALID_ARGUMENT;
    }
    if (is_right_device_id(device->model_device_id) == VEKML_SUCCESS)
        return device_id_to_chip_process(device->model_device_id, chip_process);
    node_text<64> text;
    if (text.read(device->hwmon_path, "/vek_device_model") != 0) {
        TRACE("read vek_device_model to get device_model failed");
        return VEKML_ERROR_NOT_FOUND;
    }
    char model[64];
    parse_device_model(text.text, model, sizeof model);
    uint32_t device_id = 0;
    return model_to_device_id_and_chip_process(model, &device_id, chip_process);
}

vekml_return_t vekml_device_get_device_model(vekml_device_t device, char *model, uint32_t size)
{
    if (device == nullptr) {
        TRACE("get device chip process failed, the device is NULL!");
        return VEKML_ERROR_INVALID_ARGUMENT;
    }
    if (model == nullptr) {
        TRACE("get device chip process failed, the device_model is NULL!");
        return VEKML_ERROR_INVALID_ARGUMENT;
    }
    if (is_right_device_id(device->model_device_id) == VEKML_SUCCESS)
        return device_id_to_model_with_size(device->model_device_id, model, size);
    device_id_to_model(static_cast<uint32_t>(device->device_id), model, size);
    // The caller's buffer need not be terminated.
    TRACE("device_model:%.*s", static_cast<int>(std::min<uint32_t>(size, INT_MAX)), model);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_primary_id(vekml_device_t device, char *dst)
{
    return get_text<20>(device->hwmon_path, "/vek_gpu_primary_id", dst);
}

vekml_return_t vekml_device_get_primary_core_id(vekml_device_t device, char *dst)
{
    return get_text<20>(device->hwmon_path, "/vek_gpu_primary_core_id", dst);
}

// ---- Driver versions ----------------------------------------------------------------------------------------

namespace {

vekml_return_t vekml_device_get_driver_version_helper_v2(vekml_device_t device, vekml_driver_version_t *version)
{
    TRACE("\nenter vekml_device_get_driver_version_helper_v2");
    const node_path<100> path(device->card_path, "/version");
    TRACE("driver version path:%s", path.text());
    text_node node;
    if (!node.read(path)) {
        TRACE("read file: %s failed.", path.text());
        return VEKML_ERROR_NOT_FOUND;
    }
    parse_version_node(node.text(), version);
    TRACE("driver ver is: DDK:%s KMD:%s UMD:%s", version->ddk, version->kmd, version->umd);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_driver_version_helper_v1(vekml_driver_version_t *version)
{
    return read_version_dump(TRACE_SITE(__func__), version);
}

} // namespace

vekml_return_t vekml_device_get_driver_version(vekml_device_t device, vekml_driver_version_t *version)
{
    TRACE("\nenter vekml_device_get_driver_version.");
    if (vekml_device_get_driver_version_helper_v2(device, version) != VEKML_SUCCESS)
        return vekml_device_get_driver_version_helper_v1(version);
    TRACE("exit vekml_device_get_driver_version");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_driver_release_version(char *version, uint32_t size)
{
    TRACE("\nvekml_device_get_driver_release_version");
    if (version == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    get_driver_release_version(version, size);
    TRACE("exit vekml_device_get_driver_release_version");
    return VEKML_SUCCESS;
}

// ---- Memory errors, display ---------------------------------------------------------------------------------

namespace {

constexpr uint32_t memory_devices = 4;

/** Whether the status node of a connector tells of a monitor. */
bool is_connected(const node_text<20> &status)
{
    constexpr char connected[] = "connected";
    return strncmp(status.text, connected, sizeof connected - 1) == 0;
}

} // namespace

vekml_return_t vekml_device_get_gddr_crc(vekml_device_t device, vekml_gddr_crc_t *crc)
{
    TRACE("\nenter vekml_device_get_gddr_crc");
    if (device == nullptr || crc == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    const node_path<100> path(device->card_path, "/device/gddr_crc");
    TRACE("path_name:%s", path.text());
    text_node node;
    if (!node.read(path)) {
        TRACE("read file: %s failed.", path.text());
        return VEKML_ERROR_NOT_FOUND;
    }
    crc->crc_support = 1;
    number_scan numbers(node.text());
    for (uint32_t i = 0; i < memory_devices; ++i) {
        for (auto *counters :
             {&crc->crc_write_cnt, &crc->crc_read_cnt, &crc->crc_write_retry_cnt, &crc->crc_read_retry_cnt}) {
            auto number = static_cast<int32_t>((*counters)[i]); // the driver prints them signed
            numbers >> number;
            (*counters)[i] = static_cast<uint32_t>(number);
        }
    }
    for (uint32_t i = 0; i < memory_devices; ++i) {
        TRACE("gddr %d", i);
        TRACE("gddr_state->crc_support:%d", crc->crc_support);
        TRACE("gddr_state->:crc_write_cnt:%d, crc_read_cnt:%d, crc_write_retry_cnt:%d, crc_read_retry_cnt:%d",
              crc->crc_write_cnt[i], crc->crc_read_cnt[i], crc->crc_write_retry_cnt[i], crc->crc_read_retry_cnt[i]);
    }
    TRACE("exit vekml_device_get_gddr_crc");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_display_status(vekml_device_t device, uint32_t *connected)
{
    // Every card is asked for connectors of these names, whatever its own number.
    const node_path<> hdmi(device->card_path, "/card0-HDMI-A-1/status");
    const node_path<> dp(device->card_path, "/card0-DP-1/status");
    TRACE("hdmi_node_path_name is %s", hdmi.text());
    TRACE("dp_node_path_name is %s", dp.text());
    node_text<20> status;
    status.read(hdmi);
    TRACE("res is %s", status.text);
    if (is_connected(status)) {
        *connected = 1;
        return VEKML_SUCCESS;
    }
    status = {};
    status.read(dp);
    *connected = is_connected(status) ? 1 : 0;
    return VEKML_SUCCESS;
}

// ---- Utilisation, memory, processes -------------------------------------------------------------------------

namespace {

// ---- Utilisation: steps ----

bool vekml_device_get_gpu_util_state_info_helper_v2(vekml_device_t device, vekml_gpu_util_state_t *state)
{
    TRACE("enter vekml_device_get_gpu_util_state_info_helper_v2");
    const node_path<100> path(device->card_path, "/device/gpu_util_info");
    TRACE("path_name of gpu_mem_util_info:%s", path.text());
    text_node node;
    if (!node.read(path)) {
        TRACE("read file: %s failed.", path.text());
        return false;
    }
    *state = parse_util_node(node.text());
    TRACE("after assign, gpu state util info:");
    trace_util_counters(TRACE_SITE(__func__), state->counters);
    TRACE("ui64TimeStamp:%lu", state->ui64TimeStamp);
    return true;
}

bool vekml_device_get_gpu_util_state_info_helper_v1(vekml_device_t device, vekml_gpu_util_state_t *state)
{
    TRACE("enter vekml_device_get_gpu_util_state_info_helper_v1");
    if (!request_util_counters(TRACE_SITE(__func__), device->card_index, &state->counters))
        return false;
    TRACE("exit vekml_device_get_gpu_state_info_helper_v1");
    return true;
}

bool vekml_device_get_gpu_util_state_info(vekml_device_t device, vekml_gpu_util_state_t *state)
{
    TRACE("enter vekml_device_get_gpu_util_state_info");
    if (vekml_device_get_gpu_util_state_info_helper_v2(device, state)) {
        TRACE("call vekml_device_get_gpu_util_state_info_helper_v2 to get util state info by reading file node "
              "success.");
        return true;
    }
    if (vekml_device_get_gpu_util_state_info_helper_v1(device, state))
        return true;
    TRACE("call vekml_device_get_gpu_util_state_info_helper_v1 to get gpu util state info by ioctl failed.");
    return false;
}

bool vekml_device_get_util_info_helper_v2(vekml_device_t device, vekml_util_info_t *util)
{
    TRACE("enter vekml_device_get_util_info_helper_v2");
    vekml_gpu_util_state_t state{};
    if (!vekml_device_get_gpu_util_state_info(device, &state) || state.counters.bValid != 1) {
        TRACE("call vekml_device_get_gpu_util_state_info to get gpu util state failed.");
        *util = {};
        return false;
    }
    const vekml_util_counters_t &counters = state.counters;
    *util = percentages(counters);
    for (int i = 1; i <= 4; ++i)
        TRACE("gpu_util->DMOSStatActive[%d][0]:%ld gpu_util->DMOSStatCumulative[%d][0]:%ld", i,
              counters.DMOSStatActive[i], i, counters.DMOSStatCumulative[i]);
    TRACE("gpu: %d\n tdm:%d\n geom:%d\n thrd:%d\n cdm:%d", util->gpu, util->tdm, util->geom, util->thrd, util->cdm);
    TRACE("exit vekml_device_get_util_info_helper_v2");
    return true;
}

vekml_return_t vekml_device_get_util_info_helper_v1(vekml_util_info_t *util)
{
    TRACE("enter vekml_device_get_util_info_helper_v1");
    return is_root() ? read_util_status(TRACE_SITE(__func__), util) : VEKML_ERROR_NO_PERMISSION;
}

// ---- Memory: steps ----

bool vekml_device_get_mem_info_helper_v2(vekml_device_t device, vekml_mem_info_t *memory)
{
    TRACE("enter vekml_device_get_mem_info_helper_v2");
    const node_path<100> path(device->card_path, "/device/gpu_mem_util_info");
    TRACE("path_name:%s", path.text());
    text_node node;
    if (!node.read(path)) {
        TRACE("read file: %s failed.", path.text());
        return false;
    }
    number_scan(node.text()) >> memory->fb_free >> memory->fb_total >> memory->sys_free >> memory->sys_total;
    complete_memory(TRACE_SITE(__func__), memory);
    TRACE("exit vekml_device_get_mem_info_helper_v2");
    return true;
}

vekml_return_t vekml_device_get_mem_info_helper_v1(vekml_device_t device, vekml_mem_info_t *memory)
{
    TRACE("enter vekml_device_get_mem_info_helper_v1");
    if (!is_root()) {
        TRACE("system is not root");
        *memory = {};
        return VEKML_ERROR_NO_PERMISSION;
    }
    if (!read_memory_dump(TRACE_SITE(__func__), device->table_index, memory))
        return VEKML_ERROR_NODE_IO;
    TRACE("exit vekml_device_get_mem_info_helper_v1");
    return VEKML_SUCCESS;
}

// ---- Processes: steps ----

bool vekml_device_get_process_info_helper_v2(vekml_device_t device, vekml_process_info_t *info)
{
    TRACE("enter vekml_device_get_process_info_helper_v2");
    const node_path<100> path(device->card_path, "/device/gpu_mem_util_info");
    TRACE("path_name of gpu_mem_util_info:%s", path.text());
    long_text_node node;
    if (!node.read(path)) {
        TRACE("read file: %s failed.", path.text());
        return false;
    }
    std::size_t entries = 0;
    const process_rows rows = read_entries(TRACE_SITE(__func__), node, &entries);
    if (!rows)
        return false;

    // The entry behind an ended process is lost, and so is the last live one: the ended one's row is counted.
    const process_list list(TRACE_SITE(__func__), process_list::wording::node);
    const std::size_t live = list.drop_ended({rows.get(), entries}, 1, entries).live;
    TRACE("after split, num:%d", static_cast<int>(live));
    if (!list.select({rows.get(), live}, {info->process, info->process_name}, &info->process_num))
        return false;
    TRACE("sorted_num:%d", static_cast<int>(info->process_num));
    TRACE("exit vekml_return_t vekml_device_get_process_info_helper_v2");
    return true;
}

vekml_return_t vekml_device_get_process_info_helper_v1(uint32_t card_index, vekml_process_t *process,
                                                       char (*process_name)[VEKML_PROCESS_NAME], uint64_t *process_num)
{
    TRACE("enter vekml_device_get_process_info_helper_v1");
    const process_list list(TRACE_SITE(__func__), process_list::wording::request);
    if (const int result =
            list.request(card_index, process_list::failures::negative, {process, process_name}, process_num);
        result != 0)
        return static_cast<vekml_return_t>(result);
    TRACE("*process_num:%d", static_cast<int>(*process_num));
    TRACE("\nexit vekml_device_get_process_info_helper_v1");
    return VEKML_SUCCESS;
}

} // namespace

vekml_return_t vekml_device_get_util_info(vekml_device_t device, vekml_util_info_t *util)
{
    TRACE("enter vekml_device_get_util_info");
    if (vekml_device_get_util_info_helper_v2(device, util)) {
        TRACE("call vekml_device_get_util_info_helper_v2 to get util info by calculating success.");
        return VEKML_SUCCESS;
    }
    const vekml_return_t result = vekml_device_get_util_info_helper_v1(util);
    if (result != VEKML_SUCCESS) {
        TRACE("call vekml_device_get_util_info_helper_v1 to get util info by reading file failed.");
        return result;
    }
    TRACE("exit vekml_device_get_util_info");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_mem_info(vekml_device_t device, vekml_mem_info_t *memory)
{
    TRACE("enter vekml_device_get_mem_info");
    if (vekml_device_get_mem_info_helper_v2(device, memory))
        return VEKML_SUCCESS;
    const vekml_return_t result = vekml_device_get_mem_info_helper_v1(device, memory);
    if (result != VEKML_SUCCESS) {
        TRACE("call vekml_device_get_mem_info_helper_v1 to get mem info failed.");
        return result;
    }
    TRACE("exit vekml_device_get_mem_info");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_process_info(vekml_device_t device, vekml_process_info_t *info)
{
    TRACE("enter vekml_device_get_process_info");
    if (vekml_device_get_process_info_helper_v2(device, info)) {
        TRACE("call vekml_device_get_process_info_helper_v2 to get process info by reading file node success.");
        return VEKML_SUCCESS;
    }
    const vekml_return_t result = vekml_device_get_process_info_helper_v1(device->card_index, info->process,
                                                                          info->process_name, &info->process_num);
    if (result != VEKML_SUCCESS) {
        TRACE("call vekml_device_get_process_info_helper_v1 to get process info by ioctl failed.");
        return result;
    }
    TRACE("exit vekml_device_get_process_info");
    return VEKML_SUCCESS;
}
