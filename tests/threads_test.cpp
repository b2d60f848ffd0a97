// SPDX-License-Identifier: Apache-2.0
#include "support/sim_host.h"

#include "debug_log.h"

#include <cstdio>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

class threads_test : public sim_host {
protected:
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
        std::vector<std::thread> threads;
        for (int writer = 0; writer < writers; writer += 2)
            threads.emplace_back(write_lines, writer, lines);
        for (std::thread &thread : threads)
            thread.join();
        for (int status = 0; wait(&status) > 0;)
            EXPECT_EQ(status, 0);
    }
};

TEST_F(threads_test, readers_of_different_gpus_do_not_disturb_each_other)
{
    constexpr unsigned gpus = 4;
    for (int i = 0; i < int{gpus}; ++i) {
        veksim::gpu_state state;
        state.temperature = 40 + i;
        state.processes = {{static_cast<std::uint32_t>(5000001 + i), "worker" + std::to_string(i), 10 + i, 20}};
        host.add_gpu({}, state);
    }
    start();
    vekml_device_query_t records[gpus] = {};
    std::vector<std::thread> readers;
    for (unsigned i = 0; i < gpus; ++i) {
        readers.emplace_back([&record = records[i], i] {
            for (int round = 0; round < 50; ++round) {
                record.temperature[1] = record.pronum = 0;
                EXPECT_EQ(vekml_device_query_two_parts(&globals.devices[i], &record), VEKML_SUCCESS);
                EXPECT_EQ(record.temperature[1], 40 + i);
                EXPECT_EQ(record.minor_number, i);
                EXPECT_EQ(record.pronum, 1u);
                EXPECT_EQ(record.process_name[0], "worker" + std::to_string(i));
            }
        });
    }
    for (std::thread &reader : readers)
        reader.join();
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

} // namespace
