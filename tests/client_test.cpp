// SPDX-License-Identifier: Apache-2.0
// The client as a person or a script meets it: a program that is run on a host.
#include "client_host.h"
#include "host_files.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <pwd.h>
#include <regex>
#include <set>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

using client_test = client_host;

TEST_F(client_test, helps_without_a_gpu_and_without_a_driver)
{
    host.remove("/sys/class/drm");
    for (const char *command :
         {"list", "version", "help -h", "help help", "help fan", "help thermal set", "query --help-fields"}) {
        const run_result result = veksmi(command);
        EXPECT_EQ(result.status, 0) << command;
        for (const std::string &line : lines(result.out))
            EXPECT_LE(line.size(), 80U) << line;
    }
    EXPECT_EQ(veksmi("--version").out, veksmi("version").out);
    EXPECT_EQ(veksmi("help").out, veksmi("--help").out);
    host.remove("/tmp/smi.log");
    EXPECT_EQ(veksmi("--complete fan set m").status, 0);
    EXPECT_FALSE(host.exists("/tmp/smi.log"));
}

TEST_F(client_test, the_manual_has_every_field)
{
    // As tbl and a terminal show it: without the marks around what is filled.
    std::string manual = std::regex_replace(slurp(VEKSMI_MANUAL), std::regex("T\\{\n|\nT\\}"), "");
    manual = std::regex_replace(manual, std::regex("\\\\\\(de"), "°");
    std::replace(manual.begin(), manual.end(), '\n', ' ');
    const std::vector<std::string> fields = lines(veksmi("query --help-fields --format csv").out);
    for (auto line = fields.begin() + 1; line != fields.end(); ++line) {
        std::string row = " " + *line + " ";
        row.replace(row.find(','), 1, "|").replace(row.find(','), 1, "|");
        row.erase(std::remove(row.begin(), row.end(), '"'), row.end());
        EXPECT_NE(manual.find(row), manual.npos) << row;
    }
}

TEST_F(client_test, a_reader_may_go_away)
{
    if (*EMULATOR != '\0')
        GTEST_SKIP() << "a shell of this machine cannot start a program of the other";
    host.add_gpu();
    const std::string client = VEKSMI_PATH;
    const auto begun = std::chrono::steady_clock::now();
    const run_result piped =
        run_on_host({"/bin/sh", "-c", "{ " + client + " monitor -n 30; echo $? >&2; } | head -n 1"});
    EXPECT_EQ(piped.err, "0\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(20)) << "it waited to find out";
    const run_result full = run_on_host({"/bin/sh", "-c", client + " list > /dev/full"});
    EXPECT_EQ(full.status, 255);
    EXPECT_EQ(full.err, "veksmi: cannot write: No space left on device\n");
}

// The decoder's counter runs twice as fast as the encoder's.
TEST_F(client_test, rates_are_of_their_own_engine)
{
    host.add_gpu();
    host.add_video_libraries();
    std::atomic<bool> over = false;
    std::thread driver([&] {
        for (veksim::video_state state{61, 62, 1000, 1000}; !over; state.decoder_commands += 2000) {
            host.set_video_state(state);
            state.encoder_commands += 1000;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    const json gpu = document("query --format json --fields video_encoder_rate,video_decoder_rate")["gpus"][0];
    over = true;
    driver.join();
    ASSERT_TRUE(gpu["video_encoder_rate"].is_number()) << gpu;
    const double encoder = gpu["video_encoder_rate"], decoder = gpu["video_decoder_rate"];
    EXPECT_GT(encoder, 0);
    EXPECT_NEAR(decoder, 2 * encoder, 2);
}

// What a driver's texts may hold, and none of it may reach a terminal or a cell.
TEST_F(client_test, texts_of_the_driver_are_harmless)
{
    const std::vector<std::string> names = {"a,b\"c", "\x1b[2J\x07", "d,\x7f",
                                            "\xc2\x9b"
                                            "31m\xe2\x80\xae",
                                            "\x9b\xff\xe2\x81\xa6"};
    host.add_gpu();
    std::vector<veksim::process_entry> entries;
    for (const std::string &name : names)
        entries.push_back({static_cast<std::uint32_t>(4100000 + entries.size()), name,
                           static_cast<std::int64_t>(1000 - entries.size()), 2000});
    host.set_processes(0, entries);
    host.write("/proc/4100000/cmdline", std::string("x,\"y\"\0\n\x1b]0;z\xe2\x81\xa6\x85", 17));
    host.write(host.card(0, "vek_product_name"), names[1] + names[2] + names[3] + "\n");
    host.write(host.card(0, "device/local_cpulist"), "0\x1b[2J,\xc2\x9b\n");
    for (const char *command : {"", "list", "info", "ps", "why name", "topology", "health", "query --fields name,uuid",
                                "monitor -c 1 --fields name", "top --once"})
        for (const char *shape : {"", " --format csv"}) {
            const std::string out = veksmi(std::string(command) + shape).out;
            const auto is_bad = [](unsigned char c) { return (c < ' ' && c != '\n') || c == 0x7f || c == 0xff; };
            EXPECT_EQ(std::count_if(out.begin(), out.end(), is_bad), 0) << command << shape << "\n" << out;
            for (const char *sequence : {"\xc2\x9b", "\xe2\x80\xae", "\xe2\x81\xa6", "\x9b?", "?\x85"})
                EXPECT_EQ(out.find(sequence), out.npos) << command << shape << "\n" << out;
        }
    const std::string me = getpwuid(static_cast<uid_t>(syscall(SYS_geteuid)))->pw_name; // whose the tree is
    const std::vector<std::string> csv = lines(veksmi("ps --format csv").out);
    ASSERT_EQ(csv.size(), names.size() + 1);
    EXPECT_EQ(csv[1], "0,4100000,\"a,b\"\"c\",1000,2000," + me + ",\"x,\"\"y\"\" ??]0;z??\",");
    EXPECT_EQ(csv[3], "0,4100002,\"d,?\",998,2000," + me + ",,");
    const json found = document("ps --format json")["gpus"][0]["processes"];
    ASSERT_EQ(found.size(), names.size());
    for (std::size_t i = 1; i < 4; ++i)
        EXPECT_EQ(found[i]["name"], names[i]) << i;
}

// The transcript tells one field from another by its number.
TEST_F(client_test, no_two_readings_of_the_transcript_are_equal)
{
    host.add_gpu(veksim::distinct_gpu(1), veksim::distinct_state(1));
    const json gpu = document("query --format json --fields " + all_fields())["gpus"][0];
    std::set<json> numbers;
    for (const auto &[key, held] : gpu.items())
        EXPECT_TRUE(!held.is_number() || held < 83 || numbers.insert(held).second) << key;
}

} // namespace
