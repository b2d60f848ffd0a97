// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

#include <algorithm>
#include <cstring>

namespace {

class query_test : public sim_host {
protected:
    query_test()
    {
        veksim::gpu_config config;
        config.card = 1;
        config.subsystem_device_id = 0x22;
        veksim::gpu_state state;
        state.masters.fill({0, 10});
        state.aer_totals = {1, 2, 34};
        state.pcie_event = 5;
        state.memory_errors = {{{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}, {13, 14, 15, 16}}};
        state.processes = {{5000001, "first", 10, 30}, {5000002, "second", 20, 40}};
        host.add_gpu(config, state);
        gpu = start();
        std::memset(&query, '#', sizeof query);
        std::memset(&expected, '#', sizeof expected);
    }
    void expect_live()
    {
        vekml_device_query_t &q = expected;
        q.display_status = 0; // the connectors are looked for under the names of card 0
        q.clock[0] = 1750, q.clock[1] = 1000, q.clock[3] = 600;
        q.minor_number = 1;
        q.fan_speed = 2400;
        strcpy(q.name, "TALON-M1");
        strcpy(q.primary_core_id, "0");
        strcpy(q.pcie_mmbar_type, "64-bit prefetch");
        strcpy(q.pcie_err_corr, "1"), strcpy(q.pcie_err_fatal, "2"), strcpy(q.pcie_err_nonfatal, "3");
        strcpy(q.pci_bus_id, "0000:03:00.0");
        strcpy(q.process_name[0], "second"), strcpy(q.process_name[1], "first");
        std::ranges::copy(std::array{1, 48, 61}, q.temperature);
        q.curr_pcie_link_width = q.max_pcie_link_width = 8;
        q.pcie_speed = q.pcie_link_max_speed = 16;
        q.curr_pcie_link_generation = q.max_pcie_link_generation = 4;
        std::ranges::copy(std::array{0x4a1f, 0x7665, 0x22, 0x7665}, q.pci_ids);
        std::ranges::copy(std::array{5, 1, 0, 1, 0, 0, 0}, q.pcie_event);
        std::ranges::copy(std::array{0, 3, 0, 0}, q.pci_info);
        q.memory = {7301444404, 8589934592, 1288490188, 4160749568, 4294967296, 134217728};
        q.pronum = 2;
        q.process[0] = {5000002, 20, 40}, q.process[1] = {5000001, 10, 30};
        q.power_state = 850;
        std::ranges::copy(std::array{24000, 21, 32000}, q.power);
        q.util = {37, 0, 0, 0, 0};
        q.crc_support = 1;
        for (unsigned i = 0; i < 4; ++i) {
            q.crc_write_cnt[i] = 4 * i + 1, q.crc_read_cnt[i] = 4 * i + 2;
            q.crc_write_retry_cnt[i] = 4 * i + 3, q.crc_read_retry_cnt[i] = 4 * i + 4;
        }
    }
    void expect_normal()
    {
        expect_live();
        expected.gddr_width = 128;
        strcpy(expected.gddr_type, "GDDR6");
    }
    void expect_live_and_counters()
    {
        expect_live();
        expected.util_state = {1, 370000, 63000, 567000, 1000000, {}, {}, {}, {}};
        std::ranges::fill(expected.util_state.DMOSStatBlocked, 1);
        std::ranges::fill(expected.util_state.DMOSStatIdle, 9);
        std::ranges::fill(expected.util_state.DMOSStatCumulative, 10);
    }
    // Asks, and compares what comes of it with what is expected.
    void ask(vekml_return_t (*function)(vekml_device_t, vekml_device_query_t *), const outcome &seen = done)
    {
        outcome actual;
        actual.second = standard_output([&] { actual.first = function(gpu, &query); });
        EXPECT_EQ(actual, seen);
        const auto *bytes = reinterpret_cast<const char *>(&query);
        const auto *wanted = reinterpret_cast<const char *>(&expected);
        EXPECT_EQ(std::mismatch(bytes, bytes + sizeof query, wanted).first - bytes, sizeof query)
            << "offset of the first field that differs";
    }
    std::string node(const std::string &name) const { return host.card(0, "device/" + name); }
    const std::string fallback = "vekml_device_query_dynamic_info_helper_v1";
    vekml_device_t gpu = nullptr;
    vekml_device_query_t query, expected;
};

TEST_F(query_test, a_refresh_fills_the_static_fields_once_and_the_live_ones_each_time)
{
    EXPECT_EQ(vekml_device_query_static_info(gpu, &expected), VEKML_SUCCESS);
    expect_normal();
    expected.static_valid = 1;
    ask(vekml_device_query_two_parts);
    host.write(node("gpu_static_info"), "2 2 2 2 2 2");
    host.set_processes(0, {{5000002, "second", 7, 8}});
    expected.pronum = 1;
    expected.process[0] = {5000002, 7, 8};
    ask(vekml_device_query_two_parts);
    EXPECT_TRUE(messages_of(fallback).empty());
}

TEST_F(query_test, processes_are_not_essential)
{
    const vekml_device_query_t untouched = query;
    host.remove("/proc/5000001/status");
    expect_normal();
    expected.pronum = 0;
    std::ranges::copy(untouched.process, expected.process);
    std::memcpy(expected.process_name, untouched.process_name, sizeof expected.process_name);
    ask(vekml_device_query_dynamic_info,
        {VEKML_SUCCESS, "call vekml_device_get_process_info to get process info failed.\n"});
}

TEST_F(query_test, without_an_essential_reading_the_fallback_fills_the_record_again)
{
    expect_live_and_counters();
    expected.clock[2] = 800, expected.clock[4] = 500;
    gpu->device_id = expected.pci_ids[0] = 0x1ffff; // not in the identity tables
    ask(vekml_device_query_dynamic_info);
    EXPECT_TRUE(logged(fallback, "info_data_mem[j][2]:20"));
    EXPECT_TRUE(logged(fallback, "process number = 2"));
    gpu->device_id = expected.pci_ids[0] = 0x4a1f;
    host.remove(node("gpu_mem_util_info"));
    host.remove(host.debug_dump());
    expected.memory = {};
    ask(vekml_device_query_dynamic_info);
}

TEST_F(query_test, the_fallback_and_the_aggregate_query_stop_where_they_cannot_go_on)
{
    const std::string no_util = "call vekml_device_get_util_info to get util info failed.\n";
    const std::tuple<std::function<void()>, vekml_return_t, std::string, std::string> cases[] = {
        {[&] { host.remove(node("gddr_crc")); }, VEKML_ERROR_NOT_FOUND, "",
         "call vekml_device_get_gddr_crc to get gddr crc info failed."},
        {[&] { host.fail_request(0, veksim::process_request, EIO); }, VEKML_ERROR_NODE_IO, "", "ret -1"},
        {[&] { host.fail_request(0, veksim::utilisation_request, EIO); }, VEKML_ERROR_NODE_IO, "",
         "Failed in reading data through ioctl, ret = -1"},
        {[&] { host.set_euid(1000), host.remove(node("gpu_util_info")); }, VEKML_ERROR_NO_PERMISSION, no_util,
         "Error: get util info failed!"},
    };
    for (const auto &[break_host, result, printed, message] : cases) {
        break_host();
        EXPECT_EQ(standard_output([&, r = result] { EXPECT_EQ(vekml_device_query_dynamic_info(gpu, &query), r); }),
                  printed);
        EXPECT_EQ(messages_of(fallback).back(), message);
        EXPECT_EQ(vekml_device_query(gpu, &query), result);
        EXPECT_EQ(messages_of("vekml_device_query").back(), message);
    }
    EXPECT_EQ(query.util.gpu, 0u);
}

TEST_F(query_test, without_the_static_part_every_getter_is_asked_whatever_it_answers)
{
    host.remove(node("gpu_static_info"));
    host.fail_request(0, veksim::first_static_request, ENOTTY);
    host.fail_request(0, veksim::second_static_request, ENOTTY);
    expect_live_and_counters();
    std::memset(expected.asic_type, 0, sizeof expected.asic_type);
    strcpy(expected.asic_type, "CHIP_TALON_A0");
    expected.core = 0;
    strcpy(expected.uuid, "5e0a1c00");
    strcpy(expected.serial, "5e0a1c00");
    strcpy(expected.vbios_version, "v1.0.4");
    strcpy(expected.fw_ver, "v1.2.3");
    strcpy(expected.primary_id, "0");
    expected.gddr_size = 8, expected.gddr_count = 4, expected.gddr_speed = 14000000000;
    expected.support_fan_info = 1, expected.support_power_info = 1;
    ask(vekml_device_query_two_parts);
    EXPECT_EQ(messages_of("vekml_device_query_two_parts").back(), "call vekml_device_query to get query info.");

    for (const char *missing : {"fan1_input", "vek_support_power_info", "vek_device_model"})
        host.remove(host.hwmon(0, missing));
    expected.fan_speed = 0;
    std::memset(expected.asic_type, 0, sizeof expected.asic_type);
    expected.support_power_info = UINT32_MAX;
    ask(vekml_device_query);
}

} // namespace
