// SPDX-License-Identifier: Apache-2.0
// What the client makes of moving counters and of hostile texts.
#include "client_host.h"

#include <atomic>
#include <pwd.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

using client_readings_test = client_host;

// The decoder's counter runs twice as fast as the encoder's.
TEST_F(client_readings_test, rates_are_of_their_own_engine)
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
TEST_F(client_readings_test, texts_of_the_driver_are_harmless)
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

} // namespace
