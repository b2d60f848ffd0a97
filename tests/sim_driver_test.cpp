// SPDX-License-Identifier: Apache-2.0
// What the simulated driver and its devices say, and how they move.
#include "support/host_files.h"
#include "support/sim_host.h"

#include "driver_model.h"

#include <array>
#include <filesystem>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <xf86drm.h>

namespace {

using sim_driver_test = sim_host;

std::vector<std::uint32_t> numbers(const std::string &text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::uint32_t>(stream), {}};
}

TEST_F(sim_driver_test, a_card_is_lost_and_returns_under_a_living_driver)
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

TEST_F(sim_driver_test, a_device_is_on_the_bus_as_on_a_real_host)
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
    std::string last_lines;
    for (const char *node : {"power/runtime_status", "power/control", "power_state", "numa_node", "local_cpulist",
                             "current_link_width", "class", "aer_dev_correctable", "aer_dev_fatal", "aer_dev_nonfatal",
                             "../vendor", "../device", "../current_link_speed"}) {
        const std::string text = "\n" + slurp(device + "/" + node);
        last_lines += text.substr(text.rfind('\n', text.size() - 2) + 1);
    }
    EXPECT_EQ(last_lines, "active\nauto\nD0\n1\n0-7\n4\n0x030000\nTOTAL_ERR_COR 12\nTOTAL_ERR_FATAL 3\n"
                          "TOTAL_ERR_NONFATAL 4\n0x1b36\n0x000c\n8.0 GT/s PCIe\n");
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

TEST_F(sim_driver_test, a_card_node_answers_as_the_driver_does)
{
    veksim::gpu_config config;
    config.card = 2;
    host.add_gpu(config);
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

    std::array<std::uint32_t, 40> facts{};
    EXPECT_EQ(inform(fd, 0xC010644B, 0, facts.data()), 0);
    EXPECT_EQ(facts[29], config.memory_package);
    std::int64_t reply = 0;
    host.write(host.request(0, veksim::process_request), "hex ff 01\nu16 513\nzero 100001 # capped\nu8 1\n");
    EXPECT_EQ(inform(fd, 0xC010644C, 1, &reply, 4), 0);
    EXPECT_EQ(reply, 0x020101FF);
    host.fail_request(0, veksim::process_request, EBUSY);
    EXPECT_EQ(inform(fd, 0xC010644C, 1, &reply), EBUSY);
    EXPECT_EQ(inform(fd, 0xC010644C, 9, &reply), ENOTTY);
    close(fd);
}

TEST_F(sim_driver_test, the_driver_follows_what_is_written)
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

} // namespace
