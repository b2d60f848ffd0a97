// SPDX-License-Identifier: Apache-2.0
// Every kind of field with every reason for having no value.
#include "support/sim_host.h"

#include "veksim.h"

#include "readings/process_facts.h"
#include "readings/read_field.h"
#include "readings/video_codecs.h"

#include <cerrno>
#include <climits>
#include <memory>

using namespace readings;

namespace readings {

void PrintTo(const missing &none, std::ostream *stream)
{
    *stream << name_of(none.why) << ", error " << none.error << ", " << none.node;
}

} // namespace readings

namespace {

class readings_field_test : public sim_host {
protected:
    readings_field_test()
    {
        host.add_gpu({}, {.processes = {{5000001, "first", 10, 30}}});
        host.instant_pauses();
        host.set_euid(0);
        host.write(host.hwmon(0, "power1_cap"), "150\n");
    }
    ~readings_field_test() override { present_units() = {}; }

    std::string card(const char *node) const { return host.card(0, node); }
    std::string hwmon(const char *node) const { return host.hwmon(0, node); }
    // The readings of a library started on the host as it is now.
    readings::gpu &begin(bool driverless = false)
    {
        vekml_shutdown();
        vekml_device_t handle = nullptr;
        standard_output([&] {
            driverless ? static_cast<void>(vekml_out_of_band_init()) : static_cast<void>(vekml_init());
            vekml_device_get_handle_by_index(0, &handle);
        });
        gpu_ = std::make_unique<readings::gpu>(handle, driverless);
        return *gpu_;
    }
    value read(const char *key)
    {
        value found;
        standard_output([&] { found = read_field(*find_field(key), *gpu_); });
        return found;
    }
    value fresh(const char *key)
    {
        begin();
        return read(key);
    }

private:
    std::unique_ptr<readings::gpu> gpu_;
};

TEST_F(readings_field_test, a_node_has_a_value_or_a_reason)
{
    // What may stand in a node of a field, and what is then said of it.
    using contents = std::vector<std::pair<std::string, value>>;
    const missing malformed{reason::malformed}, unsupported{reason::unsupported};
    const contents none;
    const contents number = {{"\n", malformed},         {"", malformed},
                             {"48 rpm\n", malformed},   {"-\n", malformed},
                             {"0x30\n", malformed},     {"4294967295\n", malformed},
                             {"\xff\xfe\n", malformed}, {"99999999999999999999\n", malformed}};
    const contents positive = {{"-1\n", malformed}, {"7\n", std::int64_t{7}}, {"0\n", std::int64_t{0}}};
    const contents degrees = {{"-40\n", std::int64_t{-40}}, {"95\n", std::int64_t{95}}};
    const contents flags = {{"5\n", std::vector<std::uint64_t>{1, 0, 1, 0, 0, 0}}};
    const contents width = {{"0\n", malformed}, {"16\n", std::int64_t{16}}, {"255\n", malformed}};
    const contents numa = {{"-1\n", unsupported}, {"1\n", std::int64_t{1}}};
    const contents text = {{"\n", malformed}, {" \t\n", malformed}};
    const contents known = {{"unknown\n", unsupported}, {"D3hot\n", "D3hot"}};
    const contents speed = {{"Unknown\n", unsupported},
                            {"fast\n", malformed},
                            {"-1\n", malformed},
                            {"nan\n", malformed},
                            {"2.5 GT/s PCIe\n", 2.5}};
    const contents generation = {{"32.0 GT/s PCIe\n", std::uint64_t{5}}, {"Unknown\n", unsupported}};
    const contents total = {
        {"\n", malformed}, {"RxErr 1\n", malformed}, {"TOTAL_ERR_", malformed}, {"4294967295\n", malformed}};
    const contents many = {{"RxErr 1\nTOTAL_ERR_COR 4000000000\n", std::uint64_t{4000000000}},
                           {"TOTAL_ERR_COR x\n", malformed}};
    const contents counted = {{"\n", malformed}, {"a b c d\n", malformed}};
    const std::vector<std::uint64_t> seven = {7};
    const contents first = {{"7 0 0 0\n", seven}, {"7\n", seven}}, last = {{"7\n", malformed}};
    const struct {
        const char *key;
        std::string node;
        const contents &common, &own;
    } rows[] = {
        {"temperature", hwmon("temp1_input"), number, degrees},
        {"temperature_max", hwmon("temp1_max"), number, degrees},
        {"memory_temperature", hwmon("vek_gddr_temp"), number, degrees},
        {"thermal_slowdown", hwmon("vek_slowdown_temp"), number, none},
        {"thermal_shutdown_enabled", hwmon("vek_enable_thm_shutdown"), number, positive},
        {"dvfs_enabled", card("vek_enable_dvfs"), number, positive},
        {"fan_speed", hwmon("fan1_input"), number, positive},
        {"fan_speed_max", hwmon("fan1_max"), number, positive},
        {"fan_mode", hwmon("fan1_ctrl_mode"), number, positive},
        {"power", hwmon("power1_average"), number, positive},
        {"power_total", hwmon("vek_total_power"), number, positive},
        {"power_cap", hwmon("power1_cap"), number, positive},
        {"voltage", hwmon("in0_input"), number, positive},
        {"current", hwmon("curr1_input"), number, positive},
        {"gfx_clock_mhz", hwmon("vek_gfx_freq_mhz"), number, positive},
        {"pcie_event", hwmon("vek_pcie_event"), number, positive},
        {"pcie_event_flags", hwmon("vek_pcie_event"), number, flags},
        {"pcie_width", card("device/current_link_width"), number, width},
        {"pcie_speed_gts", card("device/current_link_speed"), text, speed},
        {"pcie_generation_max", card("device/max_link_speed"), text, generation},
        {"pcie_corrected_errors", card("device/aer_dev_correctable"), total, many},
        {"pcie_fatal_errors", card("device/aer_dev_fatal"), total, none},
        {"numa_node", card("device/numa_node"), number, numa},
        {"power_state", card("device/power_state"), text, known},
        {"crc_write_errors", card("device/gddr_crc"), counted, first},
        {"crc_read_retries", card("device/gddr_crc"), counted, last},
        {"uuid", hwmon("vek_chip_id"), text, known},
        {"primary_id", hwmon("vek_gpu_primary_id"), text, none},
        {"pcie_memory_bar", hwmon("vek_pcie_mmbar_type"), text, none},
        {"name", card("vek_product_name"), text, none},
    };
    for (const auto &row : rows) {
        const std::string &node = row.node, before = host.read(node);
        const auto expect = [&](value expected, const std::string &situation) {
            if (auto *why = std::get_if<missing>(&expected))
                why->node = node;
            EXPECT_EQ(fresh(row.key), expected) << row.key << " with " << situation;
        };
        for (const contents &held : {row.common, row.own})
            for (const auto &[content, expected] : held) {
                host.write(node, content);
                expect(expected, testing::PrintToString(content));
            }
        for (const auto &[error, why] : {std::pair{EACCES, reason::denied},
                                         {EPERM, reason::denied},
                                         {EIO, reason::failed},
                                         {ENODEV, reason::failed},
                                         {EOPNOTSUPP, reason::unsupported}}) {
            host.fail(node, error);
            expect(missing{why, error}, "error " + std::to_string(error));
        }
        host.remove(node);
        expect(missing{reason::absent}, "no node");
        host.link(node, "errno:5:read");
        expect(missing{reason::failed, EIO}, "a failing read");
        host.write(node, before);
    }
}

// What the library has another source for is missing when that is, too.
TEST_F(readings_field_test, the_last_source_decides)
{
    const std::string load = card("device/gpu_util_info"), memory = card("device/gpu_mem_util_info"),
                      facts = card("device/gpu_static_info"), version = card("version");
    for (const std::string &node : {load, memory, facts})
        host.remove(node);
    EXPECT_EQ(fresh("gpu_util_percent"), value(std::uint64_t{37}));
    EXPECT_TRUE(is_present(fresh("memory_used")));
    EXPECT_EQ(fresh("memory_devices"), value(std::uint64_t{4}));
    host.remove(host.hwmon(0, "vek_gddr_count"));
    EXPECT_EQ(fresh("memory_devices"), value(std::uint64_t{4}));
    for (const veksim::card_request &each : veksim::card_requests)
        host.fail_request(0, each, EBUSY);
    host.remove("/sys/kernel/debug");
    for (const auto &[key, node] : {std::pair{"gpu_util_percent", load},
                                    {"memory_used", memory},
                                    {"memory_util_percent", memory},
                                    {"cores", facts},
                                    {"card_type", facts}})
        EXPECT_EQ(fresh(key), value(missing{reason::absent, 0, node})) << key;
    host.fail(version, EIO);
    EXPECT_EQ(fresh("driver_kmd"), value(missing{reason::failed, EIO, version}));

    for (const char *text : {"\n", "0 0 0\n", "garbage\n"}) {
        host.write(load, text);
        host.write(memory, text);
        for (const auto &[key, node] : {std::pair{"gpu_util_percent", load},
                                        {"3d_util_percent", load},
                                        {"memory_used", memory},
                                        {"memory_util_percent", memory}}) {
            const value found = fresh(key);
            ASSERT_FALSE(is_present(found)) << key << " of " << text;
            EXPECT_EQ(why_missing(found)->node, node) << key;
        }
    }
    host.write(memory, "\n");
    EXPECT_EQ(fresh("process_count"), value(missing{reason::malformed, 0, memory}));
    EXPECT_TRUE(processes_of(begin()).is_null());
}

TEST_F(readings_field_test, what_the_gpu_says_it_has_not_is_unsupported)
{
    veksim::host_tree other;
    other.add_gpu({.fan_support = false, .power_support = false});
    veksim_use(other.root().c_str());
    for (const auto &[key, node] : {std::pair{"fan_speed", "fan1_input"},
                                    {"fan_mode", "fan1_ctrl_mode"},
                                    {"power", "power1_average"},
                                    {"power_total", "vek_total_power"}})
        EXPECT_EQ(fresh(key), value(missing{reason::unsupported, 0, other.hwmon(0, node)})) << key;
}

TEST_F(readings_field_test, debugfs_is_for_root)
{
    host.remove(card("device/gpu_util_info"));
    host.fail_request(0, veksim::utilisation_request, EBUSY);
    host.set_euid(1000);
    EXPECT_EQ(fresh("gpu_util_percent"), value(missing{reason::denied, 0, card("device/gpu_util_info")}));
}

TEST_F(readings_field_test, without_the_driver_the_firmware_tells)
{
    veksim::host_tree other;
    other.add_bare_gpu();
    other.set_euid(0);
    other.set_modules("");
    veksim_use(other.root().c_str());
    const std::pair<const char *, std::uint32_t> words[] = {
        {"temperature", 0x818}, {"power_total", 0x844}, {"fan_speed", 0x80c}, {"voltage", 0x800}, {"current", 0x804}};
    begin(true);
    for (const auto &[key, offset] : words)
        EXPECT_TRUE(is_present(read(key))) << key;
    EXPECT_TRUE(is_present(read("firmware_version")));
    EXPECT_TRUE(is_present(read("gfx_clock_mhz")));
    for (const char *key :
         {"gpu_util_percent", "memory_used", "cores", "uuid", "process_count", "pcie_width", "thermal_slowdown",
          "crc_read_errors", "memory_clock_mhz", "video_decoder_rate", "display_connected", "power_cap"})
        EXPECT_EQ(read(key), value(missing{reason::driverless})) << key;
    for (const auto &[key, offset] : words) {
        other.set_firmware(0, 0x13FF000 + offset, UINT32_MAX);
        begin(true);
        EXPECT_EQ(read(key), value(missing{reason::lost})) << key;
    }
    other.set_euid(1000);
    begin(true);
    for (const char *key : {"temperature", "power_total", "gfx_clock_mhz", "firmware_version"})
        EXPECT_EQ(read(key), value(missing{reason::denied})) << key;
    EXPECT_NE(begin(true).result(), VEKML_SUCCESS);
}

TEST_F(readings_field_test, numbers_are_in_the_unit_that_the_host_says)
{
    ASSERT_EQ(present_units().override_with("temperature = millicelsius\nmemory = kibibyte\npower_total = milliwatt\n"),
              "");
    host.write(hwmon("temp1_input"), "48500\n");
    host.write(hwmon("vek_total_power"), "32500\n");
    begin();
    EXPECT_EQ(read("temperature"), value(48.5));
    EXPECT_EQ(read("power_total"), value(32.5));
    EXPECT_EQ(read("memory_used"), value(std::uint64_t{1288490188} * 1024));
    EXPECT_EQ(processes_of(begin())[0]["memory"], 10 * 1024);
}

TEST_F(readings_field_test, whose_processes_they_are)
{
    const std::string id(64, 'a');
    const std::pair<std::string, json> groups[] = {
        {"0::/system.slice/render@1.service\n", "render@1.service"},
        {"0::/user.slice/user-1000.slice/session-3.scope\n", "session-3.scope"},
        {"12:cpu:/x.service\n1:name=systemd:/system.slice/docker-" + id + ".scope\n", "container aaaaaaaaaaaa"},
        {"0::/kubepods/burstable/pod1/" + id + "\n", "container aaaaaaaaaaaa"},
        {"0::/user.slice/run.service/inner\n", "run.service"},
        {"0::/\n", nullptr},
        {"garbage", nullptr}};
    for (const auto &[text, unit] : groups) {
        host.write("/proc/5000001/cgroup", text);
        host.write("/proc/5000001/cmdline", std::string("render\0--fast\0", 14));
        const json found = processes_of(begin());
        ASSERT_EQ(found.size(), 1u);
        EXPECT_EQ(found[0]["unit"], unit) << text;
        EXPECT_EQ(found[0]["command"], "render --fast");
        EXPECT_EQ(found[0]["pid"], 5000001);
        EXPECT_EQ(found[0]["memory"], 10);
        EXPECT_TRUE(found[0]["user"].is_string());
    }
}

} // namespace
