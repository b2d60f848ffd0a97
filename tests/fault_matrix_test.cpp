// SPDX-License-Identifier: Apache-2.0
// Every call that reads or writes a node, on hosts where one thing after the other is broken in every way. Each reader
// runs twice on the same host, over different leftovers on stack and heap: what differs then was never written.
#include "build_paths.h"
#include "support/calls.h"
#include "support/sim_host.h"

#include <atomic>
#include <cstring>
#include <malloc.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// Puts a fault in the place of a node, given its healthy text.
using fault = std::function<void(veksim::host_tree &host, const std::string &node, const std::string &healthy)>;
std::string digits_as(const std::string &number, const std::string &text)
{
    std::string changed;
    for (char c : text)
        changed += c >= '0' && c <= '9' ? number : std::string(1, c);
    return changed;
}
const std::string rubbish("\x80%s\0\xff\n\x01 -", 9);
using named_fault = std::pair<const char *, fault>;
const named_fault node_faults[] = {
    {"missing", [](auto &host, auto &node, auto &) { host.remove(node); }},
    {"empty", [](auto &host, auto &node, auto &) { host.write(node, ""); }},
    {"directory", [](auto &host, auto &node, auto &) { host.make_directory(node); }},
    {"unreadable", [](auto &host, auto &node, auto &) { host.fail(node, EACCES); }},
    {"long", [](auto &host, auto &node, auto &) { host.write(node, std::string(1 << 20, '7')); }},
    {"binary", [](auto &host, auto &node, auto &) { host.write(node, rubbish); }},
    {"cut", [](auto &host, auto &node, auto &text) { host.write(node, text.substr(0, text.size() / 2)); }},
    {"negative", [](auto &host, auto &node, auto &text) { host.write(node, digits_as("-7", text)); }},
    {"huge", [](auto &host, auto &node, auto &text) { host.write(node, digits_as("99999999999", text)); }}};

// The last two leave no room for the end of a list or of a text; process 1 is alive.
const std::string replies[] = {"errno 5\n", digits_as("i64 -1\n", std::string(12500, '0')),
                               digits_as("u32 1\ntext 180 " + std::string(180, 'x') + "\n", std::string(544, '0'))};

__attribute__((noinline, no_sanitize("address"))) void litter_stack(int leftovers)
{
    char stack[32768];
    std::memset(stack, leftovers, sizeof stack);
    asm volatile("" : : "r"(stack) : "memory");
}

class fault_test : public sim_host, public testing::WithParamInterface<named_fault> {
protected:
    fault_test()
    {
        host.instant_pauses();
        host.remove("/tmp"); // logging would take most of the time
    }

    void add_gpu_with_everything()
    {
        veksim::gpu_config config;
        config.fan = veksim::fan_kind::pwm;
        veksim::gpu_state state;
        state.processes = {{5000001, "first", 10, 30}, {5000002, "second", 20, 40}};
        host.add_gpu(config, state);
        host.write(host.hwmon(0, "fan1_target"), "50\n");
        host.add_video_libraries();
    }
    // The result and every byte of a call's record and what lies around it.
    std::string outcome(const call &one, int leftovers = 0)
    {
        constexpr std::size_t guard = 64;
        std::string bytes(guard + one.size + guard, '\xA5');
        mallopt(M_PERTURB, leftovers);
        litter_stack(leftovers);
        const int result = one.run(&globals.devices[0], bytes.data() + guard);
        mallopt(M_PERTURB, 0);
        if (bytes.substr(0, guard) + bytes.substr(guard + one.size) != std::string(2 * guard, '\xA5'))
            complaints += std::string(one.name) + " writes outside its record\n";
        return std::to_string(result) + bytes;
    }
    void call_all(vekml_return_t (*begin)(), const std::vector<call> &calls)
    {
        std::vector<std::string> first;
        begin();
        for (const call &one : calls)
            first.push_back(outcome(one, 0x11));
        begin();
        for (std::size_t i = 0; i < calls.size(); ++i)
            complaints += outcome(calls[i], 0xEE) == first[i] ? "" : calls[i].name + " hands out leftovers\n"s;
        for (const call &set : setters)
            outcome(set);
    }
    // Puts the fault in the place of each plain file below a directory, one after the other.
    void break_each(const std::string &directory, const fault &put, vekml_return_t (*begin)(),
                    const std::vector<call> &calls)
    {
        const int descriptor = dup(0);
        close(descriptor);
        const std::vector<fs::path> files(fs::recursive_directory_iterator(host.path(directory)), {});
        for (const fs::path &file : files) {
            if (!fs::is_regular_file(fs::symlink_status(file)))
                continue;
            const std::string node = "/" + fs::relative(file, host.root()).string(), healthy = host.read(node);
            put(host, node, healthy);
            globals.devices[0].vpu_codec_info.valid = directory != "/dev/dri";
            standard_output([&] { call_all(begin, calls); });
            EXPECT_EQ(std::exchange(complaints, ""), "") << node;
            host.write(node, healthy);
        }
        EXPECT_EQ(dup(0), descriptor) << "a descriptor is left open";
        close(descriptor);
    }
    std::string complaints;
};
using reply_fault_test = fault_test;
using vanishing_gpu_test = fault_test;
INSTANTIATE_TEST_SUITE_P(each_node, fault_test, testing::ValuesIn(node_faults),
                         [](const auto &each) { return std::string(each.param.first); });

// Some seconds under sanitizers: every call once for every node.
TEST_P(fault_test, is_survived)
{
    add_gpu_with_everything();
    for (const std::string &directory : {"/sys/devices"s, "/proc"s, "/dev/dri"s})
        break_each(directory, GetParam().second, vekml_init, readers);
    remove_first_choices();
    host.fail_request(0, veksim::utilisation_request, EIO);
    break_each("/sys/kernel/debug", GetParam().second, vekml_init, readers);
}

TEST_P(fault_test, is_survived_without_the_driver)
{
    host.add_bare_gpu();
    const auto restart = [] { return vekml_shutdown(), vekml_out_of_band_init(); };
    break_each("/sys/devices", GetParam().second, restart, readers_without_driver);
}

TEST_F(reply_fault_test, any_reply_is_survived)
{
    add_gpu_with_everything();
    remove_first_choices();
    for (const std::string &reply : replies) {
        const auto put = [&](auto &tree, auto &node, auto &) { tree.write(node, reply); };
        break_each("/host/requests", put, vekml_init, readers);
    }
}

TEST_F(vanishing_gpu_test, readers_survive_it_coming_and_going)
{
    add_gpu_with_everything();
    start();
    const std::string healthy = outcome(readers.back());
    std::atomic<bool> done = false;
    std::thread slot([&] {
        const fs::path here = host.path(host.card()), away = host.path("/away");
        while (!done) {
            fs::rename(here, away);
            fs::rename(away, here);
        }
    });
    standard_output([&] {
        for (int i = 0; i < 30; ++i)
            for (const call &one : readers)
                outcome(one);
    });
    done = true;
    slot.join();
    EXPECT_EQ(complaints, "");
    EXPECT_TRUE(outcome(readers.back()) == healthy);
}

} // namespace
