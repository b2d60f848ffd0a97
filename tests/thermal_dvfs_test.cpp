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
    thermal out{7, 7, 7, 7};
    numbers expected = fields(out);
    for (thm_type type = 0; type < 4; ++type) {
        const auto &[name, set_done, set_failed] = limits[type];
        EXPECT_EQ(call(vekml_device_set_thermal_info, &set, type), outcome(VEKML_SUCCESS, set_done));
        EXPECT_EQ(text_of(name), "07" + std::to_string(type));
        host.write(node(name), "-5x\n");
        EXPECT_EQ(call(vekml_device_get_thermal, &out, type), done);
        expected[type] = -5;
        EXPECT_EQ(fields(out), expected);
        host.remove(node(name));
        EXPECT_EQ(call(vekml_device_set_thermal_info, &set, type), failed(set_failed));
        EXPECT_EQ(call(vekml_device_get_thermal, &out, type),
                  outcome(VEKML_ERROR_NOT_FOUND, "the file node:" + node(name) + " doesn't exist.\n"));
        expected[type] = 0;
        EXPECT_EQ(fields(out), expected);
    }
    EXPECT_EQ(host.pauses(), std::vector<std::string>(8, "sleep 1")) << "failed or not";
    std::memset(&set, '9', sizeof set);
    strcpy(set.temp_slowdown, "90");
    call(vekml_device_set_thermal_info, &set, temp_slowdown_type);
    EXPECT_TRUE(logged("vekml_device_set_thermal_info", "thm_set->enable_thm_shutdown:99999")) << "only its own field";
    EXPECT_EQ(call(vekml_device_set_thermal_info, &set, 4), failed("invaild thermal type\n"));
    EXPECT_EQ(call(vekml_device_get_thermal, &out, 4), failed("invaild thermal type\n"));
    host.set_euid(1000);
    EXPECT_EQ(call(vekml_device_set_thermal_info, &set, 4), refused("set thermal info failed\n"));
}

TEST_F(thermal_test, all_limits_leave_the_slowdown_protection_alone)
{
    thermal out{7, 7, 7, 7};
    host.make_directory(node("vek_shutdown_temp"));
    EXPECT_EQ(call(vekml_device_get_thermal_info, &out).first, VEKML_ERROR_NOT_FOUND);
    EXPECT_EQ(fields(out), numbers({95, 0, 7, 1}));
}

TEST_F(thermal_test, dvfs)
{
    dvfs_t out{7};
    EXPECT_EQ(call(vekml_device_get_dvfs_info, &out), done);
    EXPECT_EQ(out.vek_enable_dvfs, 1);
    EXPECT_EQ(call(vekml_device_set_dvfs_enable, "any text"), done);
    EXPECT_EQ(host.read(host.card(0, "vek_enable_dvfs")), "any text");
    host.remove(host.card(0, "vek_enable_dvfs"));
    EXPECT_EQ(call(vekml_device_set_dvfs_enable, "1"), failed("set dvfs enable failed.\n"));
    EXPECT_EQ(host.pauses(), std::vector<std::string>(2, "sleep 1"));
    EXPECT_EQ(call(vekml_device_get_dvfs_info, &out), outcome(VEKML_ERROR_NOT_FOUND, ""));
    EXPECT_EQ(out.vek_enable_dvfs, 0);
    host.set_euid(1000);
    EXPECT_EQ(call(vekml_device_set_dvfs_enable, "1"), refused("set dvfs enable failed\n"));
}
