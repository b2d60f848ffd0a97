// SPDX-License-Identifier: Apache-2.0
//
// Clients are compiled against these layouts: a change here is a change of the binary interface.
#include "vekml.h"

#include <cstddef>

#define SIZE_OF(record, size) static_assert(sizeof(record) == (size))
#define AT(record, field, offset) static_assert(offsetof(record, field) == (offset))

SIZE_OF(vpu_cap_item, 72);
AT(vpu_cap_item, name, 0);
AT(vpu_cap_item, supported, 64);
AT(vpu_cap_item, index, 68);

SIZE_OF(vpu_encoder_item, 2016);
AT(vpu_encoder_item, name, 0);
AT(vpu_encoder_item, supported, 64);
AT(vpu_encoder_item, profile, 68);
AT(vpu_encoder_item, image_formats, 72);
AT(vpu_encoder_item, rate_controls, 1152);

SIZE_OF(vpu_decoder_item, 1152);
AT(vpu_decoder_item, name, 0);
AT(vpu_decoder_item, supported, 64);
AT(vpu_decoder_item, profile, 68);
AT(vpu_decoder_item, image_formats, 72);

SIZE_OF(Vpu_codec_info_st, 117284);
AT(Vpu_codec_info_st, vendor, 0);
AT(Vpu_codec_info_st, valid, 64);
AT(Vpu_codec_info_st, encoders, 68);
AT(Vpu_codec_info_st, decoders, 74660);

SIZE_OF(vekml_device_record_t, 119664);
AT(vekml_device_record_t, card_path, 0);
AT(vekml_device_record_t, hwmon_path, 128);
AT(vekml_device_record_t, product_name_path, 256);
AT(vekml_device_record_t, dbdf_path, 512);
AT(vekml_device_record_t, curr_link_speed_path, 768);
AT(vekml_device_record_t, curr_link_width_path, 1024);
AT(vekml_device_record_t, max_link_speed_path, 1280);
AT(vekml_device_record_t, max_link_width_path, 1536);
AT(vekml_device_record_t, card_index, 1792);
AT(vekml_device_record_t, table_index, 1796);
AT(vekml_device_record_t, name, 1800);
AT(vekml_device_record_t, dbdf, 1864);
AT(vekml_device_record_t, uuid, 1928);
AT(vekml_device_record_t, domain, 1944);
AT(vekml_device_record_t, bus, 1952);
AT(vekml_device_record_t, device, 1960);
AT(vekml_device_record_t, function, 1968);
AT(vekml_device_record_t, bdfid, 1976);
AT(vekml_device_record_t, curr_link_speed, 1984);
AT(vekml_device_record_t, curr_link_width, 1988);
AT(vekml_device_record_t, max_link_speed, 1992);
AT(vekml_device_record_t, max_link_width, 1996);
AT(vekml_device_record_t, curr_link_generation, 2000);
AT(vekml_device_record_t, max_link_generation, 2004);
AT(vekml_device_record_t, device_id, 2008);
AT(vekml_device_record_t, vendor_id, 2016);
AT(vekml_device_record_t, subsystem_device_id, 2024);
AT(vekml_device_record_t, subsystem_vendor_id, 2032);
AT(vekml_device_record_t, gpu_clock_mhz, 2040);
AT(vekml_device_record_t, vendor_name, 2044);
AT(vekml_device_record_t, vbios_version_text, 2108);
AT(vekml_device_record_t, fw_version_text, 2172);
AT(vekml_device_record_t, fb_total, 2240);
AT(vekml_device_record_t, model, 2248);
AT(vekml_device_record_t, model_device_id, 2312);
AT(vekml_device_record_t, chip_process, 2316);
AT(vekml_device_record_t, fw_word_0a0, 2320);
AT(vekml_device_record_t, fw_word_09c, 2324);
AT(vekml_device_record_t, vpu_codec_info, 2328);
AT(vekml_device_record_t, vpu_utlz_status, 119612);
AT(vekml_device_record_t, last_enc_vcmd_num, 119616);
AT(vekml_device_record_t, last_dec_vcmd_num, 119624);
AT(vekml_device_record_t, last_sample_sec, 119632);
AT(vekml_device_record_t, last_sample_usec, 119640);
AT(vekml_device_record_t, mapped_bar0, 119648);
AT(vekml_device_record_t, bar0_mapped, 119656);

SIZE_OF(vekml_globals_t, 1914632);
AT(vekml_globals_t, devices, 0);
AT(vekml_globals_t, count, 1914624);

SIZE_OF(vekml_pci_info_t, 104);
AT(vekml_pci_info_t, domain, 0);
AT(vekml_pci_info_t, bus, 8);
AT(vekml_pci_info_t, device, 16);
AT(vekml_pci_info_t, bdfid, 24);
AT(vekml_pci_info_t, function, 32);
AT(vekml_pci_info_t, busId, 40);

SIZE_OF(vekml_id_model_t, 48);
AT(vekml_id_model_t, device_id, 0);
AT(vekml_id_model_t, model, 8);
AT(vekml_id_model_t, chip_process, 16);
AT(vekml_id_model_t, lower_bound, 20);
AT(vekml_id_model_t, upper_bound, 24);
AT(vekml_id_model_t, gddr_width, 28);
AT(vekml_id_model_t, decoder, 32);
AT(vekml_id_model_t, encoder, 40);

SIZE_OF(vekml_board_t, 40);
AT(vekml_board_t, name, 0);
AT(vekml_board_t, part_number, 8);
AT(vekml_board_t, config, 16);
AT(vekml_board_t, vendor_id, 24);
AT(vekml_board_t, device_id, 28);
AT(vekml_board_t, subsystem_vendor_id, 32);
AT(vekml_board_t, subsystem_device_id, 36);

SIZE_OF(vekml_gpu_static_info_t, 120);
AT(vekml_gpu_static_info_t, asic_id, 0);
AT(vekml_gpu_static_info_t, core_num, 4);
AT(vekml_gpu_static_info_t, gddr_count, 8);
AT(vekml_gpu_static_info_t, gddr_size, 12);
AT(vekml_gpu_static_info_t, gddr_speed, 16);
AT(vekml_gpu_static_info_t, gpu_primary_id, 24);
AT(vekml_gpu_static_info_t, vendor, 28);
AT(vekml_gpu_static_info_t, chip_id, 32);
AT(vekml_gpu_static_info_t, device_id, 36);
AT(vekml_gpu_static_info_t, card_type, 40);
AT(vekml_gpu_static_info_t, static_text, 44);
AT(vekml_gpu_static_info_t, fw_version, 76);
AT(vekml_gpu_static_info_t, vbios_version, 80);
AT(vekml_gpu_static_info_t, fan_ctrl_mode, 84);
AT(vekml_gpu_static_info_t, support_fan_info, 88);
AT(vekml_gpu_static_info_t, support_temp_info, 92);
AT(vekml_gpu_static_info_t, support_power_info, 96);
AT(vekml_gpu_static_info_t, reserved, 100);
AT(vekml_gpu_static_info_t, gpu_default_freq, 104);
AT(vekml_gpu_static_info_t, gddr_vendor, 112);
AT(vekml_gpu_static_info_t, gddr_package_model, 116);

SIZE_OF(vekml_driver_version_t, 60);
AT(vekml_driver_version_t, ddk, 0);
AT(vekml_driver_version_t, kmd, 20);
AT(vekml_driver_version_t, umd, 40);

SIZE_OF(vekml_pcie_event_t, 12);
AT(vekml_pcie_event_t, event, 0);
AT(vekml_pcie_event_t, flags, 4);

SIZE_OF(vekml_gddr_crc_t, 68);
AT(vekml_gddr_crc_t, crc_support, 0);
AT(vekml_gddr_crc_t, crc_write_cnt, 4);
AT(vekml_gddr_crc_t, crc_read_cnt, 20);
AT(vekml_gddr_crc_t, crc_write_retry_cnt, 36);
AT(vekml_gddr_crc_t, crc_read_retry_cnt, 52);

SIZE_OF(vekml_util_info_t, 20);
AT(vekml_util_info_t, gpu, 0);
AT(vekml_util_info_t, tdm, 4);
AT(vekml_util_info_t, geom, 8);
AT(vekml_util_info_t, thrd, 12);
AT(vekml_util_info_t, cdm, 16);

SIZE_OF(vekml_util_counters_t, 328);
AT(vekml_util_counters_t, bValid, 0);
AT(vekml_util_counters_t, GpuStatActive, 8);
AT(vekml_util_counters_t, GpuStatBlocked, 16);
AT(vekml_util_counters_t, GpuStatIdle, 24);
AT(vekml_util_counters_t, GpuStatCumulative, 32);
AT(vekml_util_counters_t, DMOSStatActive, 40);
AT(vekml_util_counters_t, DMOSStatBlocked, 112);
AT(vekml_util_counters_t, DMOSStatIdle, 184);
AT(vekml_util_counters_t, DMOSStatCumulative, 256);

SIZE_OF(vekml_mem_info_t, 48);
AT(vekml_mem_info_t, fb_free, 0);
AT(vekml_mem_info_t, fb_total, 8);
AT(vekml_mem_info_t, fb_used, 16);
AT(vekml_mem_info_t, sys_free, 24);
AT(vekml_mem_info_t, sys_total, 32);
AT(vekml_mem_info_t, sys_used, 40);

SIZE_OF(vekml_process_t, 24);
AT(vekml_process_t, pid, 0);
AT(vekml_process_t, mem_lma, 8);
AT(vekml_process_t, mem_total, 16);

SIZE_OF(vekml_process_info_t, 280);
AT(vekml_process_info_t, process_num, 0);
AT(vekml_process_info_t, process, 8);
AT(vekml_process_info_t, process_name, 128);

SIZE_OF(vekml_device_query_t, 1416);
AT(vekml_device_query_t, display_status, 0);
AT(vekml_device_query_t, clock, 4);
AT(vekml_device_query_t, name, 24);
AT(vekml_device_query_t, vendor, 88);
AT(vekml_device_query_t, uuid, 108);
AT(vekml_device_query_t, vbios_version, 118);
AT(vekml_device_query_t, serial, 138);
AT(vekml_device_query_t, minor_number, 148);
AT(vekml_device_query_t, fan_speed, 152);
AT(vekml_device_query_t, fan_ctrl_mode, 156);
AT(vekml_device_query_t, primary_id, 160);
AT(vekml_device_query_t, primary_core_id, 170);
AT(vekml_device_query_t, asic_type, 180);
AT(vekml_device_query_t, core, 200);
AT(vekml_device_query_t, pcie_mmbar_type, 204);
AT(vekml_device_query_t, card_type, 224);
AT(vekml_device_query_t, fw_ver, 244);
AT(vekml_device_query_t, gddr_count, 256);
AT(vekml_device_query_t, gddr_speed, 264);
AT(vekml_device_query_t, gddr_size, 272);
AT(vekml_device_query_t, gddr_width, 276);
AT(vekml_device_query_t, gddr_type, 280);
AT(vekml_device_query_t, gddr_package_model, 292);
AT(vekml_device_query_t, pcie_err_corr, 296);
AT(vekml_device_query_t, pcie_err_fatal, 306);
AT(vekml_device_query_t, pcie_err_nonfatal, 316);
AT(vekml_device_query_t, temperature, 328);
AT(vekml_device_query_t, curr_pcie_link_width, 352);
AT(vekml_device_query_t, max_pcie_link_width, 356);
AT(vekml_device_query_t, pcie_speed, 360);
AT(vekml_device_query_t, pcie_link_max_speed, 364);
AT(vekml_device_query_t, curr_pcie_link_generation, 368);
AT(vekml_device_query_t, max_pcie_link_generation, 372);
AT(vekml_device_query_t, pci_ids, 376);
AT(vekml_device_query_t, pcie_event, 392);
AT(vekml_device_query_t, pci_info, 424);
AT(vekml_device_query_t, pci_bus_id, 456);
AT(vekml_device_query_t, memory, 520);
AT(vekml_device_query_t, util_state, 568);
AT(vekml_device_query_t, pronum, 896);
AT(vekml_device_query_t, process, 904);
AT(vekml_device_query_t, process_name, 1024);
AT(vekml_device_query_t, device_id, 1176);
AT(vekml_device_query_t, power_state, 1184);
AT(vekml_device_query_t, support_fan_info, 1188);
AT(vekml_device_query_t, power, 1192);
AT(vekml_device_query_t, chip_model, 1204);
AT(vekml_device_query_t, support_power_info, 1268);
AT(vekml_device_query_t, support_temp_info, 1272);
AT(vekml_device_query_t, static_text, 1276);
AT(vekml_device_query_t, gpu_default_freq, 1312);
AT(vekml_device_query_t, util, 1320);
AT(vekml_device_query_t, crc_support, 1340);
AT(vekml_device_query_t, crc_write_cnt, 1344);
AT(vekml_device_query_t, crc_read_cnt, 1360);
AT(vekml_device_query_t, crc_write_retry_cnt, 1376);
AT(vekml_device_query_t, crc_read_retry_cnt, 1392);
AT(vekml_device_query_t, static_valid, 1408);

SIZE_OF(thm_set, 20);
AT(thm_set, temp_slowdown, 0);
AT(thm_set, temp_shutdown, 5);
AT(thm_set, enable_thm_slowdown, 10);
AT(thm_set, enable_thm_shutdown, 15);

SIZE_OF(thermal, 16);
AT(thermal, vek_temp_slowdown, 0);
AT(thermal, vek_temp_shutdown, 4);
AT(thermal, vek_enable_thm_slowdown, 8);
AT(thermal, vek_enable_thm_shutdown, 12);

SIZE_OF(dvfs_t, 4);
AT(dvfs_t, vek_enable_dvfs, 0);

SIZE_OF(temper_info, 28);
AT(temper_info, ctrl_mode, 0);
AT(temper_info, temp_input, 4);
AT(temper_info, temp_highest, 8);
AT(temper_info, temp_min, 12);
AT(temper_info, temp_max, 16);
AT(temper_info, temp_crit, 20);
AT(temper_info, gddr_temp, 24);

SIZE_OF(temper_set, 20);
AT(temper_set, ctrl_mode, 0);
AT(temper_set, temp_min, 5);
AT(temper_set, temp_max, 10);
AT(temper_set, temp_crit, 15);

SIZE_OF(power_info, 16);
AT(power_info, voltage, 0);
AT(power_info, current, 4);
AT(power_info, power_average, 8);
AT(power_info, total_power, 12);

SIZE_OF(clock_info, 20);
AT(clock_info, gddr_phys_clk, 0);
AT(clock_info, gfx_clk, 4);
AT(clock_info, acpu_clk, 8);
AT(clock_info, cmcu_clk, 12);
AT(clock_info, ndf_clk, 16);
