// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

using power_test = sensor_host;
using setter_test = sensor_host;

TEST_F(power_test, only_the_makers_own_boards_report_their_support)
{
    std::uint32_t support = 7;
    host.write(node("vek_support_power_info"), "3\n");
    for (const auto &[vendor, expected] : {std::pair{"VEK\n", 3u}, {"VEKTOR\n", 0u}}) {
        host.write(node("vek_vendor"), vendor);
        EXPECT_EQ(call(vekml_device_is_support_power, &support), done);
        EXPECT_EQ(support, expected) << vendor;
    }
    EXPECT_EQ(vekml_device_is_support_power(nullptr, &support), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(vekml_device_is_support_power(gpu, nullptr), VEKML_ERROR_INVALID_ARGUMENT);
}

TEST_F(power_test, an_unreadable_reading_repeats_the_one_before_it)
{
    power_info out{7, 7, 7, 7};
    EXPECT_EQ(call(vekml_device_get_power_info, &out), done);
    EXPECT_EQ(fields(out), numbers({850, 24000, 21, 32000}));
    host.remove(node("in0_input"));
    host.write(node("power1_average"), "2147483647\n");
    host.make_directory(node("vek_total_power"));
    EXPECT_EQ(call(vekml_device_get_power_info, &out), done);
    EXPECT_EQ(fields(out), numbers({0, 24000, INT32_MAX, -1000})) << "the product wraps at 32 bits";
}

TEST_F(setter_test, a_value_in_range_goes_out_unchanged)
{
    const struct {
        vekml_return_t (*set)(vekml_device_t, const char *);
        const char *node, *what;
        bool talks;
        std::vector<const char *> accepted, rejected;
    } setters[] = {
        {vekml_device_set_fan_ctrl_mode, "fan1_ctrl_mode", "fan1_ctrl_mode", false, {"0", "01"}, {"2", "-1"}},
        {vekml_device_set_fan_pwm1, "pwm1", "fan speed", false, {"1950", "05998"}, {"1949", "5999", "-1", "x"}},
        {vekml_device_set_power_warn, "power1_cap", "power cap1", false, {"1", "019999"}, {"0", "20000", "-1", "x"}},
        {vekml_device_set_power_volt, "in0_input", "power volt", true, {"0900", "x"}, {}},
        {vekml_device_set_gfx_clock,
         "vek_gfx_freq_mhz",
         "gfx clock",
         true,
         {"50000000", "01500000000"},
         {"1550000000", "75000000", "0", "-50000000", "x"}},
    };
    for (const auto &[set, name, what, talks, accepted, rejected] : setters) {
        const std::string failure = std::string("set ") + what + " failed\n";
        const outcome success(0, talks ? std::string("set ") + what + " successful\n" : "");
        host.write(node(name), "before");
        for (const char *text : rejected)
            EXPECT_EQ(call(set, text), talks ? failed(failure) : done) << what << text;
        EXPECT_EQ(text_of(name), "before");
        for (const char *text : accepted) {
            EXPECT_EQ(call(set, text), success) << what << text;
            EXPECT_EQ(text_of(name), text);
        }
        host.fail_writes(node(name));
        EXPECT_EQ(call(set, accepted[0]), failed(failure));
    }
    EXPECT_EQ(host.pauses(), std::vector<std::string>(3, "usleep 500000")) << "failed or not";
}

TEST_F(setter_test, a_node_that_the_driver_does_not_offer)
{
    host.set_mode(node("in0_input"), 0444);
    EXPECT_EQ(call(vekml_device_set_power_volt, "900"),
              outcome(VEKML_ERROR_NO_PERMISSION,
                      "\nThe voltage value cannot be modified (you can try to check the driver version)\n"));
    EXPECT_EQ(call(vekml_device_set_fan_pwm1, "2000"),
              failed("set fan speed failed, you can try <veksmi fan set fan XX>\n"));
    EXPECT_TRUE(logged("write_to_node", node("pwm1"))) << "missed only after the write";
}
