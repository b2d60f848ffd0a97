// SPDX-License-Identifier: Apache-2.0
// What the simulated driver and its devices say, and how they move.
#include "support/host_files.h"
#include "support/sim_host.h"

#include "driver_model.h"

#include <array>
#include <filesystem>
#include <pciaccess.h>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/mman.h>
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

TEST_F(sim_driver_test, a_card_node_answers_as_the_driver_does)
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

TEST_F(sim_driver_test, a_host_without_the_driver_has_pci_devices_and_firmware)
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

} // namespace
