// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

using fan_test = sensor_host;

TEST_F(fan_test, an_unreadable_bound_is_0)
{
    std::uint32_t lowest = 7, highest = 7;
    host.make_directory(node("fan1_max"));
    EXPECT_EQ(call(vekml_device_get_min_max_fan_speed, &lowest, &highest), done);
    EXPECT_EQ(std::pair(lowest, highest), std::pair(900u, 0u));
}

TEST_F(fan_test, support)
{
    std::uint32_t support = 7;
    for (const auto &[text, expected] : {std::pair{"7\n", 1u}, {"-3\n", 0u}}) {
        host.write(node("vek_support_fan_info"), text);
        EXPECT_EQ(call(vekml_device_get_support_fan_info, &support), done);
        EXPECT_EQ(std::exchange(support, 7), expected) << text;
    }
    EXPECT_EQ(vekml_device_get_support_fan_info(nullptr, &support), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(support, 0u);
    EXPECT_EQ(vekml_device_get_support_fan_info(gpu, nullptr), VEKML_ERROR_INVALID_ARGUMENT);
}

TEST_F(fan_test, the_target_speed_asks_for_fan_then_value_then_mode)
{
    const std::string start = "set fan speed failed";
    const outcome no_control = failed(start + ", because the ctrl mode of fan is firmware control mode.\n");
    const outcome out_of_range = failed(start + ".\n");
    for (const auto &[mode, text, expected] : {std::tuple{"1\n", "0100", done},
                                               {"00\n", "0", done},
                                               {"0\n", "60", no_control},
                                               {"0\n", "101", out_of_range},
                                               {"1\n", "-5", out_of_range}}) {
        host.write(node("fan1_ctrl_mode"), mode);
        host.write(node("fan1_target"), "before");
        EXPECT_EQ(call(vekml_device_set_fan1_speed, text), expected) << mode << text;
        EXPECT_EQ(text_of("fan1_target"), expected == done ? text : "before");
    }
    host.fail_writes(node("fan1_target"));
    EXPECT_EQ(call(vekml_device_set_fan1_speed, "60"), failed(start + ".\n"));
    host.remove(node("fan1_ctrl_mode"));
    EXPECT_EQ(call(vekml_device_set_fan1_speed, "60"), outcome(VEKML_ERROR_UNKNOWN, "get ctrl mode info failed.\n"));
    host.write(node("pwm1"), "3000\n");
    EXPECT_EQ(call(vekml_device_set_fan1_speed, "101"), failed(start + ", you can try <veksmi fan set pwm xxxx>\n"));
}
