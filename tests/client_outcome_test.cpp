// SPDX-License-Identifier: Apache-2.0
// How the client ends, what it takes, and what it makes of GPUs that do not answer.
#include "client_host.h"
#include "host_files.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <future>
#include <pty.h>
#include <thread>
#include <unistd.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

pid_t parent_of(pid_t process)
{
    const std::string status = slurp("/proc/" + std::to_string(process) + "/stat");
    return std::stoi(status.substr(status.rfind(") ") + 4)); // behind the name and the state
}

class client_outcome_test : public client_host {
protected:
    void hang(int position, const std::string &node) { host.stick(host.hwmon(position, node)); }

    std::future<run_result> started(const std::string &arguments)
    {
        host.remove("/tmp/smi.log");
        return std::async(std::launch::async, [=, this] { return veksmi(arguments); });
    }
    // A reader of the client that runs, once it does.
    pid_t reader()
    {
        await("vekml_init_card");
        const std::string log = host.log();
        return std::stoi(log.substr(log.find("pid:") + 4));
    }
    void await(const std::string &function, std::size_t count = 1)
    {
        for (int patience = 3000; messages_of(function).size() < count; --patience) {
            ASSERT_GT(patience, 0) << function;
            std::this_thread::sleep_for(milliseconds(10));
        }
    }

    // What comes out on a terminal of COLUMNS.
    std::string on_terminal(unsigned short columns, const std::string &command, environment settings = {})
    {
        int master = -1, slave = -1;
        char name[64];
        const winsize size{24, columns, 0, 0};
        EXPECT_EQ(openpty(&master, &slave, name, nullptr, &size), 0);
        settings.emplace("TERM", "xterm");
        run_on_host({"/bin/sh", "-c", VEKSMI_PATH + (" " + command) + " > " + name}, settings);
        fcntl(master, F_SETFL, O_NONBLOCK);
        std::string text, piece(4096, '\0');
        for (ssize_t length = 0; (length = read(master, piece.data(), piece.size())) > 0;)
            text.append(piece, 0, static_cast<std::size_t>(length));
        close(slave);
        close(master);
        return text;
    }
};

TEST_F(client_outcome_test, a_reader_that_crashes_is_told)
{
    host.add_gpu();
    hang(0, "fan1_input");
    auto crashing = started("--deadline 100 query");
    kill(reader(), SIGKILL);
    const run_result crashed = crashing.get();
    EXPECT_EQ(crashed.status, 5);
    EXPECT_NE(crashed.out.find("crashed"), std::string::npos) << crashed.out;
    EXPECT_NE(crashed.err.find("signal 9"), std::string::npos) << crashed.err;
}

TEST_F(client_outcome_test, options_take_their_bounds)
{
    add_gpus(2);
    for (const char *right : {"top --once -n 0.1", "top --once -n 3600"})
        EXPECT_EQ(veksmi(right).status, 0) << right;
    EXPECT_EQ(veksmi("--deadline 0.01 version").status % 5, 0) << "a GPU may be late, but no more";
}

TEST_F(client_outcome_test, a_sick_gpu_costs_no_more_than_the_deadline)
{
    add_gpus(2);
    hang(0, "temp1_input");
    for (const char *command : {"query", "", "monitor -c 1", "health"}) {
        const auto begun = steady_clock::now();
        veksmi(std::string("--deadline 2 ") + command);
        EXPECT_LT(steady_clock::now() - begun, seconds(15)) << command;
    }
}

TEST_F(client_outcome_test, monitor_ends_when_a_gpu_is_lost)
{
    add_gpus(2);
    for (const std::string shape : {"table", "csv", "json"}) {
        auto running = started("monitor -n 0.02 -c 1000 --until-lost --fields temperature --format " + shape);
        reader();
        std::this_thread::sleep_for(milliseconds(200));
        host.lose_card(1);
        const run_result cut = running.get();
        EXPECT_EQ(cut.status, 5) << shape << cut.err;
        const std::vector<std::string> text = lines(cut.out);
        EXPECT_TRUE(text.size() > 1 && text.size() < 1000 && text.back().find("lost") != std::string::npos) << cut.out;
        host.return_card(1);
    }
}

TEST_F(client_outcome_test, monitor_outlives_a_gpu_and_stops_when_asked)
{
    host.add_gpu();
    auto running = started("monitor -n 0.05 --format csv");
    await("vekml_device_get_util_info", 4);
    const pid_t client = parent_of(reader());
    ASSERT_GT(client, 1);
    host.remove(host.card(0));
    std::this_thread::sleep_for(milliseconds(500)); // a few rounds without it
    kill(client, SIGINT);
    const run_result result = running.get();
    const std::vector<std::string> text = lines(result.out);
    ASSERT_TRUE(result.status == 0 && text.size() >= 3) << result.err;
    EXPECT_NE(text[1].find(",ok,0,48,2400,21,1000,"), std::string::npos) << text[1];
    EXPECT_NE(text.back().find(",lost,0,,,,,"), std::string::npos) << text.back();

    host.add_gpu();
    hang(1, "temp1_input");
    auto hanging = started("--deadline 100 monitor");
    const pid_t waiting = parent_of(reader());
    await("vekml_device_query_static_info"); // which is read before what hangs
    const auto asked = steady_clock::now();
    kill(waiting, SIGINT);
    EXPECT_EQ(hanging.get().status, 0);
    EXPECT_LT(steady_clock::now() - asked, seconds(20)) << "it waited for the node";
}

TEST_F(client_outcome_test, streams_and_terminals)
{
    if (*EMULATOR != '\0')
        GTEST_SKIP() << "a shell of this machine cannot start a program of the other";
    for (const int position : {0, 1})
        host.add_gpu(veksim::sample_gpu(position));
    host.set_processes(0, {{4100000, "a-name-that-is-rather-long-for-a-column", 1000, 2000}});
    host.write("/proc/4100000/cmdline", std::string(300, 'x'));
    const std::string client = VEKSMI_PATH;
    for (const std::string command : {" nonsense", " -i 0 vpu", " query --format json --fields uuid", " -i 7 list"}) {
        const run_result whole = run_on_host({"/bin/sh", "-c", client + command});
        for (const char *lost : {" 2>&-", " 2>/dev/full", " 2>&- <&-"}) {
            const run_result result = run_on_host({"/bin/sh", "-c", client + command + lost});
            EXPECT_EQ(result.status, whole.status) << command << lost;
            EXPECT_EQ(result.out, whole.out) << command << lost;
        }
    }
    const auto columns_of = [](const std::string &line) {
        return std::count_if(line.begin(), line.end(), [](char c) { return (c & 0xc0) != 0x80 && c != '\r'; });
    };
    for (const std::string command :
         {"", "list", "info", "ps", "query --help-fields", "monitor -c 1", "topology", "help", "help temp"}) {
        std::size_t widest[3] = {};
        for (const int at : {0, 1, 2}) {
            constexpr unsigned short columns[] = {60, 80, 200};
            for (const std::string &line : lines(on_terminal(columns[at], command, {{"NO_COLOR", "1"}}))) {
                EXPECT_LE(columns_of(line), columns[at]) << command << "\n" << line;
                widest[at] = std::max(widest[at], static_cast<std::size_t>(columns_of(line)));
            }
        }
        EXPECT_TRUE(command != "ps" || (widest[0] == 60 && widest[1] == 80 && widest[2] == 200)) << widest[2];
        EXPECT_TRUE(command != "monitor -c 1" || (widest[0] < widest[1] && widest[1] < widest[2])) << widest[2];
        for (const std::string &line : lines(veksmi(command).out))
            EXPECT_LE(columns_of(line), 80) << command << "\n" << line; // no terminal
    }
    EXPECT_NE(on_terminal(80, "", {{"NO_COLOR", ""}}).find("\033["), std::string::npos) << "empty is not set";
    EXPECT_EQ(on_terminal(80, "", {{"NO_COLOR", "1"}}).find("\033["), std::string::npos);
    EXPECT_EQ(veksmi("").out.find("\033["), std::string::npos);
}

} // namespace
