// SPDX-License-Identifier: Apache-2.0
#include "live_fields.h"

#include "process_list.h"
#include "utilisation.h"
#include "vek_smi_utils.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

namespace vekml {

namespace {

/** Ask a getter for a text, which is cut where the field is smaller than what the getter needs. */
template <std::size_t Size>
void take_text(vekml_return_t (*getter)(vekml_device_t, char *), vekml_device_t device, char (&field)[Size])
{
    char text[64] = {};
    getter(device, text);
    copy_text(field, Size, text);
}

/** An error total is one character that comes without a terminator. */
template <std::size_t Size>
void take_error_total(vekml_return_t (*getter)(const char *, char *), vekml_device_t device, char (&field)[Size])
{
    char text[8] = {};
    getter(device->card_path, text);
    copy_text(field, Size, text);
}

/** Steps for what one getter delivers for one field. */
template <auto getter, auto field>
vekml_return_t take_field(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    return take(getter, device, query->*field);
}
template <auto getter, auto field>
vekml_return_t take_text_field(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    take_text(getter, device, query->*field);
    return VEKML_SUCCESS;
}

vekml_return_t take_name(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    return vekml_device_get_name(device, query->name, sizeof query->name);
}

vekml_return_t take_clocks_of_interest(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    clock_info clocks{};
    const vekml_return_t result = vekml_device_get_clock(device, &clocks);
    query->clock[0] = static_cast<uint32_t>(clocks.gddr_phys_clk);
    query->clock[1] = static_cast<uint32_t>(clocks.gfx_clk);
    query->clock[3] = static_cast<uint32_t>(clocks.cmcu_clk);
    return result;
}

vekml_return_t take_all_clocks(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    clock_info clocks{};
    const vekml_return_t result = vekml_device_get_clock(device, &clocks);
    const int32_t in_order[] = {clocks.gddr_phys_clk, clocks.gfx_clk, clocks.acpu_clk, clocks.cmcu_clk, clocks.ndf_clk};
    std::copy(std::begin(in_order), std::end(in_order), query->clock);
    return result;
}

vekml_return_t take_temperatures(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    temper_info temperatures{};
    const vekml_return_t result = vekml_device_get_temper_info(device, &temperatures);
    query->temperature[0] = static_cast<uint64_t>(temperatures.ctrl_mode);
    query->temperature[1] = static_cast<uint64_t>(temperatures.temp_input);
    query->temperature[2] = static_cast<uint64_t>(temperatures.temp_highest);
    return result;
}

vekml_return_t take_power(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    power_info power{};
    const vekml_return_t result = vekml_device_get_power_info(device, &power);
    query->power_state = static_cast<uint32_t>(power.voltage);
    query->power[0] = static_cast<float>(power.current);
    query->power[1] = static_cast<float>(power.power_average);
    query->power[2] = static_cast<float>(power.total_power);
    return result;
}

vekml_return_t take_pci_ids(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    query->pci_ids[0] = static_cast<uint32_t>(device->device_id);
    query->pci_ids[1] = static_cast<uint32_t>(device->vendor_id);
    query->pci_ids[2] = static_cast<uint32_t>(device->subsystem_device_id);
    query->pci_ids[3] = static_cast<uint32_t>(device->subsystem_vendor_id);
    return VEKML_SUCCESS;
}

vekml_return_t take_link(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    take(vekml_device_get_curr_pcie_link_width, device, query->curr_pcie_link_width);
    take(vekml_device_get_max_pcie_link_width, device, query->max_pcie_link_width);
    take(vekml_device_get_pcie_speed, device, query->pcie_speed);
    take(vekml_device_get_pcie_link_max_speed, device, query->pcie_link_max_speed);
    take(vekml_device_get_max_pcie_link_generation, device, query->max_pcie_link_generation);
    return take(vekml_device_get_curr_pcie_link_generation, device, query->curr_pcie_link_generation);
}

vekml_return_t take_pcie_errors_and_mmbar(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    take_error_total(vekml_device_get_pcie_err_corr, device, query->pcie_err_corr);
    take_error_total(vekml_device_get_pcie_err_fatal, device, query->pcie_err_fatal);
    take_error_total(vekml_device_get_pcie_err_nonfatal, device, query->pcie_err_nonfatal);
    take_text(vekml_device_get_pcie_mmbar_type, device, query->pcie_mmbar_type);
    return VEKML_SUCCESS;
}

vekml_return_t take_pcie_event(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    vekml_pcie_event_t event{};
    const vekml_return_t result = vekml_device_get_pcie_event(device, &event);
    query->pcie_event[0] = event.event;
    std::copy(std::begin(event.flags), std::end(event.flags), query->pcie_event + 1);
    return result;
}

vekml_return_t take_pci_info(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    vekml_pci_info_t pci{};
    const vekml_return_t result = vekml_device_get_pci_info(device, &pci);
    query->pci_info[0] = pci.domain;
    query->pci_info[1] = pci.bus;
    query->pci_info[2] = pci.device;
    query->pci_info[3] = pci.bdfid;
    copy_text(query->pci_bus_id, sizeof query->pci_bus_id, pci.busId);
    return result;
}

vekml_return_t take_asic_type(const trace_site &site, vekml_device_t device, vekml_device_query_t *query)
{
    uint32_t type = VEKML_ASIC_TYPES; // no name, should the type not be had
    vekml_device_get_asic_type(device, &type);
    store_name(query->asic_type, name_at(asic_types, type));
    TRACE_FOR(site, "query->asci_type:%s", query->asic_type);
    return VEKML_SUCCESS;
}

/** The device record keeps what the getter has just read. */
vekml_return_t take_uuid(const trace_site &, vekml_device_t device, vekml_device_query_t *query)
{
    char unused[20] = {};
    vekml_device_get_uuid(device, unused);
    copy_text(query->uuid, sizeof query->uuid, device->uuid);
    return VEKML_SUCCESS;
}

vekml_return_t take_core_count(const trace_site &site, vekml_device_t device, vekml_device_query_t *query)
{
    TRACE_FOR(site, "call vekml_device_get_num_gpu_cores.");
    const vekml_return_t result = take(vekml_device_get_num_gpu_cores, device, query->core);
    TRACE_FOR(site, "gpu core by ioctl: %d", query->core);
    return result;
}

vekml_return_t take_gddr_size(const trace_site &site, vekml_device_t device, vekml_device_query_t *query)
{
    TRACE_FOR(site, "call vekml_device_get_gddr_size.");
    const vekml_return_t result = take(vekml_device_get_gddr_size, device, query->gddr_size);
    TRACE_FOR(site, "gddr_size: %d\n GB", query->gddr_size);
    return result;
}

vekml_return_t log_refreshed_power(const trace_site &site, vekml_device_t, vekml_device_query_t *query)
{
    TRACE_FOR(site, "in vek_smi_query_dynamic_info_helper_v2 query->pwr_total:%f",
              static_cast<double>(query->power[2]));
    return VEKML_SUCCESS;
}

vekml_return_t log_queried_power(const trace_site &site, vekml_device_t, vekml_device_query_t *query)
{
    TRACE_FOR(site, "in vek_smi_query_api query->pwr_total:%f", static_cast<double>(query->power[2]));
    return VEKML_SUCCESS;
}

// ---- The steps in their order ----

using record = vekml_device_query_t;
constexpr unsigned all = refresh | fallback | whole;
constexpr unsigned dispensable = 8; /**< the refresh complains of the failure and goes on */

/** One step. Only the refresh minds a failure; the others go on whatever comes of it. */
struct live_step {
    unsigned fillers; /**< with ::dispensable */
    vekml_return_t (*take)(const trace_site &site, vekml_device_t device, vekml_device_query_t *query);
    const char *complaint = nullptr; /**< of the refresh, on standard output */
};

constexpr live_step live_steps[] = {
    {all, take_field<vekml_device_get_display_status, &record::display_status>,
     "call vekml_device_get_display_status to get display info failed."},
    {refresh | whole | dispensable, take_clocks_of_interest, "call vekml_device_get_clock to get clock info failed."},
    {fallback, take_all_clocks},
    {all, take_temperatures, "call vekml_device_get_temper_info to get temp info failed."},
    {all, take_power, "call vekml_device_get_power_info to get power info failed."},
    {refresh, log_refreshed_power},
    {whole, log_queried_power},
    {all, take_name, "call vekml_device_get_name to get name info failed."},
    {whole, take_uuid},
    {all, take_field<vekml_device_get_minor_number, &record::minor_number>,
     "call vekml_device_get_minor_number to get minor number failed."},
    {whole, take_text_field<vekml_device_get_vbios_version, &record::vbios_version>},
    {whole, take_text_field<vekml_device_get_serial, &record::serial>},
    {all, take_field<vekml_device_get_fan_speed, &record::fan_speed>,
     "call vekml_device_get_fan_speed to get fan speed failed."},
    {all, take_pci_ids},
    {all, take_link, "get pcie failed."},
    {all, take_text_field<vekml_device_get_primary_core_id, &record::primary_core_id>},
    {whole, take_text_field<vekml_device_get_primary_id, &record::primary_id>},
    {whole, take_asic_type},
    {whole, take_core_count},
    {whole, take_gddr_size},
    {all, take_pcie_errors_and_mmbar},
    {all, take_pcie_event, "call vekml_device_get_pcie_event to get pcie event info failed."},
    {whole, take_field<vekml_device_get_support_fan_info, &record::support_fan_info>},
    {whole, take_field<vekml_device_get_support_power_info, &record::support_power_info>},
    {all, take_pci_info, "call vekml_device_get_pci_info to get pci info failed."},
    {whole, take_text_field<vekml_device_get_fw_ver, &record::fw_ver>},
    {whole, take_field<vekml_device_get_gddr_count, &record::gddr_count>},
    {whole, take_field<vekml_device_get_gddr_speed, &record::gddr_speed>},
};

} // namespace

bool take_live_fields(filler who, const trace_site &site, vekml_device_t device, vekml_device_query_t *query)
{
    for (const live_step &each : live_steps) {
        if ((each.fillers & who) == 0)
            continue;
        const vekml_return_t result = each.take(site, device, query);
        if (who != refresh || result == VEKML_SUCCESS || each.complaint == nullptr)
            continue;
        puts(each.complaint);
        if ((each.fillers & dispensable) == 0)
            return false;
    }
    return true;
}

void take_processes(const trace_site &site, vekml_device_t device, vekml_device_query_t *query)
{
    vekml_process_info_t info{};
    if (vekml_device_get_process_info(device, &info) != VEKML_SUCCESS)
        puts("call vekml_device_get_process_info to get process info failed.");
    query->pronum = info.process_num;
    TRACE_FOR(site, "query->pronum:%lu", query->pronum);
    for (uint64_t i = 0; i < query->pronum; ++i) {
        query->process[i] = info.process[i];
        copy_text(query->process_name[i], sizeof query->process_name[i], info.process_name[i]);
        TRACE_FOR(site, "i=%d; pid=%lu", static_cast<int>(i), query->process[i].pid);
        TRACE_FOR(site, "query->process_name               : %s", query->process_name[i]);
    }
}

vekml_return_t take_gddr_crc(const trace_site &site, vekml_device_t device, vekml_device_query_t *query)
{
    vekml_gddr_crc_t crc{};
    const vekml_return_t result = vekml_device_get_gddr_crc(device, &crc);
    if (result != VEKML_SUCCESS) {
        TRACE_FOR(site, "call vekml_device_get_gddr_crc to get gddr crc info failed.");
        return result;
    }
    query->crc_support = crc.crc_support;
    for (std::size_t i = 0; i < std::size(crc.crc_write_cnt); ++i) {
        query->crc_write_cnt[i] = crc.crc_write_cnt[i];
        query->crc_read_cnt[i] = crc.crc_read_cnt[i];
        query->crc_write_retry_cnt[i] = crc.crc_write_retry_cnt[i];
        query->crc_read_retry_cnt[i] = crc.crc_read_retry_cnt[i];
        TRACE_FOR(site, "query->:crc_write_cnt:%d, crc_read_cnt:%d, crc_write_retry_cnt:%d, crc_read_retry_cnt:%d",
                  crc.crc_write_cnt[i], crc.crc_read_cnt[i], crc.crc_write_retry_cnt[i], crc.crc_read_retry_cnt[i]);
    }
    TRACE_FOR(site, "query->crc_support:%d", query->crc_support);
    return result;
}

vekml_return_t take_from_driver(const trace_site &site, vekml_device_t device, vekml_device_query_t *query)
{
    vekml_return_t result = take(vekml_device_get_util_info, device, query->util);
    if (result != VEKML_SUCCESS) {
        TRACE_FOR(site, "Error: get util info failed!");
        return result;
    }
    if (!request_util_counters(site, device->card_index, &query->util_state))
        return VEKML_ERROR_NODE_IO;
    const process_list list(site, process_list::wording::query);
    result = static_cast<vekml_return_t>(list.request(device->card_index, process_list::failures::nonzero,
                                                      {query->process, query->process_name}, &query->pronum));
    if (result != VEKML_SUCCESS)
        return result;
    TRACE_FOR(site, "process number = %lu", query->pronum);
    result = take_gddr_crc(site, device, query);
    if (result == VEKML_SUCCESS)
        TRACE_FOR(site, "struct query address is %p", static_cast<void *>(query));
    return result;
}

} // namespace vekml
