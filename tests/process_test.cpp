// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

#include <cstring>

namespace {

constexpr std::uint32_t base = 5000000; // above every real process id

class process_test : public sensor_host {
protected:
    // Lists processes base + 1, base + 2 and so on, with that much local memory and all of them alive.
    void list(const std::vector<std::int64_t> &memory)
    {
        std::vector<veksim::process_entry> processes;
        for (const std::int64_t local : memory) {
            const auto number = static_cast<std::uint32_t>(processes.size() + 1);
            processes.push_back({base + number, "", local, local + 1000});
        }
        host.set_processes(0, processes);
        for (unsigned number = 1; number <= processes.size(); ++number)
            host.write(status(number), "Name:\tname" + std::to_string(number) + "\n");
    }
    static std::string proc(unsigned number) { return "/proc/" + std::to_string(base + number); }
    static std::string status(unsigned number) { return proc(number) + "/status"; }
    // What is reported, "number:memory" for each; their names and totals must belong to them.
    std::string report(int expected = VEKML_SUCCESS)
    {
        std::memset(&info, '#', sizeof info);
        EXPECT_EQ(call(vekml_device_get_process_info, &info), outcome(expected, ""));
        if (expected != VEKML_SUCCESS)
            return {};
        if (info.process_num > std::size(info.process))
            return std::to_string(info.process_num) + " processes";
        std::string text;
        for (std::uint64_t i = 0; i < info.process_num; ++i) {
            const std::string number = std::to_string(info.process[i].pid - base);
            text += number + ":" + std::to_string(info.process[i].mem_lma) + " ";
            EXPECT_EQ(info.process_name[i], "name" + number);
            EXPECT_EQ(info.process[i].mem_total, info.process[i].mem_lma + 1000);
        }
        return text;
    }
    std::string report_by_request()
    {
        const std::string text = host.read(list_node);
        host.remove(list_node);
        const std::string reported = report();
        host.write(list_node, text);
        return reported;
    }
    const std::string list_node = host.card(0, "device/gpu_mem_util_info");
    const std::string node_step = "vekml_device_get_process_info_helper_v2";
    const std::string request_step = "vekml_device_get_process_info_helper_v1";
    vekml_process_info_t info;
};

TEST_F(process_test, the_five_largest_of_the_living_are_reported)
{
    const struct {
        std::vector<std::int64_t> memory;
        unsigned ended;
        std::string by_node, by_request;
    } cases[] = {
        {{5, 9, 9, 0, 3, 7, 1}, 0, "2:9 3:9 6:7 1:5 5:3 ", "2:9 3:9 6:7 1:5 5:3 "},
        {{0, -5, INT64_MIN}, 0, "", ""},
        {{5, 6, 7}, 3, "2:6 1:5 ", "2:6 1:5 "},
        // Through the node the entry behind the ended one is lost, and the last for its row.
        {{5, 6, 7, 8, 9}, 1, "4:8 3:7 ", "5:9 4:8 3:7 2:6 "},
    };
    for (const auto &c : cases) {
        list(c.memory);
        host.remove(proc(c.ended));
        EXPECT_EQ(report(), c.by_node);
        EXPECT_EQ(report_by_request(), c.by_request);
    }
    EXPECT_STREQ(meminfo[17], "MemoryUsageMappedGPUMemUMA/LMA");
}

TEST_F(process_test, the_node_s_count_is_not_believed)
{
    list({5, 6, 7});
    const std::string text = host.read(list_node);
    const std::size_t at = text.find("\n3\n");
    const auto with_count = [&](const char *count) { return std::string(text).replace(at + 1, 1, count); };
    const std::pair<std::string, std::string> cases[] = {
        {with_count("4294967295"), "3:7 2:6 1:5 "},
        {with_count("2"), "2:6 1:5 "},
        {with_count("x"), ""},
        {"1 2 3 4 3 0 " + text.substr(at), ""},
        {text.substr(0, text.rfind("5000003")), "2:6 1:5 "},
        {std::string(9000, '\0'), ""},
    };
    for (const auto &[node, expected] : cases) {
        host.write("/tmp/smi.log", "");
        host.write(list_node, node);
        EXPECT_EQ(report(), expected) << node;
        EXPECT_LE(messages_of(node_step).size(), 150u);
    }
}

TEST_F(process_test, long_lists)
{
    std::vector<std::int64_t> memory(700, 1);
    memory[28] = 50;
    memory[35] = 60;
    memory[36] = 70; // the thirty-first that lives
    list(memory);
    for (unsigned number = 2; number <= 12; number += 2)
        host.remove(proc(number));
    EXPECT_EQ(report().substr(0, 18), "37:70 36:60 29:50 ");
    EXPECT_EQ(report_by_request().substr(0, 16), "36:60 29:50 1:1 ");
    for (unsigned number = 1; number <= 700; ++number)
        host.remove(proc(number));
    EXPECT_EQ(report_by_request(), "");
    EXPECT_TRUE(logged(request_step, "remove_cnt=543")); // what a reply has room for
    EXPECT_FALSE(logged(request_step, "remove_cnt=544"));
}

TEST_F(process_test, an_unreadable_name_leads_to_the_request_and_then_to_failure)
{
    list({5, 6});
    host.remove(status(2));
    host.write(host.request(0, veksim::process_request), "u32 5000001 0\nzero 96\ni64 8\nzero 56\ni64 1008\n");
    EXPECT_EQ(report(), "1:8 ");
    EXPECT_TRUE(logged(node_step, "Error: open file " + status(2) + " failed."));
    host.remove(status(1));
    report(VEKML_ERROR_NODE_IO);
    host.fail_request(0, veksim::process_request, EINVAL);
    report(VEKML_ERROR_NODE_IO);
    EXPECT_EQ(messages_of(request_step).back(), "ret -1");
}

TEST_F(process_test, a_name_is_the_second_word_of_28_characters)
{
    const std::string cut(22, 'x');
    list({5, 4, 3});
    host.write(status(1), "Name:\t" + cut + cut);
    host.write(status(2), "Name:\ttwo words\n");
    host.write(status(3), "Name:\t\nUmask:\t0022\n");
    strcpy(info.process_name[2], "kept");
    EXPECT_EQ(vekml_device_get_process_info(gpu, &info), VEKML_SUCCESS);
    EXPECT_EQ(info.process_name[0], cut);
    EXPECT_STREQ(info.process_name[1], "two");
    EXPECT_STREQ(info.process_name[2], "kept");
}

} // namespace
