// SPDX-License-Identifier: Apache-2.0
// The simulated host itself: everything else in the suite stands on it.
#include "support/host_files.h"
#include "support/sim_host.h"

#include "veksim.h"

#include <array>
#include <cstring>
#include <filesystem>
#include <glob.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>

namespace {

using sim_test = sim_host;

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

TEST_F(sim_test, a_command_is_outside_the_simulation)
{
    setenv("LD_PRELOAD", "libveksim.so", 1);
    EXPECT_EQ(pclose(popen("exit ${LD_PRELOAD:+1}", "r")), 0);
    unsetenv("LD_PRELOAD");
}

TEST_F(sim_test, pauses_are_instant_and_move_the_clock)
{
    host.instant_pauses();
    timeval before{}, after{};
    gettimeofday(&before, nullptr);
    sleep(100);
    usleep(500000);
    veksim_advance(10000000);
    gettimeofday(&after, nullptr);
    timersub(&after, &before, &after);
    EXPECT_GE(after.tv_sec * 1000 + after.tv_usec / 1000, 110500);
    EXPECT_LT(after.tv_sec, 120);
    EXPECT_GE(time(nullptr) - before.tv_sec, 110);
    EXPECT_EQ(host.pauses(), (std::vector<std::string>{"sleep 100", "usleep 500000"}));
}

} // namespace
