// SPDX-License-Identifier: Apache-2.0
// Every call that reads or writes a node, as rows of tables.
#pragma once

#include "vekml.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

struct call {
    const char *name;
    std::size_t size; // of the record it fills
    std::function<int(vekml_device_t, void *)> run;
    bool is_text = false; // rather than numbers of 32 bits
};
template <typename Out>
inline call of(const char *name, vekml_return_t (*get)(vekml_device_t, Out *), std::size_t size = sizeof(Out))
{
    return {name, size, [=](vekml_device_t gpu, void *out) { return get(gpu, static_cast<Out *>(out)); },
            std::is_same_v<Out, char>};
}
template <typename Out>
inline call of(const char *name, vekml_return_t (*get)(const char *, Out *), std::size_t size = sizeof(Out))
{
    return {name, size, [=](vekml_device_t gpu, void *out) { return get(gpu->card_path, static_cast<Out *>(out)); },
            std::is_same_v<Out, char>};
}
// Selects one value after the other, and one that does not exist.
template <typename Out>
inline call of(const char *name, vekml_return_t (*run)(vekml_device_t, Out *, std::uint32_t))
{
    return {name, sizeof(Out), [=](vekml_device_t gpu, void *out) {
                int results = 0;
                for (std::uint32_t type = 0; type <= 5; ++type)
                    results |= run(gpu, static_cast<Out *>(out), type) << type;
                return results;
            }};
}
inline call of(const char *name, vekml_return_t (*set)(vekml_device_t, const char *), const char *value)
{
    return {name, 0, [=](vekml_device_t gpu, void *) { return set(gpu, value); }};
}
inline vekml_return_t vekml_device_get_vpu_rates(vekml_device_t gpu, std::uint32_t (*rate)[4])
{
    return vekml_device_get_vpu_utlz(gpu, &(*rate)[0], &(*rate)[1], &(*rate)[2], &(*rate)[3]);
}
template <typename... Call>
std::vector<call> all(const Call &...calls)
{
    return {calls...};
}
#define CALL(name, ...) of(#name, vekml_device_##name __VA_OPT__(, ) __VA_ARGS__)

inline const auto readers = all(
    CALL(get_product_name, 16), CALL(get_gddr_size), CALL(get_gddr_speed), CALL(get_gddr_count), CALL(get_vendor, 64),
    CALL(get_fw_ver, 20), CALL(get_serial, 20), CALL(get_vbios_version, 50), CALL(get_uuid, 20), CALL(get_asic_type),
    CALL(get_gddr_vendor, 8), CALL(get_num_gpu_cores), CALL(get_texture_fill_rate), CALL(get_pixel_fill_rate),
    CALL(get_chip_process), CALL(get_primary_id, 20), CALL(get_primary_core_id, 20), CALL(get_driver_version),
    CALL(get_pcie_throughput, 20), CALL(get_pcie_event), CALL(get_pcie_mmbar_type, 20), CALL(get_pcie_err_nonfatal, 4),
    CALL(get_pcie_err_fatal, 4), CALL(get_pcie_err_corr, 4), CALL(get_gddr_crc), CALL(get_display_status),
    CALL(get_util_info), CALL(get_mem_info), CALL(get_process_info), CALL(get_thermal), CALL(get_thermal_info),
    CALL(get_dvfs_info), CALL(get_temper), CALL(get_temper_info), CALL(get_fan_ctrl_mode), CALL(get_fan_pwm),
    CALL(get_pwm_min), CALL(get_pwm_max), CALL(get_fan_speed), CALL(get_support_fan_info), CALL(get_support_power_info),
    CALL(is_support_power), CALL(get_power_info), CALL(get_clock_info), CALL(get_clock), CALL(get_vpu_info),
    CALL(get_vpu_rates), CALL(query_by_out_of_band), of("static_info", vekml_read_static_info_from_node),
    CALL(query_static_info), CALL(query), CALL(query_two_parts));
inline const auto setters =
    all(CALL(set_thermal_info), CALL(set_temper_info), CALL(set_dvfs_enable, "1"), CALL(set_fan_ctrl_mode, "1"),
        CALL(set_fan_pwm1, "3000"), CALL(set_fan1_speed, "60"), CALL(set_power_volt, "850"),
        CALL(set_power_warn, "150"), CALL(set_gfx_clock, "900000000"));
inline const auto readers_without_driver = all(CALL(get_fan_speed_by_out_of_band), CALL(get_temp_info_by_out_of_band),
                                               CALL(get_power_info_by_out_of_band, 16), CALL(query_by_out_of_band));
