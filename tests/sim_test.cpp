// SPDX-License-Identifier: Apache-2.0
// The simulated host itself: everything else in the suite stands on it.
#include "build_paths.h"
#include "support/silent_node.h"
#include "support/sim_host.h"

#include "driver_model.h"
#include "veksim.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <glob.h>
#include <pciaccess.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xf86drm.h>

namespace {

using sim_test = sim_host;

std::string slurp(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The error number of opening PATH so, 0 when it opens.
int open_error(const std::string &path, int flags)
{
    int fd = open(path.c_str(), flags, 0644);
    if (fd < 0)
        return errno;
    close(fd);
    return 0;
}

int store(const std::string &path, const std::string &text, int flags = O_RDWR)
{
    int fd = open(path.c_str(), flags, 0644);
    ssize_t written = write(fd, text.data(), text.size());
    int error = written < 0 ? errno : 0;
    close(fd);
    return error;
}

std::vector<std::uint32_t> numbers(const std::string &text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::uint32_t>(stream), {}};
}

TEST_F(sim_test, paths_lead_into_the_tree_and_no_further)
{
    host.add_gpu();
    host.write("/proc/4000001/comm", "player\n");
    const std::string node = host.card(0, "device/vendor");
    EXPECT_EQ(slurp(node), "0x7665\n");
    EXPECT_EQ(slurp("/proc/4000001/comm"), "player\n");
    EXPECT_EQ(open_error("/sys/class/drm/card7/device/vendor", O_RDONLY), ENOENT);
    EXPECT_EQ(open_error("/sys/class/drmx", O_RDONLY), ENOENT);
    EXPECT_EQ(open_error("/proc/self/status", O_RDONLY), 0);
    std::array<char, PATH_MAX> resolved{};
    EXPECT_STREQ(realpath("/sys/dev/char/226:0/device/vendor", resolved.data()),
                 (host.pci_device() + "/vendor").c_str());

    EXPECT_EQ(slurp("/sys//class/./drm/card0/device/vendor"), "0x7665\n");
    glob_t cards{};
    EXPECT_EQ(glob("/dev/dri/card[0-9]", 0, nullptr, &cards), 0);
    globfree(&cards);

    host.write("/tmp/smi.log", "line\n");
    EXPECT_EQ(std::rename("/tmp/smi.log", "/tmp/smi.log"), 0);
    EXPECT_EQ(std::remove("/tmp/smi.log"), 0);
    EXPECT_FALSE(host.exists("/tmp/smi.log"));
    host.link("/tmp/smi.log", "/dev/null");
    EXPECT_EQ(open_error("/tmp/smi.log", O_WRONLY | O_NOFOLLOW), ELOOP);
    veksim_use(nullptr);
    EXPECT_NE(slurp(node), "0x7665\n");
}

TEST_F(sim_test, relative_paths_lead_there_too)
{
    host.add_gpu();
    host.set_live(true);
    const std::string node = host.hwmon(0, "temp1_max");
    const std::pair<const char *, const char *> cases[] = {
        {"/sys/class/drm/card0", "device/hwmon/hwmon1/temp1_max"},
        {"/sys/class/drm", ".//card0/device/hwmon/hwmon1/temp1_max"},
        {"/sys/class/drm/card0/device", "../0000:03:00.0/hwmon/hwmon1/temp1_max"},
        {"/dev/dri", "../../sys/class/drm/card0/device/hwmon/hwmon1/temp1_max"}};
    const int home = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    std::array<char, PATH_MAX> seen{};
    for (const auto &[directory, path] : cases) {
        const int start = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const int fd = openat(start, path, O_WRONLY | O_TRUNC);
        EXPECT_EQ(write(fd, "1", 1), 1);
        EXPECT_EQ(slurp(node), "1\n") << path;
        EXPECT_LT(openat(start, (std::string(path) + "_").c_str(), O_WRONLY | O_CREAT, 0644), 0);
        EXPECT_EQ(chdir(directory), 0);
        EXPECT_EQ(std::string(getcwd(seen.data(), seen.size())), std::filesystem::canonical(directory));
        EXPECT_EQ(store(path, "23"), 0);
        EXPECT_EQ(slurp(node), "23\n") << path;
        close(fd);
        close(start);
    }
    struct stat info {};
    EXPECT_EQ(stat("card0", &info), 0);
    EXPECT_TRUE(S_ISCHR(info.st_mode));
    EXPECT_EQ(fchdir(home), 0);
    close(home);
}

extern "C" {
int __open_2(const char *path, int flags);
int __openat_2(int directory, const char *path, int flags);
char *__realpath_chk(const char *path, char *resolved, std::size_t size);
ssize_t __readlinkat_chk(int directory, const char *path, char *buffer, std::size_t size, std::size_t room);
}

TEST_F(sim_test, fortified_programs_are_led_there_too)
{
    host.add_gpu();
    std::array<char, PATH_MAX> text{};
    for (int fd : {__open_2("/dev/dri/card0", O_RDONLY), __openat_2(-1, "/dev/dri/card0", O_RDONLY)}) {
        const std::string link = "/proc/self/fd/" + std::to_string(fd);
        text[static_cast<std::size_t>(__readlinkat_chk(-1, link.c_str(), text.data(), 99, text.size()))] = '\0';
        EXPECT_STREQ(text.data(), "/dev/dri/card0");
        close(fd);
    }
    EXPECT_STREQ(__realpath_chk("/sys/dev/char/226:0", text.data(), text.size()),
                 (host.pci_device() + "/drm/card0").c_str());
}

TEST_F(sim_test, each_write_is_a_nodes_new_value)
{
    host.add_gpu();
    const std::string node = host.hwmon(0, "temp1_max");
    struct {
        std::string text;
        int flags;
    } const stores[] = {
        {"12345", O_RDWR}, {"85", O_WRONLY}, {"9", O_WRONLY | O_APPEND}, {"7", O_WRONLY | O_CREAT | O_TRUNC}};
    for (const auto &[text, flags] : stores) {
        EXPECT_EQ(store(node, text, flags), 0);
        EXPECT_EQ(slurp(node), text);
    }
    EXPECT_EQ(open_error(node, O_WRONLY | O_TRUNC), 0);
    EXPECT_EQ(slurp(node), "7");
    EXPECT_EQ(open_error(host.hwmon(0, "no_node"), O_WRONLY | O_CREAT), ENOENT);

    host.set_live(true);
    EXPECT_EQ(store(node, "9"), 0);
    EXPECT_EQ(slurp(node), "9\n");

    for (const char *mode : {"w", "a", "r+"}) {
        store(node, "12345");
        std::FILE *stream = std::fopen(node.c_str(), mode);
        host.write(node, "driver\n"); // replaced while a client holds it open
        std::fputs("8", stream);
        EXPECT_EQ(std::fclose(stream), 0);
        EXPECT_EQ(slurp(node), "8\n") << mode;
    }
    int fd = open(node.c_str(), O_WRONLY);
    EXPECT_EQ(dprintf(fd, "%d", 90), 2);
    EXPECT_EQ(slurp(node), "90\n");
    char digits[] = "12";
    const iovec pieces[] = {{digits, 1}, {digits + 1, 1}};
    EXPECT_EQ(writev(fd, pieces, 2), 2);
    EXPECT_EQ(slurp(node), "12\n");
    int copy = dup(fd);
    close(fd);
    host.write(node, "driver\n");
    EXPECT_EQ(write(copy, "66", 2), 2);
    close(copy);
    EXPECT_EQ(slurp(node), "66\n");
}

TEST_F(sim_test, faults_are_edits_of_the_tree)
{
    host.add_gpu();
    const std::string node = host.hwmon(0, "in0_input");
    host.set_mode(node, 0444);
    EXPECT_EQ(access(node.c_str(), W_OK), -1);
    EXPECT_EQ(open_error(node, O_RDWR), EACCES);
    EXPECT_EQ(open_error(node, O_RDONLY), 0);
    host.fail_writes(node);
    EXPECT_EQ(store(node, "850"), ENOSPC);
    host.fail(node, EACCES);
    EXPECT_EQ(open_error(node, O_RDONLY), EACCES);
    host.make_directory(node);
    int fd = open(node.c_str(), O_RDONLY);
    char byte = 0;
    EXPECT_EQ(read(fd, &byte, 1), -1);
    close(fd);
}

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

TEST_F(sim_test, a_node_hangs_until_it_is_let_go)
{
    host.add_gpu();
    host.instant_pauses();
    const std::string node = host.hwmon(0, "temp1_input"), entry = "/host/stuck" + node;
    struct {
        const char *name;
        std::function<void()> hold, let_go;
    } const faults[] = {{"reading", [&] { host.stick(node); }, [&] { host.write(node, "51\n"); }},
                        {"opening", [&] { host.link(node, "stuck:open"); }, [&] { host.write(node, "51\n"); }},
                        {"entry",
                         [&] {
                             host.write(entry, "");
                             host.write(node, "51\n");
                         },
                         [&] { host.remove(entry); }},
                        {"card",
                         [&] {
                             host.write("/host/stuck/sys/class", "");
                             host.write(node, "51\n");
                         },
                         [&] { host.remove("/host/stuck/sys/class"); }},
                        {"pipe",
                         [&] {
                             host.remove(node);
                             mkfifo(host.path(node).c_str(), 0644);
                         },
                         [&] { std::ofstream(host.path(node)) << "51\n"; }}};
    for (const auto &[name, hold, let_go] : faults) {
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
        let_go();
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

TEST_F(sim_test, a_silent_node_cannot_be_left_by_dying)
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

TEST_F(sim_test, a_card_is_lost_and_returns_under_a_living_driver)
{
    host.add_gpu();
    host.add_gpu();
    veksim::driver_model model(host);
    const std::string node = host.card(1, "device/gpu_util_info");
    const auto cards = [] { return std::distance(std::filesystem::directory_iterator("/sys/class/drm"), {}); };
    const auto whole = cards();
    const std::string before = slurp(node);
    host.lose_card(1);
    model.tick(1);
    EXPECT_EQ(cards(), whole - 1);
    EXPECT_EQ(open_error(node, O_RDONLY), ENOENT);
    EXPECT_EQ(open_error("/dev/dri/card1", O_RDONLY), ENOENT);
    host.return_card(1);
    EXPECT_EQ(slurp(node), before);
    model.tick(1);
    EXPECT_NE(slurp(node), before);
    EXPECT_EQ(cards(), whole);
}

TEST_F(sim_test, a_device_is_on_the_bus_as_on_a_real_host)
{
    veksim::gpu_config config;
    config.pci_address = "0001:a3:00.0";
    config.subsystem_device_id = 0x12;
    config.current_link_speed = "8.0 GT/s PCIe";
    config.current_link_width = 4;
    config.numa_node = 1;
    veksim::gpu_state state;
    state.aer_totals = {12, 3, 4};
    host.add_gpu(config, state);
    const std::string device = host.card(0, "device");
    EXPECT_EQ(std::filesystem::read_symlink(device).filename(), config.pci_address);
    EXPECT_EQ(std::filesystem::canonical(device), host.pci_bridge() + "/0001:a3:00.0");
    EXPECT_EQ(std::filesystem::canonical("/sys/bus/pci/devices/0001:a3:00.0"), host.pci_device());
    const std::pair<const char *, const char *> nodes[] = {{"power/runtime_status", "active\n"},
                                                           {"power/control", "auto\n"},
                                                           {"power_state", "D0\n"},
                                                           {"numa_node", "1\n"},
                                                           {"local_cpulist", "0-7\n"},
                                                           {"current_link_width", "4\n"},
                                                           {"class", "0x030000\n"},
                                                           {"../vendor", "0x1b36\n"},
                                                           {"../device", "0x000c\n"},
                                                           {"../current_link_speed", "8.0 GT/s PCIe\n"}};
    for (const auto &[node, text] : nodes)
        EXPECT_EQ(slurp(device + "/" + node), text) << node;
    const std::pair<const char *, const char *> errors[] = {{"correctable", "TOTAL_ERR_COR 12\n"},
                                                            {"fatal", "TOTAL_ERR_FATAL 3\n"},
                                                            {"nonfatal", "TOTAL_ERR_NONFATAL 4\n"}};
    for (const auto &[kind, line] : errors)
        EXPECT_TRUE(slurp(device + "/aer_dev_" + kind).ends_with(line)) << kind;

    ASSERT_EQ(pci_system_init(), 0);
    pci_device *found = pci_device_find_by_slot(1, 0xa3, 0, 0);
    ASSERT_NE(found, nullptr);
    std::uint16_t link = 0;
    std::uint32_t capability = 0;
    EXPECT_EQ(pci_device_probe(found), 0);
    EXPECT_EQ(pci_device_cfg_read_u16(found, &link, 0x50 + 0x12), 0);
    EXPECT_EQ(pci_device_cfg_read_u32(found, &capability, 0x50 + 0x0C), 0);
    EXPECT_EQ(link & 0x3FF, (4 << 4) | 3);
    EXPECT_EQ(capability & 0x3FF, (8U << 4) | 4);
    EXPECT_EQ(found->subdevice_id, config.subsystem_device_id);
    EXPECT_EQ(slurp(device + "/../config")[0x19], '\xa3') << "the bus behind the bridge";
    pci_system_cleanup();
}

struct information_block {
    void *address;
    std::uint32_t size;
    std::uint32_t selector;
};

int inform(int fd, unsigned request, unsigned selector, void *reply, std::uint32_t size = 0x7FFFFFFF)
{
    information_block block{reply, size, selector};
    return ioctl(fd, request, &block) == 0 ? 0 : errno;
}

TEST_F(sim_test, a_card_node_answers_as_the_driver_does)
{
    veksim::gpu_config config;
    config.card = 2;
    host.add_gpu(config);
    host.set_processes(0, {{4000001, "player", 4096, 8192}});
    int fd = open("/dev/dri/card2", O_RDWR | O_CLOEXEC);
    struct stat info {};
    ASSERT_EQ(fstat(fd, &info), 0);
    EXPECT_TRUE(S_ISCHR(info.st_mode));
    EXPECT_EQ(info.st_rdev, makedev(226, 2));
    EXPECT_EQ(drmGetNodeTypeFromFd(fd), DRM_NODE_PRIMARY);
    drmVersionPtr version = drmGetVersion(fd);
    ASSERT_NE(version, nullptr);
    EXPECT_STREQ(version->name, "vekgpu");
    drmFreeVersion(version);

    std::array<std::uint32_t, 40> facts;
    facts.fill(0xAAAAAAAA);
    EXPECT_EQ(inform(fd, 0xC010644B, 0, facts.data()), 0);
    EXPECT_EQ(facts[1], config.core_count);
    EXPECT_EQ(facts[9], config.device_id);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(&facts[11])), config.static_text);
    EXPECT_EQ(facts[29], config.memory_package);
    EXPECT_EQ(facts[30], 0xAAAAAAAA);

    std::array<std::uint64_t, 43> counters{};
    EXPECT_EQ(inform(fd, 0xC010644C, 2, counters.data()), 0);
    EXPECT_EQ(counters[1], host.state(0).gpu.active);
    EXPECT_EQ(counters[5 + 3], host.state(0).masters[3].active);
    EXPECT_EQ(counters[32 + 8], host.state(0).masters[8].cumulative);
    EXPECT_EQ(counters[42], 0U);

    std::array<std::int64_t, 46> entries;
    entries.fill(-1);
    EXPECT_EQ(inform(fd, 0xC010644C, 1, entries.data(), sizeof entries), 0);
    EXPECT_EQ(entries[0], 4000001);
    EXPECT_EQ(entries[1 + 12], 4096);
    EXPECT_EQ(entries[1 + 20], 8192);
    EXPECT_EQ(entries[23], 0);
    EXPECT_EQ(slurp("/proc/4000001/status").substr(0, 13), "Name:\tplayer\n");

    host.write(host.request(0, veksim::process_request), "hex ff 01\nu16 513\nzero 100001 # capped\nu8 1\n");
    EXPECT_EQ(inform(fd, 0xC010644C, 1, entries.data(), 4), 0);
    EXPECT_EQ(entries[0], 0x020101FF);
    host.fail_request(0, veksim::process_request, EBUSY);
    EXPECT_EQ(inform(fd, 0xC010644C, 1, entries.data()), EBUSY);
    EXPECT_EQ(inform(fd, 0xC010644C, 9, entries.data()), ENOTTY);
    close(fd);
}

TEST_F(sim_test, commands_see_the_trees_modules_and_packages)
{
    host.add_gpu();
    auto first_line = [](const char *command) {
        std::FILE *pipe = popen(command, "r");
        std::array<char, 256> line{};
        std::string text = std::fgets(line.data(), line.size(), pipe) != nullptr ? line.data() : "";
        return std::pair(text, pclose(pipe));
    };
    EXPECT_EQ(first_line("lsmod | grep vekgpu").first.rfind("vekgpu ", 0), 0U);
    EXPECT_EQ(first_line("dpkg -l | grep vekgpu").first.rfind("ii  vekgpu-driver  1.4.0-2", 0), 0U);
    host.set_modules("drm 1 0\n");
    EXPECT_EQ(first_line("lsmod | grep vekgpu"), std::pair(std::string(), 1 << 8));
    EXPECT_EQ(first_line("echo \"${LD_PRELOAD-none}\"").first, "none\n");
}

TEST_F(sim_test, pauses_are_instant_and_move_the_clock)
{
    host.instant_pauses();
    host.set_euid(1000);
    EXPECT_EQ(geteuid(), 1000U);
    std::vector<std::string> heard;
    veksim_on_pause(
        [](void *list, const char *what) { static_cast<std::vector<std::string> *>(list)->push_back(what); }, &heard);
    timeval before{};
    gettimeofday(&before, nullptr);
    sleep(100);
    usleep(500000);
    veksim_advance(10000000);
    timeval after{};
    gettimeofday(&after, nullptr);
    double passed =
        static_cast<double>(after.tv_sec - before.tv_sec) + static_cast<double>(after.tv_usec - before.tv_usec) / 1e6;
    EXPECT_GE(passed, 110.5);
    EXPECT_LT(passed, 120.0);
    EXPECT_GE(time(nullptr) - before.tv_sec, 110);
    EXPECT_EQ(host.pauses(), (std::vector<std::string>{"sleep 100", "usleep 500000"}));
    EXPECT_EQ(heard, host.pauses());
}

TEST_F(sim_test, the_driver_follows_what_is_written)
{
    host.add_gpu(veksim::sample_gpu(0));
    host.add_gpu(veksim::sample_gpu(1));
    veksim::driver_model model(host);
    auto run_for = [&](int seconds) {
        for (int i = 0; i < seconds; ++i)
            model.tick(1);
    };
    auto reading = [&](int gpu, const char *node) { return std::stoi(host.read(host.hwmon(gpu, node))); };

    store(host.hwmon(0, "fan1_target"), "100");
    store(host.hwmon(1, "pwm1"), "1950");
    store(host.hwmon(0, "vek_gfx_freq_mhz"), "700000000");
    model.tick(0);
    EXPECT_EQ(host.read(host.hwmon(0, "vek_gfx_freq_mhz")), "700\n");
    run_for(20);
    EXPECT_NEAR(reading(0, "fan1_input"), 4800, 5);
    EXPECT_NEAR(reading(1, "fan1_input"), 900, 5);
    EXPECT_EQ(reading(0, "vek_gfx_freq_mhz"), 700);
    EXPECT_GT(reading(1, "temp1_input"), reading(0, "temp1_input")); // the slower fan
    store(host.hwmon(0, "power1_cap"), "5");
    run_for(10);
    EXPECT_LE(reading(0, "power1_average"), 6);

    auto memory = numbers(host.read(host.card(0, "device/gpu_util_info")));
    auto reply = numbers(host.read(host.request(0, veksim::utilisation_request)).substr(sizeof "u64 1\nu64"));
    EXPECT_EQ(std::vector(memory.begin() + 1, memory.begin() + 5), reply); // both tell the same moment
    host.remove(host.hwmon(0, "temp1_input"));
    std::string before = host.read(host.card(0, "device/gpu_util_info"));
    run_for(1);
    EXPECT_FALSE(host.exists(host.hwmon(0, "temp1_input")));
    EXPECT_NE(host.read(host.card(0, "device/gpu_util_info")), before);
}

TEST_F(sim_test, a_host_without_the_driver_has_pci_devices_and_firmware)
{
    veksim::gpu_state state;
    state.fan_rpm = 1234;
    host.add_bare_gpu(veksim::sample_gpu(0), state);
    host.add_bare_gpu(veksim::sample_gpu(1));
    ASSERT_EQ(pci_system_init(), 0);
    std::vector<std::uint64_t> windows;
    pci_device_iterator *devices = pci_id_match_iterator_create(nullptr);
    while (pci_device *device = pci_device_next(devices)) {
        if (pci_device_probe(device) == 0 && device->vendor_id == VEKGPU_PCI_VENDOR_ID) {
            EXPECT_EQ(device->device_class, 0x030000U);
            EXPECT_EQ(device->regions[0].size, 0x2000000U);
            windows.push_back(device->regions[0].base_addr);
        }
    }
    pci_iterator_destroy(devices);
    pci_system_cleanup();
    ASSERT_EQ(windows.size(), 2U);

    int fd = open("/dev/mem", O_RDWR | O_SYNC);
    void *bar = mmap(nullptr, 0x2000000, PROT_READ, MAP_SHARED, fd, static_cast<off_t>(windows[0]));
    close(fd);
    ASSERT_NE(bar, MAP_FAILED);
    const volatile auto *fan = reinterpret_cast<std::uint32_t *>(static_cast<char *>(bar) + 0x13FF80C);
    EXPECT_EQ(*fan, 1234U);
    state.fan_rpm = 2345;
    host.set_state(0, state);
    EXPECT_EQ(*fan, 2345U);
    munmap(bar, 0x2000000);
}

TEST(veksim_launcher, gives_the_commands_status)
{
    const environment native{{"VEKSIM_EMULATOR", ""}}; // the commands below belong to the machine we run on
    struct {
        std::vector<std::string> arguments;
        int status;
    } const cases[] = {
        {{"--", "sh", "-c", "exit 7"}, 7},
        {{"--gpus", "1", "--still", "--", "sh", "-c", "kill -9 $$"}, 128 + 9},
        {{"--no-driver", "--", "true"}, 0},
        {{"--", "/no/such/command"}, 127},
        {{"--gpus", "0", "--", "true"}, 0},
        {{"--gpus", "17", "--", "true"}, 1},
        {{"--unknown"}, 1},
        {{}, 1},
    };
    for (const auto &[arguments, status] : cases) {
        std::vector<std::string> argv{VEKSIM_PATH};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        run_result result = run(argv, native);
        EXPECT_EQ(result.status, status) << ::testing::PrintToString(arguments) << result.err;
        if (EMULATOR[0] == '\0') { // a foreign program complains about what it cannot preload
            EXPECT_EQ(result.err.empty(), status != 1 && status != 127) << result.err;
        }
    }
}

TEST(veksim_launcher, keeps_a_named_tree_and_uses_it_again)
{
    veksim::host_tree scratch;
    const std::string tree = (scratch.root() / "tree").string();
    const environment native{{"VEKSIM_EMULATOR", ""}};
    EXPECT_EQ(run({VEKSIM_PATH, "--tree", tree, "--gpus", "1", "--", "true"}, native).status, 0);
    const std::string node = tree + "/sys/class/drm/card0/vek_product_name";
    std::ofstream(node) << "EDITED\n";
    EXPECT_EQ(run({VEKSIM_PATH, "--tree", tree, "--", "true"}, native).status, 0);
    EXPECT_EQ(slurp(node), "EDITED\n");
}

} // namespace
