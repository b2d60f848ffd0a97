// SPDX-License-Identifier: Apache-2.0
// What the library takes from elsewhere: the texts and records that the driver hands over, what commands print, its
// callers' texts, and its own log.
#include "stand_ins.h"
#include "target.h"

#include "calls.h"
#include "drm_card.h"
#include "vek_smi_utils.h"
#include "vek_smi_vpu_api.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <pciaccess.h>
#include <regex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

int memory; // the physical memory of the host, in which the second GPU has its window

// Calls of the readers' table, by their names, each with a record of just the size that it may fill.
void ask(const inputs &names)
{
    for (const std::string &name : names) {
        const auto one = std::ranges::find(readers, name, &call::name);
        must(one != readers.end());
        one->run(&globals.devices[0], std::make_unique<char[]>(one->size).get());
    }
}

void take_address(const std::string &text)
{
    vekml_device_t found = nullptr;
    std::uint64_t domain = 0, bus = 0, device = 0, function = 0;
    vekml::parse_dbdf(text.c_str(), &domain, &bus, &device, &function);
    vekml_device_get_handle_by_pci_bus_id(&found, text.c_str());
}

void take_model(const std::string &text)
{
    for (const std::uint32_t size : {1u, 8u, 64u})
        parse_device_model(text.c_str(), std::make_unique<char[]>(size).get(), size);
}

constexpr std::size_t block_size = 0x900;
off_t block_place()
{
    return static_cast<off_t>(host->config(1).bar0 + 0x13FF000);
}
void read_firmware(const std::string &block)
{
    must(pwrite(memory, block.data(), std::min(block.size(), block_size), block_place()) >= 0);
    pci_device controller{};
    controller.regions[0].base_addr = host->config(1).bar0;
    vekml_pci_out_of_band_manager(0, &controller);
    ask({"query_by_out_of_band"});
}
std::string firmware()
{
    std::string block(block_size, '\0');
    return pread(memory, block.data(), block.size(), block_place()) < 0 ? "" : block;
}

inputs replies()
{
    inputs all;
    vekml::drm_card card(0);
    must(card.open());
    for (const auto *each :
         {&vekml::first_static_information, &vekml::utilisation_counters, &vekml::process_statistics}) {
        std::string bytes(vekml::process_statistics.limit, '\0');
        must(card.request(*each, bytes.data()) == 0);
        all.push_back(bytes.substr(0, 3 * 184));
    }
    return all;
}
std::string as_reply(const std::string &bytes)
{
    std::string text = "u8";
    for (const char byte : bytes)
        text += " " + std::to_string(static_cast<unsigned char>(byte));
    return text + "\n";
}

// ---- the bus

void start_without_driver()
{
    command_output = "";
    vekml_shutdown();
    vekml_out_of_band_init();
}

// Three numbers a region: where it begins, in the memory that the host has, where it ends, and what it is.
struct region {
    std::uint64_t first, last, flags;
};

std::string regions()
{
    const region all[] = {{host->config(1).bar0, host->config(1).bar0 + 0x1FFFFFF, 0x14220C}, {0, 0, 0}};
    return {reinterpret_cast<const char *>(all), sizeof all};
}

std::string as_regions(const std::string &bytes)
{
    std::string text;
    for (std::size_t at = 0; at + sizeof(region) <= bytes.size(); at += sizeof(region)) {
        region one;
        std::memcpy(&one, bytes.data() + at, sizeof one);
        char line[80];
        snprintf(line, sizeof line, "0x%016lx 0x%016lx 0x%016lx\n", one.first % (host->config(1).bar0 + 1), one.last,
                 one.flags);
        text += line;
    }
    return text;
}

// ---- commands

void take_modules(const std::string &text)
{
    command_output = text;
    const int result = vekml::is_out_of_band();
    must(text.find("vekgpu") != text.npos || result == 1);
}

void take_packages(const std::string &text)
{
    command_output = text;
    for (const std::uint32_t size : {0u, 5u, 600u}) // callers have room for one more
        vekml_device_get_driver_release_version(std::make_unique<char[]>(size + 1).get(), size);
}

// ---- callers

// Callers end the text that they select, and no other.
template <typename Record>
void set_each(vekml_return_t (*set)(vekml_device_t, Record *, std::uint32_t), const std::string &bytes)
{
    constexpr std::size_t texts = 4, size = sizeof(Record) / texts;
    for (std::uint32_t type = 0; type <= texts; ++type) {
        const auto record = std::make_unique<Record>();
        std::memcpy(record.get(), bytes.data(), std::min(bytes.size(), sizeof(Record)));
        if (type < texts)
            reinterpret_cast<char *>(record.get())[(type + 1) * size - 1] = '\0';
        set(&globals.devices[0], record.get(), type);
    }
}

void set_all(const std::string &text)
{
    for (const auto set : {vekml_device_set_dvfs_enable, vekml_device_set_fan_ctrl_mode, vekml_device_set_fan_pwm1,
                           vekml_device_set_fan1_speed, vekml_device_set_power_volt, vekml_device_set_power_warn,
                           vekml_device_set_gfx_clock})
        set(&globals.devices[0], text.c_str());
    set_each(vekml_device_set_thermal_info, text);
    set_each(vekml_device_set_temper_info, text);
}

// ---- the video engines' driver

const inputs engine_abilities = {
    R"(vendor v
profile 6
entrypoint 1
attribute 0 0x200101
entrypoint 6
attribute 0 1
attribute 5 0x16
profile 12
fail 12
)",
    "max_profiles 2\nmax_entrypoints 1\nclaim 100000\nprofile 6\nclaim -1\nentrypoint 1\n", "init 1\n",
    "query 2\nprofile 13\nentrypoint 10\nfail 13\n"};

// The driver reads all of it for each answer, and gets as much memory for its lists as it says it may need.
std::string modest(const std::string &text)
{
    static const std::regex number("(max_[^0-9\n]*[0-9][^\n]{5})[^\n]*");
    return std::regex_replace(text.substr(0, 800), number, "$1");
}

// ---- the log

constexpr rlim_t file_limit = 600 * 1024;

void allow_files(rlim_t size)
{
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(size, limit.rlim_max);
    must(setrlimit(RLIMIT_FSIZE, &limit) == 0);
}

void limit_files()
{
    host->write("/tmp/smi.log", "");
    allow_files(file_limit);
}

// The first three bytes are the size that the log has before; each message is there whole, or not at all.
void take_message(const std::string &input)
{
    constexpr std::size_t largest = 1 << 20;
    const fs::path path = host->path("/tmp/smi.log");
    std::uint32_t before = 0;
    std::memcpy(&before, input.data(), std::min<std::size_t>(input.size(), 3));
    before %= largest + 1000;
    const std::string message = input.substr(std::min<std::size_t>(input.size(), 3)).c_str();
    allow_files(RLIM_INFINITY);
    fs::resize_file(path, 0);
    fs::resize_file(path, before);
    allow_files(file_limit);
    write_to_log("file.cpp", 7, "function", "%s\n", message.c_str());

    const std::size_t kept = before > largest ? 0 : before, after = fs::file_size(path);
    must(after >= kept && after <= std::max<std::size_t>(kept, file_limit));
    const std::string end = "-<function>: " + message + "\n";
    if (after == kept) {
        must(kept + end.size() + 100 > file_limit);
        return;
    }
    std::string line(after - kept, '\0');
    const int log = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    must(pread(log, line.data(), line.size(), static_cast<off_t>(kept)) == static_cast<ssize_t>(line.size()));
    close(log);
    must(line.starts_with("[DBG][") && line.ends_with(end) && line.size() < end.size() + 100);
}

// ---- targets whose input stands in nodes

struct particulars {
    inputs missing = {};                                  // what would be asked before the nodes
    std::function<void()> begin = [] {};                  // comes before the calls
    inputs seeds = {};                                    // where the nodes' text is none
    std::string (*encode)(const std::string &) = nullptr; // makes an input the nodes' text
};

// What the nodes hold; texts that repeat past the first buffer of whoever reads them, and those that begin behind it.
inputs seeds_in(const inputs &nodes)
{
    constexpr std::size_t past_buffers = 17000;
    inputs seeds;
    for (const std::string &node : nodes)
        seeds.push_back(host->read(node));
    std::string repeated;
    while (!seeds[0].empty() && repeated.size() < past_buffers)
        repeated += seeds[0];
    seeds.push_back(repeated);
    seeds.push_back(std::string(past_buffers, '\n') + seeds[0]);
    return seeds;
}

// The nodes hold the input, and the calls of these names meet it.
target in_nodes(const char *name, const char *source, const inputs &calls, const inputs &nodes,
                const particulars &own = {})
{
    static int input = -1; // of the one target that runs
    const auto prepare = [=] {
        for (const std::string &node : own.missing)
            host->remove(node);
        link_to_first(nodes);
        input = open(host->path(nodes[0]).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    };
    const auto run = [=](const std::string &text) {
        const std::string content = own.encode != nullptr ? own.encode(text) : text;
        must(ftruncate(input, 0) == 0 && pwrite(input, content.data(), content.size(), 0) >= 0);
        own.begin();
        ask(calls);
    };
    return {name, source, run, own.seeds.empty() ? seeds_in(nodes) : own.seeds, prepare};
}

void build_host()
{
    veksim::gpu_state state;
    state.processes = {{5000001, "first one", 10, 30}, {5000002, "second one", 20, 40}};
    host->add_gpu({}, state);
    host->add_bare_gpu();
    memory = open(host->path("/dev/mem").c_str(), O_RDWR | O_CLOEXEC);
    host->add_video_libraries();
    vekml_init();
}

} // namespace

std::vector<target> all_targets()
{
    build_host();
    const auto on_card = [](const std::string &node) { return host->card(0, node); };
    const std::string static_info = on_card("device/gpu_static_info"), load = on_card("device/gpu_util_info"),
                      memory_info = on_card("device/gpu_mem_util_info"), version = on_card("version"),
                      errors = on_card("device/aer_dev_");
    inputs card_replies;
    for (const veksim::card_request &each : veksim::card_requests)
        card_replies.push_back(host->request(0, each));
    const auto forget_codecs = [] { globals.devices[0].vpu_codec_info.valid = 0; };
    const auto pass_a_second = [] {
        vekml::scan_vpus_when_smi_inited();
        globals.devices[0].last_sample_sec -= 1; // the clock itself is libFuzzer's, too
    };
    return {
        {"pci_address", "src/vek_smi_utils.cpp", take_address, {host->config(0).pci_address}},
        {"device_model", "src/vek_smi_device_id.cpp", take_model, {host->config(0).model + " 0"}},
        {"firmware", "src/firmware_block.cpp", read_firmware, {firmware()}},
        {"modules", "src/vek_smi_utils.cpp", take_modules, {host->read("/host/modules")}},
        {"packages", "src/vek_smi_utils.cpp", take_packages, {host->read("/host/packages"), "ii vekgpu 1.2.3-4"}},
        {"settings", "src/vek_smi_temper_api.cpp", set_all, {"85", "1000000000", "3000", "-1", "0", "85\0001"}},
        {"log", "src/debug_log.cpp", take_message, {"1234message", std::string("\xff\xff\x0f\0", 4)}, limit_files},
        in_nodes("static_info", "src/vek_smi_query_api.cpp",
                 {"query_static_info", "get_gddr_vendor", "get_pixel_fill_rate"}, {static_info}),
        in_nodes("utilisation", "src/utilisation.cpp", {"get_util_info"}, {load}),
        in_nodes("utilisation_status", "src/utilisation.cpp", {"get_util_info"}, {"/sys/kernel/debug/vekgpu/status"},
                 {.missing = {load, host->request(0, veksim::utilisation_request)}}),
        in_nodes("memory", "src/process_list.cpp", {"get_mem_info", "get_process_info"}, {memory_info}),
        in_nodes("process_status", "src/process_list.cpp", {"get_process_info"}, {"/proc/5000001/status"}),
        in_nodes("driver_version", "src/driver_version.cpp", {"get_driver_version"}, {version}),
        in_nodes("debug_dump", "src/debugfs_dump.cpp", {"get_driver_version", "get_mem_info"}, {host->debug_dump()},
                 {.missing = {version, memory_info}}),
        in_nodes("memory_errors", "src/number_scan.h", {"get_gddr_crc"}, {on_card("device/gddr_crc")}),
        in_nodes("pcie_errors", "src/vek_smi_pcie_api.cpp",
                 {"get_pcie_err_corr", "get_pcie_err_fatal", "get_pcie_err_nonfatal"},
                 {errors + "correctable", errors + "fatal", errors + "nonfatal"}),
        in_nodes("video_engines", "src/vpu_counters.cpp", {"get_vpu_rates"}, {"/sys/kernel/debug/vpu/xmem"},
                 {.begin = pass_a_second}),
        in_nodes("video_driver", "src/vpu_codecs.cpp", {"get_vpu_info"},
                 {"/usr/lib/aarch64-linux-gnu/dri/vekgpu_drv_video.conf"},
                 {.begin = forget_codecs, .seeds = engine_abilities, .encode = modest}),
        in_nodes("attributes", "src/vek_smi.cpp",
                 {"get_product_name", "get_uuid", "get_pcie_throughput", "get_pcie_mmbar_type", "get_primary_id",
                  "get_serial", "get_fw_ver", "get_vbios_version", "get_vendor", "get_asic_type", "get_chip_process",
                  "get_pcie_event", "get_display_status", "is_support_power", "get_thermal_info", "query"},
                 single_values(), {.begin = vekml_init}),
        in_nodes("replies", "src/drm_card.cpp", {"query_static_info", "get_util_info", "get_process_info"},
                 card_replies, {.missing = {static_info, load, memory_info}, .seeds = replies(), .encode = as_reply}),
        in_nodes("pci_configuration", "src/vek_smi.cpp", {"query_by_out_of_band"}, {host->pci_device(1) + "/config"},
                 {.begin = start_without_driver}),
        in_nodes("pci_regions", "src/vek_smi.cpp", {"query_by_out_of_band"}, {host->pci_device(1) + "/resource"},
                 {.begin = start_without_driver, .seeds = {regions()}, .encode = as_regions}),
    };
}
