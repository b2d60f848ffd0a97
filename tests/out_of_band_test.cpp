// SPDX-License-Identifier: Apache-2.0
#include "sim_host.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <pciaccess.h>
#include <tuple>
#include <unistd.h>

namespace {

constexpr int all_probes = -1;
int probes_left = all_probes; /**< past them, probing fails, as for a device that has just left the bus */

class out_of_band_test : public sim_host {
protected:
    /** What an out-of-band start prints on standard output. */
    std::string start_out_of_band()
    {
        return standard_output([] { EXPECT_EQ(static_cast<int>(vekml_out_of_band_init()), 1); });
    }
    /** How many windows on /dev/mem the process holds. */
    static long windows()
    {
        std::ifstream maps("/proc/self/maps");
        long count = 0;
        for (std::string line; std::getline(maps, line);)
            count += line.find("/dev/mem") != std::string::npos;
        return count;
    }
    /** Fan, temperature, memory temperature, then the four power readings; each getter has to succeed. */
    std::vector<int> readings()
    {
        std::uint32_t rpm = 0, power[4] = {};
        temper_info heat{};
        EXPECT_EQ(vekml_device_get_fan_speed_by_out_of_band(&gpu, &rpm), VEKML_SUCCESS);
        EXPECT_EQ(vekml_device_get_temp_info_by_out_of_band(&gpu, &heat), VEKML_SUCCESS);
        EXPECT_EQ(vekml_device_get_power_info_by_out_of_band(&gpu, power), VEKML_SUCCESS);
        return {int(rpm), heat.temp_input, heat.gddr_temp, int(power[0]), int(power[1]), int(power[2]), int(power[3])};
    }

    vekml_device_record_t &gpu = globals.devices[0];
};

TEST_F(out_of_band_test, gpus_are_found_mapped_and_described)
{
    veksim::gpu_config config;
    config.pci_address = "0001:0a:1f.7";
    config.subsystem_device_id = 0x12;
    config.vendor_index = 2;
    config.power_support = false;
    config.firmware_version = {0xab, 0xcd, 0x1234};
    host.add_bare_gpu();
    host.add_bare_gpu(config);
    host.set_firmware(1, 0x13FF844, 0xFFFFFFFF); // total power, a signed number
    host.make_directory("/sys/bus/pci/devices/" + config.pci_address + "/driver");
    host.add_pci_device("0000:01:00.0", config, 0x030200); // not a VGA controller
    config.vendor_id = 0x7666;
    host.add_pci_device("0000:02:00.0", config, 0x030000);
    EXPECT_EQ(start_out_of_band(), "");
    EXPECT_TRUE(logged("is_vekgpu_driver_loaded", "PCI device driver is loaded."));
    ASSERT_EQ(globals.count, 2u);
    EXPECT_EQ(windows(), 2);
    vekml_device_t found = nullptr;
    ASSERT_EQ(vekml_device_get_handle_by_pci_bus_id(&found, config.pci_address.c_str()), VEKML_SUCCESS);
    EXPECT_EQ(found->table_index, 1u);
    EXPECT_EQ(found->model_device_id, config.device_id);
    EXPECT_STREQ(gpu.vendor_name, "VEK");

    vekml_device_query_t query;
    std::memset(&query, 1, sizeof query);
    EXPECT_EQ(vekml_device_query_by_out_of_band(found, &query), VEKML_SUCCESS);
    EXPECT_STREQ(query.name, "GOODTIMES");
    EXPECT_STREQ(query.vbios_version, "v1.0.4\n");
    EXPECT_STREQ(query.fw_ver, "vab.cd.12");
    EXPECT_EQ(query.chip_model, config.model);
    EXPECT_EQ(std::tie(query.pci_info[0], query.pci_info[1], query.pci_info[2], query.pci_info[3], query.pci_ids[0],
                       query.pci_ids[1], query.pci_ids[2], query.pci_ids[3]),
              std::make_tuple(1u, 0x0au, 0x1fu, 7u, config.device_id, 0x7665u, 0x12u, 0x7665u));
    EXPECT_EQ(std::tie(query.device_id, query.clock[1], query.memory.fb_total, query.support_fan_info,
                       query.support_power_info, query.fan_speed, query.temperature[1], query.power_state),
              std::make_tuple(config.device_id, 1000u, 8192u, 1, 0u, 2400u, 48u, 850u));
    EXPECT_EQ(std::vector<float>(query.power, query.power + 3), (std::vector<float>{24000, 21, -1}));
    EXPECT_EQ(query.clock[0], 0x01010101u); // not the firmware's to tell
}

TEST_F(out_of_band_test, the_firmware_s_tables_and_their_bounds)
{
    const unsigned clocks[] = {800,  900,  1000, 1050, 1100, 1150, 1200, 1250, 1300,
                               1350, 1400, 1450, 1500, 700,  600,  500,  0};
    const char *speeds[] = {"8000000000", "12000000000", "14000000000", "15200000000", "16000000000", "0"};
    const char *vendors[] = {"VEK", "BITLAND", "GOODTIMES", "OTHERS", "OTHERS"};
    constexpr char step[] = "vekml_pci_out_of_band_manager";
    host.add_bare_gpu();
    host.set_firmware_text(0, 0x13FF008, std::string(64, 'f'), 64);
    for (std::uint32_t i = 0; i < std::size(clocks); ++i) {
        const std::uint32_t speed = std::min(i, 5u), vendor = std::min(i, 4u);
        host.set_firmware(0, 0x13FF090, 0xABC << 12 | i << 4 | 0xF);
        host.set_firmware(0, 0x13FF08C, speed << 20 | 255 << 12 | 0xFFF);
        host.set_firmware(0, 0x13FF098, i == 5 ? 0xFFFFFFFF : vendor);
        start_out_of_band();
        EXPECT_EQ(gpu.gpu_clock_mhz, clocks[i]);
        EXPECT_STREQ(gpu.vendor_name, vendors[vendor]);
        EXPECT_TRUE(logged(step, std::string(" gddr_size = 255, gddr_speed = ") + speeds[speed] + ","));
        EXPECT_EQ(vekml_shutdown(), VEKML_SUCCESS);
        EXPECT_EQ(windows(), 0);
    }
    EXPECT_TRUE(logged(step, "gpu_core0_volt = 2748, gpu_core1_volt = 2748"));
    EXPECT_GT(std::ranges::count(messages_of(step), " fw_ver_str = " + std::string(64, 'f')), 0);
}

TEST_F(out_of_band_test, readings_are_live)
{
    veksim::gpu_state state;
    host.add_bare_gpu();
    start_out_of_band();
    for (const int reading : {48, 0x7FFF, -1}) {
        state.temperature = state.memory_temperature = state.fan_rpm = state.total_power_w = reading;
        host.set_state(0, state);
        // The temperature alone is 16 bits wide.
        EXPECT_EQ(readings(), (std::vector<int>{reading, reading & 0xFFFF, reading, 850, 24000, 21, reading}));
    }
    EXPECT_EQ(messages_of("vekml_device_get_temp_info_by_out_of_band").back(), "fwinfo->curTemp = 65535");
    EXPECT_EQ(messages_of("vekml_device_get_power_info_by_out_of_band").back(), "fwinfo->pwr_total = -1");
}

TEST_F(out_of_band_test, with_the_driver_it_is_the_in_band_start)
{
    host.add_gpu();
    EXPECT_EQ(vekml_out_of_band_init(), VEKML_SUCCESS);
    EXPECT_EQ(globals.count, 1u);
    EXPECT_EQ(readings(), (std::vector<int>{2400, 48, 52, 850, 24000, 21, 32000}));

    vekml_device_query_t query{};
    host.write(host.hwmon(0, "vek_gfx_freq_mhz"), "1999999999\n");
    EXPECT_EQ(vekml_device_query_by_out_of_band(&gpu, &query), VEKML_SUCCESS);
    EXPECT_EQ(std::make_pair(query.clock[1], query.power[2]), std::make_pair(1999u, 32.0f));
    host.remove(host.card(0));
    host.remove("/sys/kernel/debug/vekgpu");
    EXPECT_NE(vekml_device_query_by_out_of_band(&gpu, &query), VEKML_SUCCESS);
    EXPECT_EQ(query.memory.fb_total, 8192u); // whatever the query's result
}

TEST_F(out_of_band_test, a_gpu_that_cannot_be_mapped_stays_in_band)
{
    host.add_bare_gpu();
    const std::uint64_t base = host.config(0).bar0;
    const std::string no_window = "failed to mmap BAR0: No such device or address\n";
    const struct {
        const char *missing;
        unsigned uid;
        std::uint64_t bar0, size;
        bool ports;
        vekml_return_t result;
        std::string printed, error;
    } cases[] = {
        {"/none", 1000, base, 0, false, VEKML_ERROR_NO_PERMISSION,
         "Permission denied!\nplease run this command with root authority\n", ""},
        {"/none", 0, base + 0x100, 0, false, VEKML_ERROR_NODE_IO,
         "Address of BAR0 is not page aligned. page size:" + std::to_string(sysconf(_SC_PAGESIZE)) + ".\n", ""},
        {"/none", 0, 0, 0, false, VEKML_ERROR_NODE_IO, "", no_window},
        {"/none", 0, base, 0, true, VEKML_ERROR_NODE_IO, "", no_window},
        {"/none", 0, base, 0x1FFFFFF, false, VEKML_ERROR_NODE_IO, "", no_window},
        {"/none", 0, base, 0x2000000, false, VEKML_SUCCESS, "", ""},
        {"/dev/mem", 0, base, 0, false, VEKML_ERROR_NODE_IO, "",
         "failed to open /dev/mem.: No such file or directory\n"},
    };
    EXPECT_EQ(vekml_pci_out_of_band_manager(0, nullptr), VEKML_ERROR_NODE_IO);
    for (const auto &c : cases) {
        host.remove(c.missing);
        host.set_euid(c.uid);
        pci_device controller{};
        controller.regions[0].base_addr = c.bar0;
        controller.regions[0].size = c.size;
        controller.regions[0].is_IO = c.ports;
        testing::internal::CaptureStderr();
        EXPECT_EQ(standard_output([&] { EXPECT_EQ(vekml_pci_out_of_band_manager(0, &controller), c.result); }),
                  c.printed);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.error);
    }
    vekml_shutdown();
    start_out_of_band();
    EXPECT_EQ(readings(), std::vector<int>(7));
}

TEST_F(out_of_band_test, memory_that_is_switched_off_is_enabled_before_it_is_mapped)
{
    const std::string device = "/sys/bus/pci/devices/0000:03:00.0/";
    host.add_bare_gpu();
    for (const auto &[command, enabled] : {std::pair{'\6', "0"}, {'\4', "1"}}) {
        std::string space = host.read(device + "config");
        space[4] = command;
        host.write(device + "config", space);
        host.write(device + "enable", "0");
        EXPECT_EQ(start_out_of_band(), "");
        EXPECT_EQ(host.read(device + "enable"), enabled);
        EXPECT_EQ(windows(), 1);
        vekml_shutdown();
    }
    host.remove(device + "enable");
    start_out_of_band();
    EXPECT_EQ(windows(), 1) << "whatever the kernel says";
}

TEST_F(out_of_band_test, a_window_past_the_count_is_unmapped_too)
{
    host.add_bare_gpu();
    pci_device controller{};
    controller.regions[0].base_addr = host.config(0).bar0;
    EXPECT_EQ(vekml_pci_out_of_band_manager(15, &controller), VEKML_SUCCESS);
    EXPECT_EQ(vekml_pci_out_of_band_manager(16, &controller), VEKML_ERROR_NODE_IO);
    EXPECT_EQ(windows(), 1);
    EXPECT_EQ(vekml_shutdown(), VEKML_SUCCESS);
    EXPECT_EQ(windows(), 0);
    EXPECT_FALSE(logged("vekml_shutdown", "munmap"));
}

TEST_F(out_of_band_test, starts_on_a_bus_that_breaks_and_overflows)
{
    host.add_bare_gpu();
    host.add_bare_gpu();
    probes_left = 3; // the two bridges and the first GPU
    EXPECT_EQ(start_out_of_band(), "Failed to probe PCI device.\n");
    EXPECT_EQ(windows(), 1);
    for (const char *node : {"/revision", "/config"}) // either is enough to know the device
        host.remove(host.pci_device(1) + node);
    EXPECT_EQ(start_out_of_band(), "Failed to initialize PCI system.\n");
    EXPECT_EQ(windows(), 1); // the GPU stays listed and is mapped anew
    vekml_shutdown();

    probes_left = all_probes;
    host.remove("/sys/bus/pci/devices/0000:04:00.0");
    for (int n = 2; n < 18; ++n)
        host.add_bare_gpu();
    start_out_of_band();
    EXPECT_EQ(globals.count, 16u);
    EXPECT_EQ(windows(), 16);
}

} // namespace

// Stands before libpciaccess's own.
extern "C" int pci_device_probe(pci_device *device)
{
    if (probes_left == 0)
        return ENXIO;
    probes_left -= probes_left == all_probes ? 0 : 1;
    void *next = dlsym(RTLD_NEXT, "pci_device_probe");
    return reinterpret_cast<decltype(&pci_device_probe)>(next)(device);
}
