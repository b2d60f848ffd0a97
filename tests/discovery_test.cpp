// SPDX-License-Identifier: Apache-2.0
#include "sim_host.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char drm[] = "/sys/class/drm";

std::size_t open_descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

class discovery_test : public sim_host {
protected:
    /** A card of which only the vendor is known. */
    void add_card(const std::string &name, const std::string &vendor = "0x7665\n")
    {
        host.write(std::string(drm) + "/" + name + "/device/vendor", vendor);
    }
    std::vector<std::uint32_t> cards_found(const std::function<vekml_return_t()> &init = vekml_init)
    {
        EXPECT_EQ(init(), VEKML_SUCCESS);
        std::vector<std::uint32_t> cards;
        for (std::uint32_t i = 0; i < globals.count; ++i) {
            EXPECT_EQ(globals.devices[i].table_index, i);
            cards.push_back(globals.devices[i].card_index);
        }
        return cards;
    }
};

using cards = std::vector<std::uint32_t>;

TEST_F(discovery_test, a_host_without_gpus)
{
    std::uint32_t count = 7;
    host.remove(drm);
    EXPECT_EQ(standard_output([] { EXPECT_EQ(vekml_init(), VEKML_SUCCESS); }), "Open failed, there's no such path");
    host.make_directory(drm);
    EXPECT_EQ(standard_output([] { EXPECT_EQ(vekml_init(), VEKML_SUCCESS); }), "");
    EXPECT_EQ(vekml_device_get_count(&count), VEKML_SUCCESS);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(vekml_device_get_count(nullptr), VEKML_ERROR_INVALID_ARGUMENT);
}

TEST_F(discovery_test, entries_named_card_bound_the_numbers_tried)
{
    add_card("card0");
    add_card("card5");
    EXPECT_EQ(cards_found(), cards{0});

    host.remove(std::string(drm) + "/card5");
    add_card("card2");
    EXPECT_EQ(cards_found(), cards{0});
    host.make_directory(std::string(drm) + "/card0-DP-1");
    EXPECT_EQ(cards_found(), (cards{0, 2}));
}

TEST_F(discovery_test, the_vendor_text_matches_exactly)
{
    const char *foreign[] = {"0x7666\n", "0x7665x\n", "0X7665\n", "7665\n", "\n", " 0x7665\n"};
    int n = 0;
    for (const char *vendor : foreign)
        add_card("card" + std::to_string(n++), vendor);
    add_card("card" + std::to_string(n));
    EXPECT_EQ(cards_found(), cards{6});
}

TEST_F(discovery_test, an_unreadable_vendor_repeats_the_one_before_it)
{
    add_card("card0");
    host.make_directory(std::string(drm) + "/card1");
    add_card("card2", "0x1234\n");
    host.make_directory(std::string(drm) + "/card3");
    EXPECT_EQ(cards_found(), (cards{0, 1}));
}

TEST_F(discovery_test, fifteen_gpus_not_sixteen)
{
    for (int n = 0; n < 16; ++n)
        add_card("card" + std::to_string(n));
    EXPECT_EQ(cards_found().size(), 15u);
    vekml_device_t gpu = nullptr;
    EXPECT_EQ(vekml_device_get_handle_by_index(15, &gpu), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(vekml_device_get_handle_by_index(0, nullptr), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(vekml_device_get_handle_by_index(14, &gpu), VEKML_SUCCESS);
    EXPECT_EQ(gpu, &globals.devices[14]);
}

TEST_F(discovery_test, a_gpu_s_record)
{
    veksim::gpu_config config;
    config.card = 1;
    config.hwmon = 98;
    config.pci_address = "0001:0a:1f.7";
    config.model = idModelArray[20].model;
    config.device_id = idModelArray[20].device_id;
    config.current_link_speed = "8.0 GT/s PCIe";
    config.max_link_speed = "16.0 GT/s PCIe";
    host.add_gpu(config);
    vekml_device_t gpu = start();
    ASSERT_NE(gpu, nullptr);
    const auto &found = *gpu;
    EXPECT_STREQ(found.card_path, "/sys/class/drm/card1");
    EXPECT_STREQ(found.hwmon_path, "/sys/class/drm/card1/device/hwmon/hwmon98");
    EXPECT_STREQ(found.product_name_path, "/sys/class/drm/card1/vek_product_name");
    EXPECT_STREQ(found.max_link_width_path, "/sys/class/drm/card1/device/max_link_width");
    EXPECT_EQ(found.card_index, 1u);
    EXPECT_EQ(found.name, config.product_name);
    EXPECT_EQ(found.dbdf, config.pci_address);
    EXPECT_EQ(std::tie(found.domain, found.bus, found.device, found.function, found.bdfid),
              std::make_tuple(1u, 10u, 31u, 7u, 0u));
    EXPECT_EQ(std::tie(found.device_id, found.vendor_id, found.subsystem_device_id, found.subsystem_vendor_id),
              std::make_tuple(config.device_id, 0x7665u, config.subsystem_device_id, config.subsystem_vendor_id));
    EXPECT_EQ(std::tie(found.curr_link_speed, found.curr_link_width, found.curr_link_generation),
              std::make_tuple(8u, 8u, 3u));
    EXPECT_EQ(std::tie(found.max_link_speed, found.max_link_width, found.max_link_generation),
              std::make_tuple(16u, 8u, 4u));
    EXPECT_EQ(found.model, config.model);
    EXPECT_EQ(found.model_device_id, config.device_id);
    EXPECT_EQ(found.chip_process, 12u);
}

TEST_F(discovery_test, one_card_alone)
{
    add_card("card0", "0x1234\n");
    add_card("card3");
    add_card("card41");
    const std::pair<std::uint32_t, cards> starts[] = {{41, {41}}, {3, {3}}, {0, {}}, {1, {}}, {UINT32_MAX, {}}};
    for (const auto &[index, expected] : starts)
        EXPECT_EQ(cards_found([n = index] { return vekml_init_card(n); }), expected) << index;
    EXPECT_TRUE(logged("discover_vekgpu_devices", "count is: 3"));
    EXPECT_EQ(vekml_init_card(3), VEKML_SUCCESS);
    host.remove(drm);
    EXPECT_EQ(standard_output([&] { EXPECT_EQ(cards_found([] { return vekml_init_card(3); }), cards{}); }),
              "Open failed, there's no such path");
}

TEST_F(discovery_test, one_card_s_record_and_log_are_those_of_a_start_of_all)
{
    veksim::gpu_config config;
    config.card = 1;
    host.add_gpu(config);
    host.make_directory(std::string(drm) + "/card1-DP-1");
    const auto start_with = [&](const std::function<vekml_return_t()> &init) {
        EXPECT_EQ(vekml_shutdown(), VEKML_SUCCESS);
        host.remove("/tmp/smi.log");
        EXPECT_EQ(cards_found(init), cards{1});
        vekml_device_record_t record = globals.devices[0];
        EXPECT_NE(record.last_sample_sec, 0u) << "the video engines' sample belongs to it";
        record.last_sample_sec = record.last_sample_usec = 0;
        std::string log;
        for (const log_line &line : log_lines())
            if (line.message.find("enter vekml_init") == std::string::npos)
                log += line.file + " " + line.function + ": " + line.message + "\n";
        return std::pair(std::string(reinterpret_cast<const char *>(&record), sizeof record), log);
    };
    start(); // the first start of a process also looks for the video libraries
    const auto of_all = start_with(vekml_init);
    const auto of_one = start_with([] { return vekml_init_card(1); });
    EXPECT_TRUE(of_one.first == of_all.first);
    EXPECT_EQ(of_one.second, of_all.second);
    EXPECT_TRUE(logged("vekml_init_card", "enter vekml_init_card"));
}

TEST_F(discovery_test, link_generations_and_missing_link_nodes)
{
    host.add_gpu();
    const std::pair<const char *, std::uint32_t> speeds[] = {
        {"2.5 GT/s PCIe\n", 0}, {"8.0 GT/s PCIe\n", 3}, {"16.0 GT/s PCIe\n", 4}, {"32.0 GT/s PCIe\n", 0}, {"1\n", 5}};
    for (const auto &[text, generation] : speeds) {
        host.write(host.card(0, "device/current_link_speed"), text);
        EXPECT_EQ(start()->curr_link_generation, generation) << text;
    }
    host.remove(host.card(0, "device/current_link_width"));
    host.write(host.card(0, "device/current_link_speed"), "16.0 GT/s PCIe\n");
    EXPECT_EQ(start()->curr_link_width, 16u) << "repeats the text read before it";
}

TEST_F(discovery_test, a_second_start_keeps_what_it_cannot_read_again)
{
    host.add_gpu();
    host.add_gpu();
    vekml_device_t gpu = start();
    host.remove(host.card(0, "vek_product_name"));
    host.remove(host.card(0, "device/device"));
    host.remove(host.hwmon(0, "vek_device_model"));
    host.remove(host.card(1));
    EXPECT_EQ(vekml_init(), VEKML_SUCCESS);
    EXPECT_EQ(globals.count, 1u);
    EXPECT_EQ(gpu->name, host.config(0).product_name);
    EXPECT_EQ(gpu->device_id, host.config(0).device_id);
    EXPECT_STREQ(gpu->model, "");
    EXPECT_EQ(gpu->model_device_id, 65535u);
    EXPECT_EQ(globals.devices[1].name, host.config(1).product_name) << "records past the new count survive";
}

TEST_F(discovery_test, starting_and_stopping_leaves_nothing_behind)
{
    EXPECT_EQ(vekml_shutdown(), VEKML_SUCCESS) << "before any start";
    host.add_gpu();
    vekml_device_t gpu = start();
    gpu->bar0_mapped = 1;
    gpu->mapped_bar0 = reinterpret_cast<void *>(1); // no mapping begins there
    EXPECT_EQ(vekml_shutdown(), VEKML_ERROR_NODE_IO);
    EXPECT_EQ(globals.count, 1u) << "the state stays as it is";
    gpu->bar0_mapped = 0;
    const std::size_t before = open_descriptors();
    for (int i = 0; i < 200; ++i) {
        vekml_init();
        EXPECT_EQ(vekml_shutdown(), VEKML_SUCCESS);
    }
    EXPECT_EQ(open_descriptors(), before);
    const auto *bytes = reinterpret_cast<const unsigned char *>(&globals);
    EXPECT_TRUE(std::all_of(bytes, bytes + sizeof globals, [](unsigned char byte) { return byte == 0; }));
    char name[4] = "abc";
    EXPECT_EQ(vekml_device_get_name(gpu, name, sizeof name), VEKML_SUCCESS) << "an old handle reads a zero record";
    EXPECT_STREQ(name, "");
}

using handle_test = sim_host;

TEST_F(handle_test, lookup_by_bus_id)
{
    host.add_gpu();
    host.add_gpu();
    vekml_device_t gpu = nullptr;
    const auto look_up = [&](const char *bus_id) { return vekml_device_get_handle_by_pci_bus_id(&gpu, bus_id); };
    constexpr char not_found[] = "Unable to find a GPU with matching bus ID\n";
    EXPECT_EQ(standard_output([&] { EXPECT_EQ(look_up("0000:03:00.0"), VEKML_ERROR_NO_DATA); }), not_found);
    start();
    EXPECT_EQ(look_up("0000:04:00.0"), VEKML_SUCCESS);
    EXPECT_EQ(gpu, &globals.devices[1]);
    for (const char *other : {"0000:05:00.0", "0000:03:00.00", "0000:03:00", "", "0000:03:0x.0"})
        EXPECT_EQ(standard_output([&] { EXPECT_EQ(look_up(other), VEKML_ERROR_NO_DATA); }), not_found) << other;
    EXPECT_EQ(look_up(nullptr), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(vekml_device_get_handle_by_pci_bus_id(nullptr, "0000:03:00.0"), VEKML_ERROR_INVALID_ARGUMENT);
}

TEST_F(handle_test, accessors_check_what_they_promise_and_leave_no_trace)
{
    veksim::gpu_config config;
    config.product_name = "Talon";
    host.add_gpu(config);
    vekml_device_t gpu = start();
    const std::string log_before = host.log();
    char name[64] = "########";
    EXPECT_EQ(vekml_device_get_name(gpu, name, 5), VEKML_ERROR_INSUFFICIENT_SIZE);
    EXPECT_STREQ(name, "########");
    EXPECT_EQ(vekml_device_get_name(gpu, name, 6), VEKML_SUCCESS);
    EXPECT_STREQ(name, "Talon");

    std::uint32_t value = 9;
    EXPECT_EQ(vekml_device_get_minor_number(gpu, &value), VEKML_SUCCESS);
    EXPECT_EQ(value, 0u);
    EXPECT_EQ(vekml_device_get_card_index_by_handle(gpu, nullptr), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(vekml_device_get_card_index_by_handle(nullptr, &value), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(vekml_device_get_card_index_by_handle(gpu, &value), VEKML_SUCCESS);

    vekml_pci_info_t pci;
    EXPECT_EQ(vekml_device_get_pci_info(gpu, nullptr), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(vekml_device_get_pci_info(nullptr, &pci), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(vekml_device_get_pci_info(gpu, &pci), VEKML_SUCCESS);
    EXPECT_EQ(std::tie(pci.domain, pci.bus, pci.device, pci.bdfid, pci.function), std::make_tuple(0u, 3u, 0u, 0u, 0u));
    EXPECT_STREQ(pci.busId, "0000:03:00.0");

    const std::pair<vekml_return_t (*)(vekml_device_t, std::uint32_t *), std::uint32_t> links[] = {
        {vekml_device_get_pcie_speed, 16},
        {vekml_device_get_curr_pcie_link_width, 8},
        {vekml_device_get_pcie_link_max_speed, 16},
        {vekml_device_get_max_pcie_link_width, 8},
        {vekml_device_get_curr_pcie_link_generation, 4},
        {vekml_device_get_max_pcie_link_generation, 4}};
    for (const auto &[get, expected] : links) {
        EXPECT_EQ(get(nullptr, &value), VEKML_ERROR_INVALID_ARGUMENT);
        EXPECT_EQ(get(gpu, &value), VEKML_SUCCESS);
        EXPECT_EQ(value, expected);
    }
    EXPECT_EQ(host.log(), log_before);
}

} // namespace
