// SPDX-License-Identifier: Apache-2.0
//
// One target for each text or record that the driver hands over: vekml_fuzz --target=NAME FOLDER [libFuzzer's options].
// vekml_fuzz --seeds=FOLDER fills FOLDER/NAME for every target from a simulated host and prints the names.
#include "debug_log.h"
#include "driver_model.h"
#include "drm_card.h"
#include "host_tree.h"
#include "vek_smi_utils.h"
#include "vek_smi_vpu_api.h"
#include "vekml.h"
#include "veksim.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <memory>
#include <pciaccess.h>
#include <unistd.h>

// In place of the library's own: every text is formatted, so none may lack its end, but no time goes into a file.
void vekml::vekml_debug_log(const char *, int, const char *, const char *format, ...)
{
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
}

namespace {

namespace fs = std::filesystem;

veksim::host_tree *host;
int memory; // the physical memory of the host, in which the second GPU has its window

struct target {
    const char *name;
    std::vector<std::string> nodes;   // that hold the input
    std::vector<std::string> missing; // what would be asked before them
    std::function<void(const std::string &input)> run;
    std::function<std::string()> seed = nullptr;          // an input, where the nodes' text is none
    std::string (*encode)(const std::string &) = nullptr; // makes an input the nodes' text
};

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

void read_static_info(const std::string &)
{
    get(vekml_device_query_static_info);
    get_text<8>(vekml_device_get_gddr_vendor, &globals.devices[0]);
    get(vekml_device_get_pixel_fill_rate);
}

void read_error_totals(const std::string &)
{
    const char *card = globals.devices[0].card_path;
    for (const auto getter :
         {vekml_device_get_pcie_err_corr, vekml_device_get_pcie_err_fatal, vekml_device_get_pcie_err_nonfatal})
        get_text<4>(getter, card);
}

void read_memory(const std::string &)
{
    get(vekml_device_get_mem_info);
    get(vekml_device_get_process_info);
}

void read_dump(const std::string &)
{
    get(vekml_device_get_driver_version);
    get(vekml_device_get_mem_info);
}

void read_attributes(const std::string &)
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

void read_engine_load(const std::string &)
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
    if (pwrite(memory, block.data(), std::min(block.size(), block_size), block_place()) < 0)
        abort();
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

void request_all(const std::string &)
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
    if (!card.open() || card.request(*all[next++ % 3], bytes.data()) != 0)
        abort();
    return bytes.substr(0, 3 * 184);
}
std::string as_reply(const std::string &bytes)
{
    std::string text = "u8";
    for (const char byte : bytes)
        text += " " + std::to_string(static_cast<unsigned char>(byte));
    return text + "\n";
}

// All nodes of one value but the vendor id, without which there is no GPU.
std::vector<std::string> attributes()
{
    std::vector<std::string> nodes;
    for (const auto &file : fs::directory_iterator(host->path(host->hwmon())))
        nodes.push_back(host->hwmon(0, file.path().filename()));
    for (const char *node : {"vek_product_name", "vek_dbdf", "device/device", "device/current_link_speed",
                             "device/current_link_width", "card0-HDMI-A-1/status"})
        nodes.push_back(host->card(0, node));
    return nodes;
}

std::vector<target> all_targets()
{
    const auto on_card = [](const char *node) { return host->card(0, node); };
    std::vector<std::string> replies_of_card;
    for (const veksim::card_request &each : veksim::card_requests)
        replies_of_card.push_back(host->request(0, each));
    const std::string static_info = on_card("device/gpu_static_info"), load = on_card("device/gpu_util_info"),
                      memory_info = on_card("device/gpu_mem_util_info"), version = on_card("version");
    const auto read_load = [](const std::string &) { get(vekml_device_get_util_info); };
    return {
        {"static_info", {static_info}, {}, read_static_info},
        {"utilisation", {load}, {}, read_load},
        {"utilisation_status",
         {"/sys/kernel/debug/vekgpu/status"},
         {load, host->request(0, veksim::utilisation_request)},
         read_load},
        {"memory", {memory_info}, {}, read_memory},
        {"process_status", {"/proc/5000001/status"}, {}, read_memory},
        {"driver_version", {version}, {}, read_dump},
        {"debug_dump", {host->debug_dump()}, {version, memory_info}, read_dump},
        {"memory_errors",
         {on_card("device/gddr_crc")},
         {},
         [](const std::string &) { get(vekml_device_get_gddr_crc); }},
        {"pcie_errors",
         {on_card("device/aer_dev_correctable"), on_card("device/aer_dev_fatal"), on_card("device/aer_dev_nonfatal")},
         {},
         read_error_totals},
        {"video_engines", {"/sys/kernel/debug/vpu/xmem"}, {}, read_engine_load},
        {"attributes", attributes(), {}, read_attributes},
        {"pci_address", {}, {}, take_address, [] { return host->config(0).pci_address; }},
        {"device_model", {}, {}, take_model, [] { return host->config(0).model + " 0"; }},
        {"firmware", {}, {}, read_firmware, firmware},
        {"replies", replies_of_card, {static_info, load, memory_info}, request_all, replies, as_reply},
    };
}

void write_seeds(const std::vector<target> &targets, const fs::path &folder)
{
    veksim::driver_model driver(*host);
    for (int round = 0; round < 8; ++round, driver.tick(2)) {
        for (const target &each : targets) {
            fs::create_directories(folder / each.name);
            for (const std::string &node :
                 each.nodes.empty() || each.seed ? std::vector<std::string>{""} : each.nodes) {
                const std::string seed = each.seed ? each.seed() : host->read(node);
                const std::string name = "seed-" + std::to_string(std::hash<std::string>()(seed));
                std::ofstream(folder / each.name / name, std::ios::binary) << seed;
            }
        }
    }
    for (const target &each : targets)
        std::printf("%s\n", each.name);
}

target chosen;
int input = -1;

void prepare()
{
    for (const std::string &node : chosen.missing)
        host->remove(node);
    for (std::size_t i = 1; i < chosen.nodes.size(); ++i)
        host->link(chosen.nodes[i], host->path(chosen.nodes[0]).string());
    if (!chosen.nodes.empty())
        input = open(host->path(chosen.nodes[0]).c_str(), O_WRONLY | O_CLOEXEC);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
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

    const std::vector<target> targets = all_targets();
    for (const std::string argument : std::vector<char *>(*argv, *argv + *argc)) {
        const std::string value = argument.substr(argument.find('=') + 1);
        if (argument.rfind("--seeds=", 0) == 0) {
            write_seeds(targets, value);
            std::exit(0);
        }
        for (const target &each : targets)
            if (argument == std::string("--target=") + each.name)
                chosen = each;
    }
    if (!chosen.run) {
        std::fprintf(stderr, "vekml_fuzz: --target=NAME or --seeds=FOLDER is missing\n");
        std::exit(1);
    }
    prepare();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const std::string content = chosen.encode != nullptr ? chosen.encode(text) : text;
    if (input >= 0 && (ftruncate(input, 0) != 0 || pwrite(input, content.data(), content.size(), 0) < 0))
        abort();
    chosen.run(text);
    return 0;
}
