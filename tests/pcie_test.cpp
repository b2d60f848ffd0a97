// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

namespace {

using pcie_test = sensor_host;

TEST_F(pcie_test, error_totals)
{
    const std::tuple<vekml_return_t (*)(const char *, char *), const char *, const char *, std::string> getters[] = {
        {vekml_device_get_pcie_err_corr, "aer_dev_correctable", "TOTAL_ERR_COR", "1"},
        {vekml_device_get_pcie_err_fatal, "aer_dev_fatal", "TOTAL_ERR_FATAL", "3"},
        {vekml_device_get_pcie_err_nonfatal, "aer_dev_nonfatal", "TOTAL_ERR_NONFATAL", "4"}};
    veksim::gpu_state state;
    state.aer_totals = {12, 30, 4};
    host.set_state(0, state);
    for (const auto &[get, file, key, digit] : getters) {
        const std::string path = host.card(0, std::string("device/") + file);
        char count[4] = "###";
        EXPECT_EQ(standard_output([&, get = get] { EXPECT_EQ(get(gpu->card_path, count), VEKML_SUCCESS); }), "");
        EXPECT_EQ(count, digit + "##");
        host.write(path, std::string(key) + " \n");
        EXPECT_EQ(get(gpu->card_path, count), VEKML_ERROR_NODE_IO);
    }
}

TEST_F(pcie_test, event)
{
    vekml_pcie_event_t event;
    host.write(node("vek_pcie_event"), "101\n");
    EXPECT_EQ(vekml_device_get_pcie_event(gpu, &event), VEKML_SUCCESS);
    EXPECT_EQ(event.event, 101u);
    EXPECT_EQ(std::vector<int>(event.flags, event.flags + 6), (std::vector<int>{1, 0, 1, 0, 0, 1}));
}

TEST_F(pcie_test, memory_errors)
{
    vekml_gddr_crc_t crc{9, {9, 9, 9, 9}, {9, 9, 9, 9}, {9, 9, 9, 9}, {9, 9, 9, 9}};
    host.write(host.card(0, "device/gddr_crc"), "1 2 3 4\n5 6 9223372036854775808 x\n");
    EXPECT_EQ(vekml_device_get_gddr_crc(gpu, &crc), VEKML_SUCCESS);
    EXPECT_EQ(fields(crc), (numbers{1, 1, 5, 9, 9, 2, 6, 9, 9, 3, -1, 9, 9, 4, 9, 9, 9}));
}

TEST_F(pcie_test, a_monitor_on_either_connector)
{
    std::uint32_t connected = 7;
    const auto ask = [&](const char *hdmi, const char *dp) {
        host.write(host.card(0, "card0-HDMI-A-1/status"), hdmi);
        host.write(host.card(0, "card0-DP-1/status"), dp);
        EXPECT_EQ(vekml_device_get_display_status(gpu, &connected), VEKML_SUCCESS);
        return connected;
    };
    EXPECT_EQ(ask("connected\n", "disconnected\n"), 1u);
    EXPECT_EQ(ask("disconnected\n", "connected\n"), 1u);
    EXPECT_EQ(ask("disconnected\n", "unknown\n"), 0u);
    host.add_gpu();
    EXPECT_EQ(vekml_device_get_display_status(start(1), &connected), VEKML_SUCCESS);
    EXPECT_TRUE(logged("vekml_device_get_display_status", "/sys/class/drm/card1/card0-DP-1/status"));
}

} // namespace
