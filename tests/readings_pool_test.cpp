// SPDX-License-Identifier: Apache-2.0
// GPUs that fall ill, each in a process of its own. The test itself is the program that owns the readers.
#include "build_paths.h"
#include "support/silent_node.h"
#include "support/sim_host.h"
#include "support/text.h"
#include "veksim.h"

#include "readings/reader_pool.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace readings;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr milliseconds deadline(2000), patience(20000);
const std::string runtime_status = "device/power/runtime_status";

// What a reader does when told to, where a driver would make it.
json misbehave(gpu &, const json &how)
{
    constexpr int channel = 3;
    const std::string what = how.get<std::string>();
    const auto say = [](const std::string &bytes) { send(channel, bytes.data(), bytes.size(), 0); };
    if (what == "segfault")
        kill(getpid(), SIGSEGV);
    else if (what == "exit")
        _exit(3);
    else if (what == "garbage")
        say(std::string("\0garbage", 8));
    else if (what == "another's answer")
        say(std::string("\0\xa4\x66number\x18\x63\x66result\x00\x66values\x80\x64more\xa0", 31));
    else if (what == "half an answer")
        say("\1\xa4"), _exit(0);
    else if (what == "print")
        std::printf("on standard output\n"), std::fprintf(stderr, "on standard error\n");
    return how;
}
const extension extensions[] = {{"misbehave", misbehave}};

const request sensors{.fields = pick<"temperature", "power">()};
request to(const char *misbehaviour)
{
    request asked = sensors;
    asked.more["misbehave"] = misbehaviour;
    return asked;
}

// Each leads a session of its own.
std::vector<pid_t> readers(pid_t program = getpid())
{
    const std::string process = std::to_string(program);
    std::ifstream children("/proc/" + process + "/task/" + process + "/children");
    std::vector<pid_t> found(std::istream_iterator<pid_t>(children), {});
    std::erase_if(found, [](pid_t child) { return getsid(child) != child; });
    std::sort(found.begin(), found.end());
    return found;
}

// Whether the pool has news, or gets some before patience ends.
bool is_told(const reader_pool &pool)
{
    pollfd news{pool.descriptor(), POLLIN, 0};
    return poll(&news, 1, static_cast<int>(patience.count())) == 1;
}

class readings_pool_test : public sim_host {
protected:
    // What became of each GPU in a round, and whether anybody was waited for in vain.
    std::string round(reader_pool &pool, const request &asked = sensors, const std::vector<unsigned> &only = {})
    {
        const auto began = steady_clock::now();
        said = pool.round(asked, only);
        const bool waited = steady_clock::now() - began >= deadline;
        std::vector<std::string> states;
        for (const answer &one : said)
            states.push_back(std::to_string(one.index) + " " + name_of(one.state));
        return joined(states, ", ") + (waited ? "; waited" : "");
    }

    answers said;
};

// ---- stuck

void stand_in(veksim::host_tree &host, const std::string &node, const std::string &how)
{
    if (how != "pipe")
        return host.link(node, how);
    host.remove(node);
    ASSERT_EQ(mkfifo(host.path(node).c_str(), 0600), 0);
}

TEST_F(readings_pool_test, those_that_hang_cost_one_deadline_and_are_back_when_their_reads_return)
{
    add_gpus(6);
    // An open descriptor tells the node as well.
    const auto node_of = [&](int gpu, const std::string &name) {
        return " (" + host.pci_device(gpu) + "/hwmon/hwmon" + std::to_string(gpu + 1) + "/" + name + ")";
    };
    const struct {
        const char *name;
        const char *how; // what stands in its place
        std::string at;  // what the reader is at then
    } nodes[] = {
        {"temp1_input", "stuck", "reading temperature" + node_of(0, "temp1_input")},
        {"temp1_input", "stuck:open", "reading temperature"},
        {"vek_device_model", "stuck", "starting" + node_of(2, "vek_device_model")},
        {"vek_chip_id", "stuck:open", "reading uuid"},
        // What an emulated process waits to open, its emulator knows alone.
        {"temp1_input", "pipe", *EMULATOR == '\0' ? "reading temperature (" : "reading temperature"},
    };
    std::vector<std::string> before;
    for (int gpu = 0; gpu < 5; ++gpu) {
        const std::string node = host.hwmon(gpu, nodes[gpu].name);
        before.push_back(host.read(node));
        stand_in(host, node, nodes[gpu].how);
    }
    {
        reader_pool pool({.deadline = deadline});
        EXPECT_EQ(round(pool), "0 stuck, 1 stuck, 2 stuck, 3 stuck, 4 stuck, 5 ok; waited");
        const answers first = said;
        EXPECT_EQ(round(pool), "0 stuck, 1 stuck, 2 stuck, 3 stuck, 4 stuck, 5 ok");
        ASSERT_EQ(said.size(), 6u);
        EXPECT_EQ(said[5][field_of("temperature")], value(std::uint64_t{48}));
        for (int gpu = 0; gpu < 5; ++gpu) {
            const answer &ill = said[gpu];
            EXPECT_EQ(ill.detail.substr(0, nodes[gpu].at.size()), nodes[gpu].at);
            EXPECT_EQ(ill.bus_id, host.config(gpu).pci_address);
            EXPECT_EQ(ill.since, first[gpu].since);
            EXPECT_EQ(ill[field_of("power")], value(missing{reason::stuck}));
            const std::string node = host.hwmon(gpu, nodes[gpu].name);
            host.remove(node);
            host.write(node, before[gpu]);
        }
        while (round(pool).rfind("0 ok, 1 ok, 2 ok, 3 ok, 4", 0) != 0) // which still has its pipe open
            ASSERT_TRUE(is_told(pool));
        for (int gpu = 0; gpu < 4; ++gpu) {
            EXPECT_EQ(said[gpu][field_of("temperature")], value(std::uint64_t{48}));
            EXPECT_EQ(said[gpu].detail, "");
        }
    }
    for (int look = 0; look < 1000 && !readers().empty(); ++look) // a busy machine takes its time to end them
        if (waitpid(-1, nullptr, WNOHANG) <= 0)
            std::this_thread::sleep_for(milliseconds(10));
    EXPECT_TRUE(readers().empty());
}

TEST_F(readings_pool_test, one_that_goes_on_hanging_gets_another_reader_that_nobody_waits_for)
{
    add_gpus(2);
    const std::string node = host.hwmon(0, "temp1_input");
    host.link(node, "stuck");
    reader_pool pool({.deadline = deadline});
    EXPECT_EQ(round(pool), "0 stuck, 1 ok; waited");
    const std::vector<pid_t> first = readers();
    ASSERT_EQ(first.size(), 2u);
    std::this_thread::sleep_for(milliseconds(2100));
    for (int times = 0; times < 2; ++times)
        EXPECT_EQ(round(pool), "0 stuck, 1 ok");
    const std::vector<pid_t> second = readers();
    ASSERT_EQ(second.size(), 2u);
    EXPECT_EQ(second[0], first[1]);
    EXPECT_NE(second[1], first[0]);
    host.write(node, "77\n");
    while (round(pool) == "0 stuck, 1 ok")
        ASSERT_TRUE(is_told(pool));
    EXPECT_EQ(round(pool), "0 ok, 1 ok");
    EXPECT_EQ(said[0][field_of("temperature")], value(std::uint64_t{77}));
}

TEST_F(readings_pool_test, a_read_that_no_signal_ends_holds_up_nothing_but_itself)
{
    add_gpus(2);
    silent_node node(host.path(host.hwmon(0, "temp1_input")), "55\n");
    if (!node)
        GTEST_SKIP() << node.why_not();
    auto pool = std::make_unique<reader_pool>(pool_options{.deadline = deadline});
    EXPECT_EQ(round(*pool), "0 stuck, 1 ok; waited");
    const std::vector<pid_t> hung = readers();
    ASSERT_EQ(hung.size(), 2u);
    std::this_thread::sleep_for(milliseconds(2100));
    for (int times = 0; times < 3; ++times) { // killed, and will not die
        EXPECT_EQ(round(*pool), "0 stuck, 1 ok");
        EXPECT_EQ(readers(), hung);
    }
    EXPECT_EQ(said[0].detail, "reading temperature (" + host.pci_device(0) + "/hwmon/hwmon1/temp1_input)");
    node.answer();
    siginfo_t ended{};
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(hung[0]), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(round(*pool), "0 ok, 1 ok");
    EXPECT_EQ(said[0][field_of("temperature")], value(std::uint64_t{55}));

    silent_node again(host.path(host.hwmon(1, "temp1_input")), "55\n");
    ASSERT_TRUE(again) << again.why_not();
    EXPECT_EQ(round(*pool), "0 ok, 1 stuck; waited");
    const auto began = steady_clock::now();
    pool.reset();
    EXPECT_LT(steady_clock::now() - began, deadline);
    again.answer();
    waitpid(-1, nullptr, 0);
}

TEST_F(readings_pool_test, a_stop_ends_the_round_and_the_next_one_waits)
{
    add_gpus(2);
    const std::string node = host.hwmon(1, "temp1_input");
    host.link(node, "stuck");
    reader_pool pool({.deadline = patience});
    const auto began = steady_clock::now();
    const answers cut = pool.round(sensors, {}, open("/dev/null", O_RDONLY)); // which is readable, as a stop is
    EXPECT_LT(steady_clock::now() - began, patience / 2);
    ASSERT_EQ(cut.size(), 2u);
    EXPECT_EQ(cut[1].state, gpu_state::stuck);
    EXPECT_EQ(cut[1].detail, "not waited for");
    host.write(node, "66\n");
    EXPECT_EQ(round(pool), "0 ok, 1 ok");
    EXPECT_EQ(said[1][field_of("temperature")], value(std::uint64_t{66}));
    EXPECT_EQ(round(pool, sensors, {1}), "1 ok");
}

// ---- crashed

TEST_F(readings_pool_test, a_reader_that_fails_is_told_and_started_anew)
{
    add_gpus(1);
    const std::pair<const char *, const char *> cases[] = {{"segfault", "signal 11 (Segmentation fault)"},
                                                           {"exit", "the reader ended with 3"},
                                                           {"garbage", "the reader's answer makes no sense"},
                                                           {"another's answer", "the reader's answer makes no sense"},
                                                           {"half an answer", "the reader ended with 0"}};
    for (const auto &[how, detail] : cases) {
        SCOPED_TRACE(how);
        reader_pool pool({.deadline = deadline, .extensions = extensions});
        EXPECT_EQ(round(pool), "0 ok");
        EXPECT_EQ(round(pool, to(how)), "0 crashed");
        EXPECT_EQ(said[0].detail, detail);
        EXPECT_EQ(said[0][field_of("model")], value("VEK M310"));
        EXPECT_EQ(said[0][field_of("power")], value(missing{reason::crashed}));
        siginfo_t child{};
        const auto began = steady_clock::now();
        while (waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               steady_clock::now() - began < 5 * deadline) {
            pool.advance();
            std::this_thread::sleep_for(milliseconds(5));
        }
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1); // nobody is left
        EXPECT_EQ(errno, ECHILD);
    }
}

TEST_F(readings_pool_test, one_that_crashes_again_and_again_is_started_ever_less_often)
{
    add_gpus(1);
    reader_pool pool({.deadline = deadline});
    EXPECT_EQ(round(pool), "0 ok");
    for (const auto pause : {milliseconds(1000), milliseconds(2000)}) {
        ASSERT_EQ(readers().size(), 1u);
        kill(readers().front(), SIGKILL);
        ASSERT_TRUE(is_told(pool));
        const auto began = steady_clock::now();
        std::string state;
        while ((state = round(pool)) == "0 crashed") {
            EXPECT_EQ(said[0].detail, "signal 9 (Killed)");
            std::this_thread::sleep_for(milliseconds(20));
        }
        EXPECT_GE(steady_clock::now() - began, pause - milliseconds(50));
        EXPECT_EQ(state, "0 ok");
    }
}

TEST_F(readings_pool_test, without_the_right_to_fork_each_gpu_says_so)
{
    add_gpus(2);
    host.write("/sys/class/drm/card9/device/vendor", "0x1b36\n");
    fs::permissions(host.root(), fs::perms(0755));
    const auto limited = [this] {
        const rlimit none{0, 0};
        if (setrlimit(RLIMIT_NPROC, &none) != 0 || (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0))
            return 2;
        reader_pool pool({.deadline = deadline});
        const bool told = round(pool) == "0 crashed, 1 crashed" &&
                          said[0].detail == "no reader could be started: Resource temporarily unavailable";
        return told ? 0 : 1;
    };
    EXPECT_EQ(in_child(limited), 0);
}

// ---- lost, asleep, not ours

TEST_F(readings_pool_test, an_index_means_the_same_card_for_ever)
{
    add_gpus(2);
    const std::string config = host.pci_device(1) + "/config", before = host.read(config);
    reader_pool pool({.deadline = deadline});
    EXPECT_EQ(round(pool), "0 ok, 1 ok");

    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    const rlimit none{3, files.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(round(pool), "0 ok, 1 ok") << "a folder that cannot be opened tells of no loss";
    setrlimit(RLIMIT_NOFILE, &files);

    host.lose_card(0);
    EXPECT_EQ(round(pool), "0 lost, 1 ok");
    EXPECT_EQ(said[0].detail, "its card left /sys/class/drm");
    EXPECT_EQ(said[0][field_of("model")], value("VEK M310"));
    EXPECT_EQ(said[0][field_of("power")], value(missing{reason::lost}));
    host.add_gpu({.card = 7}); // behind the others, then among them
    host.add_gpu({.card = 5});
    EXPECT_EQ(round(pool), "0 lost, 1 ok, 2 ok, 3 ok");
    host.return_card(0);
    host.write(config, std::string(before.size(), '\xff'));
    EXPECT_EQ(round(pool), "0 ok, 1 lost, 2 ok, 3 ok");
    EXPECT_EQ(said[1].detail, "its configuration space reads all ones");
    reader_pool late({.deadline = deadline});
    round(late);
    EXPECT_EQ(said[1][field_of("model")], value(missing{reason::lost}));
    host.write(config, before);
    EXPECT_EQ(round(pool), "0 ok, 1 ok, 2 ok, 3 ok");
    EXPECT_EQ(said[2].card, 5u); // found together, in the order of their numbers
    EXPECT_EQ(said[3].card, 7u);
    EXPECT_EQ(said[3].bus_id, host.config(2).pci_address);
    fs::rename(host.path(host.card(1)), host.path("/sys/class/drm/card8")); // bound anew
    EXPECT_EQ(round(pool), "0 ok, 1 ok, 2 ok, 3 ok");
    EXPECT_EQ(said[1].card, 8u);
}

TEST_F(readings_pool_test, one_that_sleeps_is_not_woken_unless_told)
{
    add_gpus(3);
    host.write(host.card(1, runtime_status), "suspended\n");
    host.remove(host.card(2, runtime_status)); // is awake
    host.write("/sys/class/drm/card9/device/vendor", "0x1b36\n");
    host.write("/sys/class/drm/card9/device/power/runtime_status", "suspended\n");
    {
        reader_pool pool({.deadline = deadline});
        EXPECT_EQ(round(pool), "0 ok, 1 asleep, 2 ok");
        EXPECT_EQ(readers().size(), 2u);
        EXPECT_EQ(said[1][field_of("power")], value(missing{reason::asleep}));
        EXPECT_EQ(said[1].detail, "the device is suspended");
        host.write(host.card(1, runtime_status), "active\n");
        host.write(host.card(0, runtime_status), "suspended\n");
        EXPECT_EQ(round(pool), "0 asleep, 1 ok, 2 ok");
        EXPECT_EQ(said[0][field_of("model")], value("VEK M310"));
    }
    reader_pool pool({.deadline = deadline, .wake = true});
    EXPECT_EQ(round(pool), "0 ok, 1 ok, 2 ok");
}

TEST_F(readings_pool_test, cards_that_are_not_ours_are_left_out)
{
    const std::string drm = "/sys/class/drm/card";
    for (int i = 0; i < 64; ++i)
        host.write(drm + std::to_string(i) + "/device/vendor", "0x1b36\n");
    host.link(drm + "64", "../../devices/none");
    host.link(drm + "65/device", "../../../none");
    host.make_directory(drm + "66");
    host.write(drm + "67/device/vendor", "");
    for (const char *other : {"x", "70-HDMI-A-1", "-1", "99999999999999999999"})
        host.write(drm + other + "/device/vendor", "0x7665\n");
    host.add_gpu({.card = 70});
    reader_pool pool({.deadline = deadline});
    for (int times = 0; times < 3; ++times)
        EXPECT_EQ(round(pool), "0 ok");
    EXPECT_EQ(said.front().card, 70u);
    EXPECT_EQ(readers().size(), 1u);
    host.remove("/sys/class/drm");
    EXPECT_EQ(round(pool), "0 lost");
}

TEST_F(readings_pool_test, without_the_driver_as_many_as_are_on_the_bus)
{
    for (int i = 0; i < 3; ++i)
        host.add_bare_gpu();
    host.set_euid(0);
    host.set_modules("");
    reader_pool pool({.deadline = deadline, .out_of_band = true});
    EXPECT_EQ(round(pool), "0 ok, 1 ok, 2 ok");
    for (const answer &one : said) {
        EXPECT_TRUE(one.driverless);
        EXPECT_FALSE(one.card);
        EXPECT_EQ(one.bus_id, host.config(static_cast<int>(one.index)).pci_address);
        EXPECT_TRUE(is_present(one[field_of("temperature")]));
    }
}

// ---- processes

TEST_F(readings_pool_test, a_reader_has_nothing_of_its_programs)
{
    add_gpus(2);
    const int kept = open("/dev/null", O_RDONLY); // no close-on-exec
    const std::string printed = standard_output([&] {
        std::printf("once\n"); // still in the buffer
        reader_pool pool({.deadline = deadline, .extensions = extensions});
        EXPECT_EQ(round(pool, to("print")), "0 ok, 1 ok");
        EXPECT_NE(said[1].printed.find("on standard output\n"), std::string::npos);
        EXPECT_NE(said[1].printed.find("on standard error\n"), std::string::npos);
        EXPECT_EQ(round(pool), "0 ok, 1 ok");
        EXPECT_EQ(said[1].printed.find("on standard"), std::string::npos);
        for (const pid_t reader : readers()) {
            std::vector<std::string> descriptors;
            for (const auto &entry : fs::directory_iterator("/proc/" + std::to_string(reader) + "/fd"))
                descriptors.push_back(entry.path().filename());
            std::sort(descriptors.begin(), descriptors.end());
            EXPECT_EQ(descriptors, (std::vector<std::string>{"0", "1", "2", "3"}));
            EXPECT_EQ(getsid(reader), reader);
        }
    });
    EXPECT_EQ(printed, "once\n");
    EXPECT_TRUE(readers().empty());
    close(kept);
}

TEST_F(readings_pool_test, readers_go_with_a_program_that_is_killed)
{
    add_gpus(2);
    host.link(host.hwmon(1, "temp1_input"), "stuck");
    const pid_t program = fork();
    if (program == 0) {
        reader_pool pool({.deadline = deadline});
        pool.round(sensors);
        raise(SIGSTOP);
    }
    EXPECT_EQ(waitpid(program, nullptr, WUNTRACED), program);
    std::vector<pollfd> ends;
    for (const pid_t reader : readers(program))
        ends.push_back({static_cast<int>(syscall(SYS_pidfd_open, reader, 0)), POLLIN, 0});
    ASSERT_EQ(ends.size(), 2u);
    kill(program, SIGKILL);
    EXPECT_EQ(waitpid(program, nullptr, 0), program);
    for (pollfd &end : ends) {
        EXPECT_EQ(poll(&end, 1, patience.count()), 1) << "one is left, perhaps the one that hangs";
        close(end.fd);
    }
}

} // namespace
