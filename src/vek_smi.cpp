// SPDX-License-Identifier: Apache-2.0
#include "vekml.h"

#include "debug_log.h"
#include "firmware_block.h"
#include "raii.h"
#include "vek_smi_utils.h"
#include "vek_smi_vpu_api.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <pciaccess.h>
#include <span>
#include <string_view>
#include <sys/mman.h>

using namespace vekml;

vekml_globals_t globals;

namespace {

constexpr char drm_class[] = "/sys/class/drm";
constexpr std::uint32_t discovery_limit = 15; // one below the table's size
constexpr int hwmon_directories = 99;

constexpr std::uint32_t unknown_model_device_id = 65535;
constexpr std::uint32_t default_chip_process = 12;

#define VEKML_TEXT_OF(number) #number
#define VEKML_AS_TEXT(number) VEKML_TEXT_OF(number)
constexpr char vendor_text[] = VEKML_AS_TEXT(VEKGPU_PCI_VENDOR_ID);
static_assert(sizeof vendor_text == sizeof "0x0000" &&
                  std::string_view(vendor_text).find_first_not_of("0123456789abcdefx") == std::string_view::npos,
              "the vendor id is written 0x and four lower-case digits");

std::span<vekml_device_record_t> devices()
{
    return {globals.devices, std::min<std::size_t>(globals.count, VEKML_MAX_DEVICES)};
}

bool is_directory(const char *path)
{
    return static_cast<bool>(unique_fd(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
}

/** Find the GPUs among all cards, or try one card alone. */
void discover_vekgpu_devices(std::optional<std::uint32_t> only)
{
    if (only)
        globals.count = 0;
    const unique_directory drm = read_as_directory(unique_fd(open(drm_class, O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
    if (!drm) {
        fputs("Open failed, there's no such path", stdout);
        return;
    }
    const dirent *entry = readdir(drm.get());
    if (entry == nullptr) {
        fputs("Read failed, no file node to read", stdout);
        return;
    }
    // Connectors are counted too: the sum bounds the card numbers to try.
    std::uint64_t bound = 0;
    for (; entry != nullptr; entry = readdir(drm.get()))
        bound += strncmp(entry->d_name, "card", 4) == 0;
    TRACE("count is: %d", static_cast<int>(bound));
    std::uint64_t n = 0;
    if (only) {
        n = *only;
        bound = n + 1;
    }

    std::uint32_t found = 0;
    node_text<> vendor; // kept from card to card: an unreadable vendor repeats the one before it
    for (; n < bound && found < discovery_limit; ++n) {
        const auto card_index = static_cast<std::uint32_t>(n);
        char path[256];
        snprintf(path, sizeof path, "%s%s%u", drm_class, "/card", card_index);
        if (!is_directory(path))
            continue;
        vendor.read(node_path<50>(path, "/device/vendor"));
        if (strcmp(vendor.text, vendor_text) != 0)
            continue;
        vekml_device_record_t &device = globals.devices[found];
        copy_text(device.card_path, sizeof device.card_path, path);
        device.card_index = card_index;
        device.table_index = found;
        TRACE("True Card path is %s", device.card_path);
        ++found;
    }
    globals.count = found;
    TRACE("true_count is: %d", found);
}

void get_product_name()
{
    for (auto &device : devices()) {
        copy_text(device.product_name_path, sizeof device.product_name_path,
                  node_path<>(device.card_path, "/vek_product_name").text());
        read_from_node(device.product_name_path, device.name, sizeof device.name);
        TRACE("get_product_name: architecture %s", device.name);
    }
}

void get_product_dbdf()
{
    for (auto &device : devices()) {
        copy_text(device.dbdf_path, sizeof device.dbdf_path, node_path<>(device.card_path, "/vek_dbdf").text());
        read_from_node(device.dbdf_path, device.dbdf, sizeof device.dbdf);
        TRACE("dbdf %s", device.dbdf);
        parse_dbdf(device.dbdf, &device.domain, &device.bus, &device.device, &device.function);
        TRACE("domain is %lx, bus is %lx, device is %lx, func is %lx, bdfid is %lx", device.domain, device.bus,
              device.device, device.function, device.bdfid);
    }
}

void get_product_id()
{
    for (auto &device : devices()) {
        get_data_from_node(node_path<100>(device.card_path, "/device/vendor"), &device.vendor_id);
        TRACE("vendor ID is 0x%4lx.", device.vendor_id);
        get_data_from_node(node_path<100>(device.card_path, "/device/device"), &device.device_id);
        TRACE("device ID is 0x%4lx.", device.device_id);
        get_data_from_node(node_path<100>(device.card_path, "/device/subsystem_vendor"), &device.subsystem_vendor_id);
        TRACE("subsystem vendor ID is 0x%4lx", device.subsystem_vendor_id);
        get_data_from_node(node_path<100>(device.card_path, "/device/subsystem_device"), &device.subsystem_device_id);
        TRACE("subsystem device ID is 0x%04lx", device.subsystem_device_id);
    }
}

/** PCIe generation of a link speed in GT/s, by the rule that clients know: speeds 2, 5 and 32 have none. */
std::uint32_t link_generation(std::uint32_t speed)
{
    switch (speed) {
    case 8:
        return 3;
    case 16:
        return 4;
    case 1:
        return 5;
    default:
        return 0;
    }
}

struct link_node {
    const char *suffix;
    char (vekml_device_record_t::*path)[256];
    std::uint32_t vekml_device_record_t::*value;
    const char *name;
};

constexpr link_node link_nodes[] = {
    {"/device/current_link_speed", &vekml_device_record_t::curr_link_speed_path,
     &vekml_device_record_t::curr_link_speed, "curr_link_speed"},
    {"/device/current_link_width", &vekml_device_record_t::curr_link_width_path,
     &vekml_device_record_t::curr_link_width, "curr_link_width"},
    {"/device/max_link_speed", &vekml_device_record_t::max_link_speed_path, &vekml_device_record_t::max_link_speed,
     "max_link_speed"},
    {"/device/max_link_width", &vekml_device_record_t::max_link_width_path, &vekml_device_record_t::max_link_width,
     "max_link_width"},
};

void get_link_info()
{
    node_text<64> text; // kept from node to node: a missing node repeats the one before it
    for (auto &device : devices()) {
        for (const auto &node : link_nodes) {
            auto &path = device.*node.path;
            copy_text(path, sizeof path, node_path<>(device.card_path, node.suffix).text());
            TRACE("%s", path);
            text.read(path);
            device.*node.value = static_cast<std::uint32_t>(text.number());
            TRACE("%s is: %d", node.name, device.*node.value);
        }
        device.curr_link_generation = link_generation(device.curr_link_speed);
        device.max_link_generation = link_generation(device.max_link_speed);
    }
}

/** Store the first hwmon directory that opens; false when there is none. */
bool find_hwmon_directory(vekml_device_record_t &device)
{
    for (int k = 0; k < hwmon_directories; ++k) {
        char path[sizeof device.hwmon_path];
        const int length = snprintf(path, sizeof path, "%s/device/hwmon/hwmon%d", device.card_path, k);
        if (length < static_cast<int>(sizeof path) && is_directory(path)) {
            copy_text(device.hwmon_path, sizeof device.hwmon_path, path);
            return true;
        }
    }
    return false;
}

void get_product_hwmon_path()
{
    for (auto &device : devices()) {
        std::memset(device.model, 0, sizeof device.model);
        device.model_device_id = unknown_model_device_id;
        device.chip_process = default_chip_process;
        if (!find_hwmon_directory(device))
            continue;
        TRACE("hwmon path name:%s", device.hwmon_path);
        node_text<64> model;
        if (model.read(device.hwmon_path, "/vek_device_model") == 0) {
            parse_device_model(model.text, device.model, sizeof device.model);
            model_to_device_id_and_chip_process(device.model, &device.model_device_id, &device.chip_process);
        }
    }
}

void start(std::optional<std::uint32_t> only = {})
{
    discover_vekgpu_devices(only);
    get_product_name();
    get_product_dbdf();
    get_product_id();
    get_link_info();
    get_product_hwmon_path();
    scan_vpus_when_smi_inited();
}

// ---- Without the driver ----

constexpr std::uint32_t vga_controller = 0x030000;

/** The GPUs found on the PCI bus, by position in the device table. Copies, as libpciaccess takes its own
 *  with it when it is cleaned up. */
std::array<std::optional<pci_device>, VEKML_MAX_DEVICES> controllers;
bool pci_system_started;

struct iterator_destroyer {
    void operator()(pci_device_iterator *iterator) const { pci_iterator_destroy(iterator); }
};
using unique_iterator = std::unique_ptr<pci_device_iterator, iterator_destroyer>;

void clean_up_pci_system()
{
    if (std::exchange(pci_system_started, false))
        pci_system_cleanup();
}

/** Append a GPU to the device table, with what its driver would have told of its place and kind. */
void add_controller(const pci_device &controller)
{
    if (globals.count >= VEKML_MAX_DEVICES)
        return;
    vekml_device_record_t &device = globals.devices[globals.count];
    snprintf(device.dbdf, sizeof device.dbdf, "%04x:%02x:%02x.%x", controller.domain, controller.bus, controller.dev,
             controller.func);
    device.domain = controller.domain;
    device.bus = controller.bus;
    device.device = controller.dev;
    device.function = controller.func;
    device.vendor_id = controller.vendor_id;
    device.device_id = controller.device_id;
    device.subsystem_vendor_id = controller.subvendor_id;
    device.subsystem_device_id = controller.subdevice_id;
    device.table_index = globals.count;
    device.model_device_id = unknown_model_device_id;
    device.chip_process = default_chip_process;
    if (is_right_device_id(controller.device_id) == VEKML_SUCCESS) {
        device.model_device_id = controller.device_id;
        device_id_to_chip_process(controller.device_id, &device.chip_process);
    }
    controllers[globals.count] = controller;
    ++globals.count;
}

void is_vekgpu_driver_loaded(pci_device *controller)
{
    if (controller != nullptr && pci_device_has_kernel_driver(controller) != 0)
        TRACE("PCI device driver is loaded.");
}

void discover_pci_controllers()
{
    const closed_descriptors_taken for_others;
    clean_up_pci_system(); // of an earlier start
    pci_system_started = true;
    if (pci_system_init() != 0) {
        puts("Failed to initialize PCI system.");
        clean_up_pci_system(); // what it built before it failed
        return;
    }
    unique_iterator iterator(pci_id_match_iterator_create(nullptr));
    pci_device *last = nullptr;
    while (pci_device *controller = pci_device_next(iterator.get())) {
        if (pci_device_probe(controller) != 0) {
            puts("Failed to probe PCI device.");
            iterator.reset();
            clean_up_pci_system();
            return;
        }
        if (controller->device_class == vga_controller && controller->vendor_id == VEKGPU_PCI_VENDOR_ID)
            add_controller(*controller);
        last = controller;
    }
    is_vekgpu_driver_loaded(last);
}

/** Have the kernel switch a controller's memory on where the firmware left it off; without it nothing answers there. */
void enable_memory(pci_device *controller)
{
    constexpr pciaddr_t command_word = 4;
    constexpr std::uint16_t memory_decoding = 2;
    const closed_descriptors_taken for_others;
    // There is no iterator either when libpciaccess is not started; its other calls do not look.
    const bool pci_system_answers = unique_iterator(pci_id_match_iterator_create(nullptr)) != nullptr;
    std::uint16_t command = 0;
    if (pci_system_answers && pci_device_cfg_read_u16(controller, &command, command_word) == 0 &&
        (command & memory_decoding) == 0)
        pci_device_enable(controller);
}

/** A controller without BAR0 has address 0; not every one tells its size. */
bool holds_window(const pci_mem_region &bar0)
{
    return bar0.base_addr != 0 && bar0.is_IO == 0 && (bar0.size == 0 || bar0.size >= bar0_window);
}

/** Null, with the reason in errno, when BAR0 cannot be mapped. */
void *map_bar0(const unique_fd &memory, pci_device *controller)
{
    const pci_mem_region &region = controller->regions[0];
    if (!holds_window(region)) {
        errno = ENXIO;
        return nullptr;
    }
    enable_memory(controller);
    void *bar0 = mmap(nullptr, bar0_window, PROT_READ | PROT_WRITE, MAP_SHARED, memory.get(),
                      static_cast<off_t>(region.base_addr));
    return bar0 == MAP_FAILED ? nullptr : bar0;
}

/** Keep a GPU's window until shutdown; it takes the place of the window of an earlier start. */
void keep_window(vekml_device_record_t &device, void *bar0)
{
    if (device.bar0_mapped != 0)
        munmap(device.mapped_bar0, bar0_window);
    device.bar0_mapped = 1;
    device.mapped_bar0 = bar0;
}

void print_version(char (&dst)[64], std::uint32_t version, const char *end)
{
    snprintf(dst, sizeof dst, "v%x.%x.%x%s", version >> 24, (version >> 16) & 0xff, version & 0xffff, end);
}

void store_snapshot(vekml_device_record_t &device, const firmware_snapshot &taken)
{
    device.gpu_clock_mhz = static_cast<std::uint32_t>(taken.clock_hz / 1000000);
    device.fb_total = static_cast<std::uint64_t>(taken.memory_gib) << 10;
    copy_text(device.vendor_name, sizeof device.vendor_name, taken.board_vendor);
    print_version(device.vbios_version_text, taken.vbios_version, "\n"); // clients know it with its newline
    print_version(device.fw_version_text, taken.firmware_version, "");
    device.fw_word_0a0 = taken.fan_support;
    device.fw_word_09c = taken.power_support;
}

/** Log a snapshot as the exported function that took it. */
void trace_snapshot(const char *function, const firmware_snapshot &taken, const vekml_device_record_t &device)
{
    TRACE_AS(function, "fwinfo->gpuInfo.gpuFreq = %d", taken.clock_index);
    TRACE_AS(function, "gpu_clock_freq = %d", static_cast<int>(taken.clock_hz));
    TRACE_AS(function, "fwinfo->gddrInfo.gddrSpeed = %d", taken.memory_speed_index);
    TRACE_AS(function, " gddr_size = %d, gddr_speed = %lu, gddr_temp = %d", taken.memory_gib, taken.memory_speed,
             taken.memory_temperature);
    const unsigned long core_voltage = taken.core_voltage; // both cores report one reading
    TRACE_AS(function, "gpu_core0_volt = %lu, gpu_core1_volt = %lu", core_voltage, core_voltage);
    TRACE_AS(function, "fwinfo->curVolt = %d", taken.present_voltage);
    TRACE_AS(function, " fw_info_ver = %d, fw_ver = %d", taken.block_version, taken.firmware_version);
    TRACE_AS(function, " fw_ver_str = %s", taken.firmware_version_text);
    TRACE_AS(function, " vbios_ver = %d, vbios_ver_str = %s", taken.vbios_version, taken.vbios_version_text);
    TRACE_AS(function, "vbiosVerString = %s", device.vbios_version_text);
    TRACE_AS(function, "fw_version = %s", device.fw_version_text);
    TRACE_AS(function, " cur_rpm = %d, min_rpm = %d, max_rpm = %d", taken.rpm, taken.lowest_rpm, taken.highest_rpm);
}

} // namespace

vekml_return_t vekml_init(void)
{
    TRACE("enter vekml_init");
    start();
    return VEKML_SUCCESS;
}

vekml_return_t vekml_init_card(uint32_t card_index)
{
    TRACE("enter vekml_init_card");
    start(card_index);
    return VEKML_SUCCESS;
}

vekml_return_t vekml_shutdown(void)
{
    TRACE("enter vekml_shutdown");
    // Entries past the count have windows too: of an earlier start, or mapped for a caller.
    for (std::uint32_t i = 0; i < VEKML_MAX_DEVICES; ++i) {
        const auto &device = globals.devices[i];
        if (i < globals.count)
            TRACE("munmap mapped_bar0 for device :%d", static_cast<int>(i));
        if (device.bar0_mapped != 0 && munmap(device.mapped_bar0, bar0_window) != 0) {
            perror("munmap");
            return VEKML_ERROR_NODE_IO;
        }
    }
    std::memset(&globals, 0, sizeof globals);
    controllers = {};
    clean_up_pci_system();
    return VEKML_SUCCESS;
}

vekml_return_t vekml_out_of_band_init(void)
{
    constexpr auto started_without_driver = static_cast<vekml_return_t>(1);

    if (is_out_of_band() == 0) {
        vekml_init();
        return VEKML_SUCCESS;
    }
    discover_pci_controllers();
    for (std::uint32_t i = 0; i < devices().size(); ++i)
        vekml_pci_out_of_band_manager(i, controllers[i] ? &*controllers[i] : nullptr);
    return started_without_driver;
}

vekml_return_t vekml_pci_out_of_band_manager(uint32_t gpu_index, struct pci_device *dev)
{
    TRACE("enter vekml_pci_out_of_band_manager.");
    if (!require_root("please run this command with root authority"))
        return VEKML_ERROR_NO_PERMISSION;
    const unique_fd memory(open("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC));
    if (!memory) {
        perror("failed to open /dev/mem.");
        return VEKML_ERROR_NODE_IO;
    }
    if (dev == nullptr || gpu_index >= VEKML_MAX_DEVICES)
        return VEKML_ERROR_NODE_IO;
    const pciaddr_t base = dev->regions[0].base_addr;
    const long page_size = sysconf(_SC_PAGESIZE);
    if (base % static_cast<pciaddr_t>(page_size) != 0) {
        printf("Address of BAR0 is not page aligned. page size:%d.\n", static_cast<int>(page_size));
        return VEKML_ERROR_NODE_IO;
    }
    void *mapped = map_bar0(memory, dev);
    if (mapped == nullptr) {
        perror("failed to mmap BAR0");
        return VEKML_ERROR_NODE_IO;
    }

    vekml_device_record_t &device = globals.devices[gpu_index];
    keep_window(device, mapped);
    TRACE("address of mapped:%p", mapped);
    TRACE("address of globals.devices[gpu_index].mapped_bar0:%p", device.mapped_bar0);
    const firmware_snapshot taken = firmware_block(mapped).snapshot();
    store_snapshot(device, taken);
    trace_snapshot(__func__, taken, device);
    device_id_to_model(dev->device_id, device.model, sizeof device.model);
    TRACE("globals.devices[gpu_index].fb_total = %llu", static_cast<unsigned long long>(device.fb_total));
    TRACE("exit vekml_pci_out_of_band_manager.");
    return VEKML_SUCCESS;
}
