// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

#include "veksim.h"

class temper_test : public sensor_host {
protected:
    // Sets one limit, noting limit and mode at each pause; after a faulty one the mode cannot be written.
    outcome set_limit(tem_type type, std::size_t faulty_pause = 0)
    {
        host.write(node(nodes[0]), "7");
        pauses.clear();
        at_pause = [=, this](const std::string &what) {
            pauses.push_back(what + ": " + text_of(nodes[type]) + " " + text_of(nodes[0]));
            if (pauses.size() == faulty_pause)
                host.fail_writes(node(nodes[0]));
        };
        veksim_on_pause([](void *test, const char *what) { static_cast<temper_test *>(test)->at_pause(what); }, this);
        temper_set set{"", "85", "85", "85"};
        return call(vekml_device_set_temper_info, &set, type);
    }
    const std::string nodes[4] = {"temp1_ctrl_mode", "temp1_min", "temp1_max", "temp1_crit"};
    std::function<void(const std::string &)> at_pause;
    std::vector<std::string> pauses;
};

TEST_F(temper_test, an_unreadable_node_repeats_the_value_before_it)
{
    host.remove(node("temp1_input"));
    host.make_directory(node("temp1_crit"));
    temper_info out{7, 7, 7, 7, 7, 7, 7};
    EXPECT_EQ(call(vekml_device_get_temper_info, &out), done);
    EXPECT_EQ(fields(out), numbers({1, 0, 61, 0, 90, 90, 52}));
}

TEST_F(temper_test, a_limit_rearms_the_control_and_only_a_minimum_fails_with_it)
{
    const std::string close_failed = "write temper1 ctrl node close failed\n";
    const std::string open_failed = "wirte temper1 ctrl node open failed\n";
    const std::string names[] = {"", "min", "max", "crit"};
    for (tem_type type = 1; type < 4; ++type) {
        const bool strict = type == temper_min_type;
        EXPECT_EQ(set_limit(type), done);
        EXPECT_EQ(pauses, std::vector<std::string>({"sleep 1: 85 7", "sleep 3: 85 0", "sleep 3: 85 1"}));
        EXPECT_EQ(set_limit(type, 2), strict ? failed(open_failed) : outcome(VEKML_SUCCESS, open_failed));
        EXPECT_EQ(set_limit(type, 1),
                  strict ? failed(close_failed) : outcome(VEKML_SUCCESS, close_failed + open_failed));
        EXPECT_EQ(pauses.size(), strict ? 2u : 3u);
        host.fail_writes(node(nodes[type]));
        EXPECT_EQ(set_limit(type), failed("set temper " + names[type] + " failed\n"));
        EXPECT_EQ(pauses, std::vector<std::string>{"sleep 1:  7"}) << "the control is left alone";
    }
}

TEST_F(temper_test, the_control_mode_is_set_without_a_pause_or_a_check)
{
    temper_set set{"0003", "", "", ""};
    EXPECT_EQ(call(vekml_device_set_temper_info, &set, 0), done);
    EXPECT_EQ(text_of(nodes[0]), "0003");
    host.remove(node(nodes[0]));
    EXPECT_EQ(call(vekml_device_set_temper_info, &set, 0), done);
    EXPECT_EQ(host.pauses().size(), 0u);
    EXPECT_EQ(call(vekml_device_set_temper_info, &set, 4), failed("invaild temper type\n"));
}
