// SPDX-License-Identifier: Apache-2.0
#include "support/calls.h"
#include "support/sim_host.h"

#include "debug_log.h"

#include <atomic>
#include <barrier>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

class threads_test : public sim_host {
protected:
    static void side_by_side(int threads, const std::function<void(int)> &run)
    {
        std::vector<std::jthread> running;
        for (int thread = 0; thread < threads; ++thread)
            running.emplace_back(run, thread);
    }
    // What a writer of the log has to say, each line of another length.
    static std::string message(int writer, int line)
    {
        return "writer " + std::to_string(writer) + " line " + std::to_string(line) + std::string(line % 60 + 1, '.');
    }
    static void write_lines(int writer, int lines)
    {
        for (int line = 0; line < lines; ++line)
            TRACE("%s", message(writer, line).c_str());
    }
    // Even writers are threads of this process, odd ones processes.
    static void write_lines_side_by_side(int writers, int lines)
    {
        for (int writer = 1; writer < writers; writer += 2) {
            if (fork() == 0) {
                write_lines(writer, lines);
                _exit(0);
            }
        }
        side_by_side((writers + 1) / 2, [=](int thread) { write_lines(2 * thread, lines); });
        for (int status = 0; wait(&status) > 0;)
            EXPECT_EQ(status, 0);
    }
};

TEST_F(threads_test, readers_of_different_gpus_do_not_disturb_each_other)
{
    constexpr int gpus = 4;
    for (int i = 0; i < gpus; ++i) {
        veksim::gpu_state state;
        state.temperature = 40 + i;
        state.processes = {{static_cast<std::uint32_t>(5000001 + i), "worker" + std::to_string(i), 10 + i, 20}};
        host.add_gpu({}, state);
    }
    start();
    vekml_device_query_t records[gpus] = {};
    side_by_side(gpus, [&](int i) {
        vekml_device_query_t &record = records[i];
        for (int round = 0; round < 50; ++round) {
            record.temperature[1] = record.pronum = 0;
            EXPECT_EQ(vekml_device_query_two_parts(&globals.devices[i], &record), VEKML_SUCCESS);
            EXPECT_EQ(static_cast<int>(record.temperature[1]), 40 + i);
            EXPECT_EQ(static_cast<int>(record.minor_number), i);
            EXPECT_EQ(record.pronum, 1u);
            EXPECT_EQ(record.process_name[0], "worker" + std::to_string(i));
        }
    });
}

TEST_F(threads_test, no_line_of_a_shared_log_is_lost_or_torn)
{
    constexpr int writers = 8, lines = 500;
    write_lines_side_by_side(writers, lines);
    ASSERT_LT(host.log().size(), 0x100000u) << "lines may be lost where the log is emptied";
    std::vector<int> next(writers, 0);
    for (const log_line &line : log_lines()) {
        int writer = 0;
        ASSERT_EQ(std::sscanf(line.message.c_str(), "writer %d", &writer), 1) << line.message;
        ASSERT_EQ(line.message, message(writer, next.at(static_cast<std::size_t>(writer))++));
    }
    EXPECT_EQ(next, std::vector<int>(writers, lines));
}

TEST_F(threads_test, a_log_that_is_emptied_under_its_writers_holds_whole_lines)
{
    write_lines_side_by_side(8, 2500);
    EXPECT_LT(host.log().size(), 0x100000u + 8 * 200u);
    for (const log_line &line : log_lines()) {
        int writer = 0, number = 0;
        std::sscanf(line.message.c_str(), "writer %d line %d", &writer, &number);
        ASSERT_EQ(line.message, message(writer, number));
    }
}

TEST_F(threads_test, the_video_libraries_are_looked_for_once)
{
    host.add_bare_gpu();
    host.add_video_libraries();
    standard_output([] { vekml_out_of_band_init(); }); // does not look
    constexpr int askers = 8;
    std::barrier all_here(askers);
    side_by_side(askers, [&](int) {
        std::uint32_t valid = 7;
        all_here.arrive_and_wait();
        EXPECT_EQ(vekml_get_vpu_functions_valid(&valid), VEKML_SUCCESS);
        EXPECT_EQ(valid, 1u);
    });
    EXPECT_EQ(messages_of("isLibVaValid").size(), 5u);
}

TEST_F(threads_test, codecs_that_are_valid_are_complete)
{
    host.add_gpu();
    host.add_video_libraries();
    vekml_device_t gpu = start();
    const auto asked = std::make_unique<Vpu_codec_info_st>(), seen = std::make_unique<Vpu_codec_info_st>();
    std::thread watcher([&] {
        while (std::atomic_ref(gpu->vpu_codec_info.valid).load(std::memory_order_acquire) != 1)
            std::this_thread::yield();
        *seen = gpu->vpu_codec_info;
    });
    EXPECT_EQ(vekml_device_get_vpu_info(gpu, asked.get()), VEKML_SUCCESS);
    watcher.join();
    EXPECT_EQ(std::memcmp(seen.get(), asked.get(), sizeof *seen), 0);
}

// Calls that write to the device record, and so disturb each other and themselves on one GPU.
bool share_a_field(const std::string &one, const std::string &other)
{
    const std::set<std::string> of_uuid{"get_uuid", "query"}, of_sample{"get_vpu_rates"};
    return (of_uuid.contains(one) && of_uuid.contains(other)) || (of_sample.contains(one) && of_sample.contains(other));
}

TEST_F(threads_test, pairs_of_calls_on_one_gpu_do_not_disturb_each_other)
{
    host.instant_pauses();
    host.add_gpu();
    host.add_video_libraries();
    vekml_device_t gpu = start();
    const auto codecs = std::make_unique<Vpu_codec_info_st>();
    EXPECT_EQ(vekml_device_get_vpu_info(gpu, codecs.get()), VEKML_SUCCESS); // from now on a plain read
    host.remove("/tmp");                                                    // logging would take most of the time
    std::vector<call> calls = readers;
    calls.insert(calls.end(), setters.begin(), setters.end());
    std::barrier both_here(2);
    const auto run_pairs = [&](int second) {
        for (std::size_t i = 0; i < calls.size(); ++i) {
            for (std::size_t j = i; j < calls.size(); ++j) {
                if (share_a_field(calls[i].name, calls[j].name))
                    continue;
                const call &mine = calls[second == 1 ? j : i];
                std::string record(mine.size + 1, '\0');
                both_here.arrive_and_wait();
                mine.run(gpu, record.data());
            }
        }
    };
    standard_output([&] { side_by_side(2, run_pairs); });
}

} // namespace
