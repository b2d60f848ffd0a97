// SPDX-License-Identifier: Apache-2.0
// Faults that are edits of a tree: what fails, and what never answers.
#include "support/host_files.h"
#include "support/silent_node.h"
#include "support/sim_host.h"

#include <array>
#include <chrono>
#include <csignal>
#include <future>
#include <sys/stat.h>
#include <sys/wait.h>

namespace {

using sim_fault_test = sim_host;

// What a client reads of a node, as one that reads it twice; "errno 5" when it fails.
std::string reading_of(const std::string &path)
{
    std::array<char, 64> text{};
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ssize_t size = fd < 0 ? -1 : pread(fd, text.data(), text.size(), 0);
    size = size < 0 ? -1 : pread(fd, text.data(), text.size(), 0);
    std::string result =
        size < 0 ? "errno " + std::to_string(errno) : std::string(text.data(), static_cast<std::size_t>(size));
    close(fd);
    return result;
}

TEST_F(sim_fault_test, a_node_hangs_until_it_is_let_go)
{
    host.add_gpu();
    host.instant_pauses();
    const std::string node = host.hwmon(0, "temp1_input");
    const std::pair<const char *, std::function<void()>> faults[] = {
        {"reading", [&] { host.stick(node); }},
        {"opening", [&] { host.link(node, "stuck:open"); }},
        {"entry", [&] { host.write("/host/stuck" + node, ""); }},
        {"card", [&] { host.write("/host/stuck/sys/class", ""); }},
        {"pipe", [&] { host.remove(node), mkfifo(host.path(node).c_str(), 0644); }}};
    for (const auto &[name, hold] : faults) {
        hold();
        struct stat info {};
        EXPECT_EQ(stat(node.c_str(), &info) + access(node.c_str(), R_OK), 0) << name;
        EXPECT_TRUE(S_ISREG(info.st_mode)) << name;
        auto reading = std::async(std::launch::async, reading_of, node);
        const pid_t child = fork();
        if (child == 0)
            _exit(reading_of(node).empty());
        EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(60)), std::future_status::timeout) << name;
        EXPECT_EQ(slurp(host.card(0, "device/power/runtime_status")), "active\n") << "which no driver answers";
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, WNOHANG), 0) << name;
        kill(child, SIGKILL);
        EXPECT_EQ(waitpid(child, &status, 0), child) << name;
        if (name == std::string("pipe"))
            std::ofstream(host.path(node)) << "51\n";
        else
            host.write(node, "51\n");
        host.remove("/host/stuck");
        EXPECT_EQ(reading.get(), "51\n") << name;
        host.write(node, "48\n");
        EXPECT_EQ(reading_of(node), "48\n");
    }
    host.fail_reads(node, EIO);
    EXPECT_EQ(open_error(node, O_RDONLY), 0);
    EXPECT_EQ(reading_of(node), "errno 5");

    host.stick(node);
    auto reading = std::async(std::launch::async, reading_of, node);
    EXPECT_EQ(reading.wait_for(std::chrono::milliseconds(60)), std::future_status::timeout);
    host.lose_card(0);
    host.remove(host.pci_device() + node.substr(host.card(0, "device").size()));
    EXPECT_EQ(reading.get(), "errno " + std::to_string(ENODEV));
}

TEST_F(sim_fault_test, a_silent_node_cannot_be_left_by_dying)
{
    host.add_gpu();
    const std::string node = host.hwmon(0, "temp1_input");
    const pid_t child = [&] {
        const silent_node silent(host.path(node), "51\n");
        if (!silent)
            return -1;
        const pid_t reader = fork();
        if (reader == 0)
            _exit(reading_of(node) == "51\n" ? 7 : 8);
        const auto state = [&] { return slurp("/proc/" + std::to_string(reader) + "/wchan"); };
        for (int i = 0; i < 200 && state() == "0"; ++i)
            usleep(10000);
        usleep(50000);
        kill(reader, SIGKILL);
        usleep(100000);
        EXPECT_EQ(waitpid(reader, nullptr, WNOHANG), 0);
        silent.answer();
        return reader;
    }();
    if (child < 0)
        GTEST_SKIP() << "no node can be made to hang for good here";
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
}

} // namespace
