// SPDX-License-Identifier: Apache-2.0
// Trees: what leads into them, and which are refused.
#include "build_paths.h"
#include "support/sim_host.h"

#include "tree_check.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <fts.h>
#include <ftw.h>
#include <map>
#include <set>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utime.h>

namespace fs = std::filesystem;

namespace {

using tree_test = sim_host;

const environment native{{"VEKSIM_EMULATOR", ""}}; // for commands that belong to the machine we run on

// The tree has the names below; no real host does, so each call that succeeds was led there.
TEST_F(tree_test, every_call_on_a_name_is_led)
{
    host.add_gpu();
    static const std::string node = host.card(0, "device/vendor"), fresh = "/dev/dri/fresh";
    static struct statvfs volume;
    static struct statfs filesystem;
    const std::pair<const char *, bool (*)()> calls[] = {
        {"chown", [] { return chown(node.c_str(), -1, -1) == 0; }},
        {"lchown", [] { return lchown(node.c_str(), -1, -1) == 0; }},
        {"link", [] { return link(node.c_str(), fresh.c_str()) == 0; }},
        {"mknod", [] { return mknod(fresh.c_str(), S_IFREG | 0600, 0) == 0; }},
        {"mkfifo", [] { return mkfifo(fresh.c_str(), 0600) == 0; }},
        {"utime", [] { return utime(node.c_str(), nullptr) == 0; }},
        {"utimes", [] { return utimes(node.c_str(), nullptr) == 0; }},
        {"lutimes", [] { return lutimes(node.c_str(), nullptr) == 0; }},
        {"utimensat", [] { return utimensat(AT_FDCWD, node.c_str(), nullptr, 0) == 0; }},
        {"statvfs", [] { return statvfs(node.c_str(), &volume) == 0; }},
        {"statfs", [] { return statfs(node.c_str(), &filesystem) == 0; }}};
    for (const auto &[name, call] : calls) {
        EXPECT_TRUE(call()) << name;
        host.remove(fresh);
    }
}

std::set<std::string> names_in(const char *directory)
{
    std::set<std::string> names;
    DIR *listing = opendir(directory);
    while (const dirent *entry = readdir(listing))
        names.insert(entry->d_name);
    closedir(listing);
    return names;
}

std::vector<std::string> walked;

TEST_F(tree_test, listings_and_walks_show_the_host)
{
    host.add_gpu();
    host.write("/proc/4000001/comm", "player\n");
    const auto processes = names_in("/proc");
    EXPECT_EQ(processes.count("4000001") + processes.count("self"), 2U);
    EXPECT_EQ(names_in("/sys/class/").count("drm"), 1U);
    EXPECT_EQ(names_in("/sys").count("devices"), 1U);
    host.remove("/dev/dri");
    EXPECT_EQ(names_in("/dev").count("dri"), 0U) << "not even the real host's";
    dirent **entries = nullptr;
    const int count = scandir(
        "/proc", &entries, [](const dirent *e) { return int(e->d_name[0] == '4'); }, alphasort);
    ASSERT_GE(count, 1);
    EXPECT_TRUE(std::any_of(entries, entries + count, [](dirent *e) { return e->d_name == std::string("4000001"); }));
    std::for_each(entries, entries + count, free);
    free(entries);

    walked.clear();
    const auto step = [](const char *path, const struct stat *, int, FTW *place) {
        walked.push_back(path);
        return walked.back().find('/', static_cast<std::size_t>(place->base)) == std::string::npos ? 0 : 1;
    };
    EXPECT_EQ(nftw("/sys/bus/pci", step, 8, FTW_PHYS), 0);
    EXPECT_EQ(std::count(walked.begin(), walked.end(), "/sys/bus/pci/devices/0000:03:00.0"), 1);
    std::string top = "/sys/class/drm";
    char *const tops[] = {top.data(), nullptr};
    FTS *walk = fts_open(tops, FTS_PHYSICAL, nullptr);
    bool met = false;
    while (const FTSENT *entry = fts_read(walk))
        met = met || entry->fts_name == std::string("card0");
    fts_close(walk);
    EXPECT_TRUE(met);
}

struct suspect {
    const char *word; // of the refusal; "" when there is none
    std::function<void(veksim::host_tree &)> plant;
};

TEST_F(tree_test, only_data_is_a_tree)
{
    const auto to = [](const char *node, const char *target) {
        return [=](veksim::host_tree &tree) { tree.link(node, target); };
    };
    const auto file = [](const char *node, const char *text) {
        return [=](veksim::host_tree &tree) { tree.write(node, text); };
    };
    const suspect suspects[] = {
        {"", [](auto &tree) { tree.add_gpu(), tree.add_bare_gpu(), tree.add_video_libraries(); }},
        {"", to("/sys/n", "errno:5:read")},
        {"", to("/sys/n", "stuck")},
        {"", to("/sys/n", "/dev/full")},
        {"", to("/sys/n", "../sys/class/drm")},
        {"", to("/a/b/n", ".././../c/x")},
        {"", [](auto &tree) { mkfifo(tree.path("/sys/n").c_str(), 0600); }},
        {"link", to("/sys/n", "/etc/passwd")},
        {"link", to("/sys/n", "/dev/full/../../etc")},
        {"link", to("/n", "..")},
        {"link", to("/sys/n", "../..")},
        {"link", to("/sys/n", "errno:5/../../x")}, // there may be such a directory
        {"link", to("/sys/n", "class/../../..")},  // class may be a link itself
        {"link", to("/sys/n", ".//../../x")},
        {"program", file("/host/bin/lsmod", "#!/bin/sh\n")},
        {"library", file("/opt/vekgpu/lib/aarch64-linux-gnu/libva.so", "\x7f")},
        {"library", file("/usr/lib/aarch64-linux-gnu/dri/vekgpu_drv_video.so.1", "\x7f")},
        {"name",
         [](auto &tree) { tree.write("/sys/n", ""), fs::create_hard_link(tree.path("/sys/n"), tree.path("/m")); }},
        {"device", [](auto &tree) {
             const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
             sockaddr_un name{AF_UNIX, ""};
             tree.path("/s").string().copy(name.sun_path, sizeof name.sun_path - 1);
             EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&name), sizeof name), 0);
             close(fd);
         }}};
    for (const auto &[word, plant] : suspects) {
        veksim::host_tree tree;
        plant(tree);
        std::array<char, PATH_MAX> what{};
        const bool data = veksim::tree_is_data(tree.root().c_str(), what.data(), what.size());
        EXPECT_EQ(data, *word == '\0') << what.data();
        EXPECT_NE(std::string(what.data()).find(word), std::string::npos) << what.data();
    }
}

TEST_F(tree_test, a_strangers_tree_runs_no_code_and_leads_nowhere)
{
    host.add_gpu();
    host.link(host.hwmon(0, "temp1_input"), "/etc/passwd");
    const std::string tree = host.root().string();
    const run_result refused = run({VEKSIM_PATH, "--tree", tree, "--", "true"}, native);
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("/temp1_input is a link"), std::string::npos) << refused.err;
    EXPECT_EQ(run({VEKSIM_PATH, "--tree", tree, "--trust-tree", "--", "true"}, native).status, 0);
    const run_result loaded = run_on_host({VEKSMI_PATH, "list"}); // without the launcher
    EXPECT_EQ(loaded.status, 126) << loaded.out;
    EXPECT_EQ(loaded.out, "");
    EXPECT_EQ(run_on_host({VEKSMI_PATH, "list"}, {{"VEKSIM_TRUST_TREE", "1"}}).status, 0);
}

// Flags have but two values, and what names the board or the bus is no reading.
TEST_F(tree_test, a_distinct_host_has_no_two_equal_readings)
{
    std::map<std::string, std::set<std::string>> values_of_node;
    const std::set<std::string> flags = {"fan1_ctrl_mode",         "temp1_ctrl_mode",         "vek_support_fan_info",
                                         "vek_support_power_info", "vek_enable_thm_slowdown", "vek_enable_thm_shutdown",
                                         "vek_gddr_phys_speed"};
    for (const int number : {0, 1, 8, 15}) {
        const int gpu = host.add_gpu(veksim::distinct_gpu(number), veksim::distinct_state(number));
        std::set<std::string> values_of_gpu;
        for (const fs::directory_entry &entry : fs::directory_iterator(host.path(host.hwmon(gpu)))) {
            const std::string name = entry.path().filename(), text = host.read(host.hwmon(gpu, name));
            if (flags.count(name) != 0 || text.find_first_not_of("0123456789\n") != std::string::npos)
                continue;
            EXPECT_TRUE(values_of_gpu.insert(text).second) << gpu << name << " repeats " << text;
            EXPECT_TRUE(values_of_node[name].insert(text).second) << name << " of GPU " << gpu << " repeats " << text;
        }
        EXPECT_GE(values_of_gpu.size(), 27U);
        for (const char *node : {"current_link_width", "max_link_width", "aer_dev_fatal", "aer_dev_nonfatal",
                                 "aer_dev_correctable", "gpu_util_info", "gpu_mem_util_info", "numa_node"}) {
            const std::string text = host.read(host.card(gpu, "device/" + std::string(node)));
            EXPECT_TRUE(values_of_node[node].insert(text).second) << node << gpu;
        }
    }
}

} // namespace
