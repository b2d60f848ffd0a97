// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

#include "memory_sizes.h"
#include "vek_smi_utils.h"

#include <clocale>
#include <ctime>
#include <random>

namespace {

using sizes = std::array<std::uint64_t, 6>; // free, total, used of local memory; then of system memory

class memory_test : public sensor_host {
protected:
    sizes ask(int expected = VEKML_SUCCESS)
    {
        vekml_mem_info_t memory{7, 7, 7, 7, 7, 7};
        EXPECT_EQ(call(vekml_device_get_mem_info, &memory), outcome(expected, ""));
        return std::bit_cast<sizes>(memory);
    }
    sizes ask_dump(const std::string &text)
    {
        host.remove(size_node);
        host.write(host.debug_dump(), text);
        return ask();
    }
    const std::string size_node = host.card(0, "device/gpu_mem_util_info");
    const std::string local = "0: GPU_LOCAL, Free Size: 1000, Total Size: 4000\n";
    const std::string system = "1: SYSMEM, Free Size: 20, Total Size: 100\n";
    const sizes both = {1000, 4000, 3000, 20, 100, 80};
};

TEST_F(memory_test, the_node_lists_free_and_total)
{
    const std::pair<const char *, sizes> cases[] = {
        {"1000 4000\t20\n100 0\n", both},
        {"4000 1000 7 7", {4000, 1000, static_cast<std::uint64_t>(-3000), 7, 7, 0}},
        {"5 x 1 1", {5, 7, 2, 7, 7, 0}},
        {"99999999999999999999 0 0 -1", {UINT64_MAX, 0, 1, 0, UINT64_MAX, UINT64_MAX}},
    };
    for (const auto &[text, expected] : cases) {
        host.write(size_node, text);
        EXPECT_EQ(ask(), expected) << text;
    }
}

TEST_F(memory_test, without_the_node_the_dump_is_searched)
{
    const std::pair<std::string, sizes> cases[] = {
        {local + system, both},
        {"gpu_local x free size: 1000, total size: 4000 kB\r\nsysmem free size: 20, TOTAL Size: 100", both},
        {"GPU_LOCAL, Free Size: 9\n" + local + "\n" + system + local + system, both},
        {local + "other\n" + system, sizes{}},
        {"GPU_LOCAL Free Size: , Total Size: \n" + system, {0, 0, 0, 20, 100, 80}},
        {std::string(40000, '\n') + local + system, both},
        {"", sizes{}},
    };
    for (const auto &[text, expected] : cases)
        EXPECT_EQ(ask_dump(text), expected) << text;
}

TEST_F(memory_test, cutting_the_dump_changes_no_match)
{
    const char *const pieces[] = {
        "GPU_LOCAL", "SYSMEM", "Free Size: 1", ", Total Size: 2", "\n", " ", "x", "Free Size: 12, Total Size: 34"};
    std::mt19937 random(1);
    for (int round = 0; round < 1000; ++round) {
        std::string dump = "GPU_LOCAL Free Size: 7, Total Size: 8";
        for (unsigned piece = 0; piece < 12; ++piece)
            dump += pieces[random() % std::size(pieces)];
        vekml::unique_text whole[5], cut[5];
        std::string copy = dump;
        const int found = vekml::pick_regex(dump.c_str(), vekml::memory_sizes_pattern, 4, whole);
        const char *rest = vekml::cut_to_memory_sizes(copy.data());
        ASSERT_EQ(vekml::pick_regex(rest, vekml::memory_sizes_pattern, 4, cut), found) << dump;
        for (int i = 0; found == 0 && i < 5; ++i)
            ASSERT_STREQ(cut[i].get(), whole[i].get()) << dump;
    }
}

TEST_F(memory_test, the_locale_of_the_process_makes_no_difference)
{
    std::setlocale(LC_ALL, "C.UTF-8");
    EXPECT_EQ(ask_dump("GPU_LOCAL \xff Free Size: 1000, Total Size: 4000\n" + system), both);
    std::setlocale(LC_ALL, "C");
}

TEST_F(memory_test, a_hostile_dump_is_no_burden)
{
    const auto repeated = [](const std::string &piece) {
        std::string text;
        while (text.size() < 256 * 1024)
            text += piece;
        return text;
    };
    const std::string near_match = "GPU_LOCAL Free Size: 1, Total Size: 2 SYSMEM ";
    const std::clock_t start = std::clock(); // of this process: a busy machine is no failure
    EXPECT_EQ(ask_dump(repeated("GPU_LOCAL ")), sizes{});
    EXPECT_EQ(ask_dump(repeated(near_match + "\n")), sizes{});
    EXPECT_EQ(ask_dump(repeated("GPU_LOCAL Free Size: ") + std::string(256 * 1024, '1')), sizes{});
    EXPECT_EQ(ask_dump(repeated(near_match) + local + system), both);
    EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC);
}

TEST_F(memory_test, the_dump_is_for_root_and_numbered_by_table_position)
{
    host.make_directory(host.debug_dump());
    host.remove(size_node);
    EXPECT_EQ(ask(VEKML_ERROR_NODE_IO), (sizes{7, 7, 7, 7, 7, 7}));
    gpu->table_index = 7;
    ask(VEKML_ERROR_NODE_IO);
    EXPECT_EQ(messages_of("vekml_device_get_mem_info_helper_v1").back(),
              "get gpu mem info, open /sys/kernel/debug/vekgpu/gpu07/debug_dump(fd:-1) error! "
              "errmsg:No such file or directory");
    host.set_euid(1000);
    EXPECT_EQ(ask(VEKML_ERROR_NO_PERMISSION), sizes{});
}

} // namespace
