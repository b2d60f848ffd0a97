// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

#include <cstring>

using thermal_test = sensor_host;

TEST_F(thermal_test, one_limit)
{
    const char *slowdown_done = "set enable thm slowdown success.\n";
    const std::tuple<const char *, const char *, const char *> limits[] = {
        {"vek_slowdown_temp", "", "set slowdown temp failed.\n"},
        {"vek_shutdown_temp", "", "set shutdown temp failed.\n"},
        {"vek_enable_thm_slowdown", slowdown_done, "set enable thm slowdown failed.\n"},
        {"vek_enable_thm_shutdown", "", "set enable thm shutdown failed.\n"}};
    thm_set set{"070", "071", "072", "073"};
    for (thm_type type = 0; type < 4; ++type) {
        const auto &[name, set_done, set_failed] = limits[type];
        EXPECT_EQ(call(vekml_device_set_thermal_info, &set, type), outcome(VEKML_SUCCESS, set_done));
        EXPECT_EQ(text_of(name), "07" + std::to_string(type));
        host.remove(node(name));
        EXPECT_EQ(call(vekml_device_set_thermal_info, &set, type), failed(set_failed));
    }
    EXPECT_EQ(host.pauses(), std::vector<std::string>(8, "sleep 1")) << "failed or not";
    std::memset(&set, '9', sizeof set);
    strcpy(set.temp_slowdown, "90");
    call(vekml_device_set_thermal_info, &set, temp_slowdown_type);
    EXPECT_TRUE(logged("vekml_device_set_thermal_info", "thm_set->enable_thm_shutdown:99999")) << "only its own field";
    EXPECT_EQ(call(vekml_device_set_thermal_info, &set, 4), failed("invaild thermal type\n"));
}

TEST_F(thermal_test, dvfs)
{
    EXPECT_EQ(call(vekml_device_set_dvfs_enable, "any text"), done);
    EXPECT_EQ(host.read(host.card(0, "vek_enable_dvfs")), "any text");
    host.remove(host.card(0, "vek_enable_dvfs"));
    EXPECT_EQ(call(vekml_device_set_dvfs_enable, "1"), failed("set dvfs enable failed.\n"));
    EXPECT_EQ(host.pauses(), std::vector<std::string>(2, "sleep 1"));
}
