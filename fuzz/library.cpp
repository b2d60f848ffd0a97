// SPDX-License-Identifier: Apache-2.0
// What the library takes from elsewhere: the texts and records that the driver hands over, what commands print, its
// callers' texts, and its own log.
#include "stand_ins.h"
#include "target.h"

#include "driver_model.h"
#include "drm_card.h"
#include "host_tree.h"
#include "vek_smi_utils.h"
#include "vek_smi_vpu_api.h"
#include "vekml.h"
#include "veksim.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <pciaccess.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

veksim::host_tree *host;
int memory; // the physical memory of the host, in which the second GPU has its window

// Each call gets a record of just the size that it may fill.
template <typename Out>
void get(vekml_return_t (*getter)(vekml_device_t, Out *))
{
    getter(&globals.devices[0], std::make_unique<Out>().get());
}
template <std::size_t Size, typename From>
void get_text(vekml_return_t (*getter)(From, char *), From from)
{
    getter(from, std::make_unique<char[]>(Size).get());
}

void read_static_info()
{
    get(vekml_device_query_static_info);
    get_text<8>(vekml_device_get_gddr_vendor, &globals.devices[0]);
    get(vekml_device_get_pixel_fill_rate);
}

void read_error_totals()
{
    const char *card = globals.devices[0].card_path;
    for (const auto getter :
         {vekml_device_get_pcie_err_corr, vekml_device_get_pcie_err_fatal, vekml_device_get_pcie_err_nonfatal})
        get_text<4>(getter, card);
}

void read_memory()
{
    get(vekml_device_get_mem_info);
    get(vekml_device_get_process_info);
}

void read_dump()
{
    get(vekml_device_get_driver_version);
    get(vekml_device_get_mem_info);
}

void read_attributes()
{
    vekml_init();
    vekml_device_t gpu = &globals.devices[0];
    get_text<16, const char *>(vekml_device_get_product_name, gpu->card_path);
    for (const auto getter : {vekml_device_get_uuid, vekml_device_get_pcie_throughput, vekml_device_get_pcie_mmbar_type,
                              vekml_device_get_primary_id, vekml_device_get_serial, vekml_device_get_fw_ver})
        get_text<20>(getter, gpu);
    get_text<50>(vekml_device_get_vbios_version, gpu);
    get_text<64>(vekml_device_get_vendor, gpu);
    get(vekml_device_get_asic_type);
    get(vekml_device_get_chip_process);
    get(vekml_device_get_pcie_event);
    get(vekml_device_get_display_status);
    get(vekml_device_is_support_power);
    get(vekml_device_get_thermal_info);
    get(vekml_device_query);
}

void read_engine_load()
{
    vekml::scan_vpus_when_smi_inited();
    globals.devices[0].last_sample_sec -= 1; // the clock itself is libFuzzer's, too
    std::uint32_t rate[4];
    vekml_device_get_vpu_utlz(&globals.devices[0], &rate[0], &rate[1], &rate[2], &rate[3]);
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
    get(vekml_device_query_by_out_of_band);
}
std::string firmware()
{
    std::string block(block_size, '\0');
    return pread(memory, block.data(), block.size(), block_place()) < 0 ? "" : block;
}

void request_all()
{
    get(vekml_device_query_static_info);
    get(vekml_device_get_util_info);
    get(vekml_device_get_process_info);
}
std::string replies()
{
    std::string bytes(vekml::process_statistics.limit, '\0');
    const vekml::information *const all[] = {&vekml::first_static_information, &vekml::utilisation_counters,
                                             &vekml::process_statistics};
    static int next;
    vekml::drm_card card(0);
    must(card.open() && card.request(*all[next++ % 3], bytes.data()) == 0);
    return bytes.substr(0, 3 * 184);
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
    get(vekml_device_query_by_out_of_band);
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

constexpr char video_driver[] = "/usr/lib/aarch64-linux-gnu/dri/vekgpu_drv_video.conf";

void read_engine_abilities()
{
    globals.devices[0].vpu_codec_info.valid = 0;
    get(vekml_device_get_vpu_info);
}

std::string engine_abilities()
{
    static int next;
    constexpr const char *all[] = {
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
    return all[next++ % std::size(all)];
}

// The driver reads all of it for each answer, and gets as much memory for its lists as it says it may need.
std::string modest(const std::string &text)
{
    constexpr std::size_t digits = 6;
    std::string made = text.substr(0, 800);
    for (std::size_t at = 0; (at = made.find("max_", at)) != made.npos; ++at) {
        const std::size_t end = std::min(made.find('\n', at), made.size());
        const std::size_t number = std::min(made.find_first_of("0123456789", at), end);
        if (end - number > digits)
            made.erase(number + digits, end - number - digits);
    }
    return made;
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

// All nodes of one value but the vendor id, without which there is no GPU.
inputs attributes()
{
    inputs nodes;
    for (const auto &file : fs::directory_iterator(host->path(host->hwmon())))
        nodes.push_back(host->hwmon(0, file.path().filename()));
    for (const char *node : {"vek_product_name", "vek_dbdf", "device/device", "device/current_link_speed",
                             "device/current_link_width", "card0-HDMI-A-1/status"})
        nodes.push_back(host->card(0, node));
    return nodes;
}

// ---- targets whose input stands in nodes

struct node_target {
    std::string name;
    std::string source;
    inputs nodes;   // that hold the input
    inputs missing; // what would be asked before them
    std::function<void()> read;
    std::function<std::string()> seed = nullptr;          // an input, where the nodes' text is none
    std::string (*encode)(const std::string &) = nullptr; // makes an input the nodes' text
};

// What the nodes hold while the host lives on; texts that repeat past the first buffer of whoever reads them, and those
// that begin behind it.
inputs seeds_of(const node_target &each)
{
    constexpr std::size_t past_buffers = 17000;
    inputs seeds;
    veksim::driver_model driver(*host);
    for (int round = 0; round < 8; ++round, driver.tick(2)) {
        if (each.seed)
            seeds.push_back(each.seed());
        else
            for (const std::string &node : each.nodes)
                seeds.push_back(host->read(node));
    }
    if (each.encode != nullptr)
        return seeds;
    std::string repeated;
    while (!seeds[0].empty() && repeated.size() < past_buffers)
        repeated += seeds[0];
    seeds.push_back(repeated);
    seeds.push_back(std::string(past_buffers, '\n') + seeds[0]);
    return seeds;
}

target in_nodes(const node_target &each)
{
    static int input = -1; // of the one target that runs
    const auto prepare = [=] {
        for (const std::string &node : each.missing)
            host->remove(node);
        for (std::size_t i = 1; i < each.nodes.size(); ++i)
            host->link(each.nodes[i], host->path(each.nodes[0]).string());
        input = open(host->path(each.nodes[0]).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    };
    const auto run = [=](const std::string &text) {
        const std::string content = each.encode != nullptr ? each.encode(text) : text;
        must(ftruncate(input, 0) == 0 && pwrite(input, content.data(), content.size(), 0) >= 0);
        each.read();
    };
    return {each.name, each.source, run, [=] { return seeds_of(each); }, prepare};
}

std::vector<node_target> node_targets()
{
    const auto on_card = [](const char *node) { return host->card(0, node); };
    inputs replies_of_card;
    for (const veksim::card_request &each : veksim::card_requests)
        replies_of_card.push_back(host->request(0, each));
    const std::string static_info = on_card("device/gpu_static_info"), load = on_card("device/gpu_util_info"),
                      memory_info = on_card("device/gpu_mem_util_info"), version = on_card("version");
    const std::string load_reply = host->request(0, veksim::utilisation_request);
    const auto read_load = [] { get(vekml_device_get_util_info); };
    return {
        {"static_info", "src/vek_smi_query_api.cpp", {static_info}, {}, read_static_info},
        {"utilisation", "src/utilisation.cpp", {load}, {}, read_load},
        {"utilisation_status",
         "src/utilisation.cpp",
         {"/sys/kernel/debug/vekgpu/status"},
         {load, load_reply},
         read_load},
        {"memory", "src/process_list.cpp", {memory_info}, {}, read_memory},
        {"process_status",
         "src/process_list.cpp",
         {"/proc/5000001/status"},
         {},
         read_memory,
         [] { return std::string("Name:\tfirst one\nUmask:\t0022\n"); }},
        {"driver_version", "src/driver_version.cpp", {version}, {}, read_dump},
        {"debug_dump", "src/debugfs_dump.cpp", {host->debug_dump()}, {version, memory_info}, read_dump},
        {"memory_errors",
         "src/number_scan.h",
         {on_card("device/gddr_crc")},
         {},
         [] { get(vekml_device_get_gddr_crc); }},
        {"pcie_errors",
         "src/vek_smi_pcie_api.cpp",
         {on_card("device/aer_dev_correctable"), on_card("device/aer_dev_fatal"), on_card("device/aer_dev_nonfatal")},
         {},
         read_error_totals},
        {"video_engines", "src/vpu_counters.cpp", {"/sys/kernel/debug/vpu/xmem"}, {}, read_engine_load},
        {"video_driver", "src/vpu_codecs.cpp", {video_driver}, {}, read_engine_abilities, engine_abilities, modest},
        {"attributes", "src/vek_smi.cpp", attributes(), {}, read_attributes},
        {"replies",
         "src/drm_card.cpp",
         replies_of_card,
         {static_info, load, memory_info},
         request_all,
         replies,
         as_reply},
        {"pci_configuration", "src/vek_smi.cpp", {host->pci_device(1) + "/config"}, {}, start_without_driver},
        {"pci_regions",
         "src/vek_smi.cpp",
         {host->pci_device(1) + "/resource"},
         {},
         start_without_driver,
         regions,
         as_regions},
    };
}

std::function<inputs()> just(const inputs &seeds)
{
    return [=] { return seeds; };
}

void build_host()
{
    static veksim::host_tree tree;
    host = &tree;
    veksim::gpu_state state;
    state.processes = {{5000001, "first", 10, 30}, {5000002, "second one", 20, 40}};
    tree.add_gpu({}, state);
    tree.add_bare_gpu();
    tree.set_euid(0);
    memory = open(tree.path("/dev/mem").c_str(), O_RDWR | O_CLOEXEC);
    veksim_use(tree.root().c_str());
    tree.add_video_libraries();
    vekml_init();
}

} // namespace

std::vector<target> all_targets()
{
    build_host();
    std::vector<target> targets = {
        {"pci_address", "src/vek_smi_utils.cpp", take_address, just({host->config(0).pci_address})},
        {"device_model", "src/vek_smi_device_id.cpp", take_model, just({host->config(0).model + " 0"})},
        {"firmware", "src/firmware_block.cpp", read_firmware, [] { return inputs{firmware()}; }},
        {"modules", "src/vek_smi_utils.cpp", take_modules, [] { return inputs{host->read("/host/modules")}; }},
        {"packages", "src/vek_smi_utils.cpp", take_packages, just({host->read("/host/packages"), "ii vekgpu 1.2.3-4"})},
        {"settings", "src/vek_smi_temper_api.cpp", set_all, just({"85", "1000000000", "3000", "-1", "0", "85\0001"})},
        {"log", "src/debug_log.cpp", take_message, just({"1234message", std::string("\xff\xff\x0f\0", 4)}),
         limit_files},
    };
    for (const node_target &each : node_targets())
        targets.push_back(in_nodes(each));
    return targets;
}
