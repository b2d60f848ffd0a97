// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

namespace {

class utilisation_test : public sensor_host {
protected:
    numbers ask(int expected = VEKML_SUCCESS)
    {
        vekml_util_info_t util{7, 7, 7, 7, 7};
        EXPECT_EQ(call(vekml_device_get_util_info, &util), outcome(expected, ""));
        return fields(util);
    }
    const numbers zeros = numbers(5), sample = {37, 12, 8, 31, 5};
    const std::string counter_node = host.card(0, "device/gpu_util_info");
    const std::string status = "/sys/kernel/debug/vekgpu/status";
    const std::string node_step = "vekml_device_get_gpu_util_state_info_helper_v2";
    const std::string request_step = "vekml_device_get_gpu_util_state_info_helper_v1";
};

TEST_F(utilisation_test, node_and_request_order_their_counters_differently)
{
    veksim::gpu_state state;
    for (unsigned i = 0; i < 9; ++i)
        state.masters[i] = {i * 1000 + 10, 100 * 1000};
    host.set_state(0, state);
    const std::string last =
        "8 DMOSStatActive 8010, DMOSStatBlocked 9199, DMOSStatIdle 82791, DMOSStatCumulative 100000";
    EXPECT_EQ(ask(), (numbers{37, 1, 2, 3, 4}));
    EXPECT_TRUE(logged(node_step, last));
    EXPECT_TRUE(messages_of(request_step).empty());
    host.remove(counter_node);
    EXPECT_EQ(ask(), (numbers{37, 1, 2, 3, 4}));
    EXPECT_TRUE(logged(request_step, last));
}

TEST_F(utilisation_test, counters_become_percentages)
{
    const std::pair<const char *, numbers> cases[] = {
        {"1 250 0 0 1000", {25, 0, 0, 0, 0}},
        {"1 250 0 0 10x00 7 7 7 7", {2500, 0, 0, 0, 0}},
        {"1 18446744073709551615 0 0 1", {-100, 0, 0, 0, 0}},
        {"1 99999999999999999999 -1 +0 3 0 0 0 1 1\n1\n1\t2", {1431655732, 50, 0, 0, 0}},
    };
    for (const auto &[text, expected] : cases) {
        host.write(counter_node, text);
        EXPECT_EQ(ask(), expected) << text;
    }
}

TEST_F(utilisation_test, counters_that_are_not_valid_lead_to_debugfs_and_not_to_the_request)
{
    host.write(status, "gpu   utilisation:37% \nTDM  Utilisation:   12%\ngeom utilisation:8%\n\n"
                       "3d Utilisation: 31%; CDM Utilisation: 5%\nrest");
    for (const char *text : {"0 1 1 1 1", "2 1 1 1 1", "x", ""}) {
        host.write(counter_node, text);
        EXPECT_EQ(ask(), sample) << text;
    }
    host.make_directory(counter_node);
    EXPECT_EQ(ask(), sample);
    EXPECT_TRUE(messages_of(request_step).empty());
    EXPECT_EQ(messages_of("vekml_device_get_util_info").back(), "exit vekml_device_get_util_info");
}

TEST_F(utilisation_test, debugfs_is_the_last_resort)
{
    host.remove(counter_node);
    host.remove("/dev/dri/card0");
    const std::string good = "GPU Utilisation: 37%\nTDM Utilisation: 12%\nGEOM Utilisation: 8%\n"
                             "3D Utilisation: 31%\nCDM Utilisation: 5%\n";
    const std::size_t room = 500 - good.size();
    const std::tuple<std::string, int, numbers> cases[] = {
        {"GPU Utilisation: %TDM Utilisation: 12%GEOM Utilisation: 8%3D Utilisation: 31%CDM Utilisation: 5%.",
         VEKML_SUCCESS,
         {0, 12, 8, 31, 5}},
        {good.substr(0, good.find("3D")) + "CDM Utilisation: 5%\n", VEKML_ERROR_NOT_FOUND, zeros},
        {std::string(room, '\n') + good, VEKML_SUCCESS, sample},
        {std::string(room + 2, '\n') + good, VEKML_ERROR_NOT_FOUND, zeros}, // 500 bytes count
        {good.substr(0, good.size() - 1), VEKML_ERROR_NOT_FOUND, zeros},    // less the last
        {"", VEKML_ERROR_NOT_FOUND, zeros},
    };
    for (const auto &[text, result, expected] : cases) {
        host.write(status, text);
        EXPECT_EQ(ask(result), expected) << text;
    }
    host.make_directory(status);
    EXPECT_EQ(ask(VEKML_ERROR_NODE_IO), zeros);
    host.remove(status);
    EXPECT_EQ(ask(VEKML_ERROR_NODE_IO), zeros);
    EXPECT_EQ(messages_of("vekml_device_get_util_info_helper_v1").back(),
              "get gpu ultilization, open " + status + "(fd:-1) error! errmsg:No such file or directory");
    host.set_euid(1000);
    EXPECT_EQ(ask(VEKML_ERROR_NO_PERMISSION), zeros);
    EXPECT_EQ(messages_of(request_step).back(), "Failed in opening GPU's char file");
}

} // namespace
