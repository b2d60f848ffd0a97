// SPDX-License-Identifier: Apache-2.0
#include "host_tree.h"

#include "driver_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <link.h>
#include <sstream>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace veksim {
namespace {

constexpr unsigned static_request = 0xC010644B;
constexpr unsigned information_request = 0xC010644C;
constexpr std::uint64_t bar0_size = 0x2000000;

[[gnu::format(printf, 1, 2)]] std::string format(const char *pattern, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof text, pattern, arguments);
    va_end(arguments);
    return text;
}

[[noreturn]] void fail_with_errno(const fs::path &path)
{
    throw std::system_error(errno, std::generic_category(), path.string());
}

fs::path fresh_directory()
{
    const char *base = std::getenv("TMPDIR");
    std::string name = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/veksim-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        fail_with_errno(name);
    }
    return name;
}

std::string read_file(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class node_lock {
public:
    explicit node_lock(const fs::path &path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {
        if (fd_ >= 0) {
            flock(fd_, LOCK_EX);
        }
    }
    ~node_lock()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    node_lock(const node_lock &) = delete;
    node_lock &operator=(const node_lock &) = delete;

private:
    int fd_;
};

// Bytes at an offset of a file that others may have mapped: never replaced, only overwritten.
void overwrite(const fs::path &path, std::uint64_t offset, const void *bytes, std::size_t size)
{
    int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        fail_with_errno(path);
    }
    ssize_t written = pwrite(fd, bytes, size, static_cast<off_t>(offset));
    close(fd);
    if (written != static_cast<ssize_t>(size)) {
        fail_with_errno(path);
    }
}

template <typename Table, typename Value>
std::uint32_t table_index(const Table &table, Value value)
{
    auto found = std::find(std::begin(table), std::end(table), value);
    return found == std::end(table) ? 0 : static_cast<std::uint32_t>(found - std::begin(table));
}

// Where the dynamic linker finds a library; empty when it does not.
fs::path installed_library(const char *soname)
{
    void *library = dlopen(soname, RTLD_LAZY | RTLD_LOCAL);
    struct link_map *map = nullptr;
    fs::path path;
    if (library != nullptr && dlinfo(library, RTLD_DI_LINKMAP, &map) == 0) {
        path = map->l_name;
    }
    if (library != nullptr) {
        dlclose(library);
    }
    return path;
}

const char *vendor_name(std::uint32_t index)
{
    static constexpr const char *names[] = {"VEK", "BITLAND", "GOODTIMES", "OTHERS"};
    return names[std::min<std::uint32_t>(index, 3)];
}

} // namespace

host_tree::host_tree() : root_(fresh_directory())
{
    prepare_host();
}

host_tree::host_tree(const fs::path &where) : keep_(true)
{
    fs::create_directories(where);
    root_ = fs::canonical(where);
    prepare_host();
}

host_tree::~host_tree()
{
    if (!keep_) {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }
}

void host_tree::prepare_host()
{
    for (const char *directory :
         {"/sys/bus/pci/devices", "/sys/dev/char", "/sys/kernel/debug", "/dev/dri", "/proc", "/tmp", "/host/bin"}) {
        make_directory(directory);
    }
    write("/sys/class/drm/version", "drm 1.1.0 20060810\n");
    write("/host/bin/lsmod", "#!/bin/sh\ncat \"${0%/*}/../modules\"\n");
    write("/host/bin/dpkg", "#!/bin/sh\n[ \"$1\" = -l ] && cat \"${0%/*}/../packages\"\n");
    set_mode("/host/bin/lsmod", 0755);
    set_mode("/host/bin/dpkg", 0755);
    set_modules(modules_text(false));
    set_packages(packages_text());
}

fs::path host_tree::path(const std::string &real) const
{
    return root_ / fs::path(real).relative_path();
}

// A rename, so that a reader finds the old text or the new one and never a piece.
void host_tree::replace_file(const fs::path &target, const std::string &text)
{
    fs::path fresh = root_ / "host" / format("new-%d", static_cast<int>(getpid()));
    {
        std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
        file << text;
        if (!file.flush()) {
            fail_with_errno(fresh);
        }
    }
    fs::rename(fresh, target);
}

void host_tree::write(const std::string &real, const std::string &text)
{
    fs::path target = path(real);
    fs::create_directories(target.parent_path());
    if (fs::is_directory(fs::symlink_status(target))) {
        fs::remove_all(target);
    }
    replace_file(target, text);
    auto entry = published_.find(real);
    if (entry != published_.end()) {
        entry->second = text;
    }
}

void host_tree::write_number(const std::string &real, std::int64_t value)
{
    write(real, std::to_string(value) + "\n");
}

// A client that writes locks the node, so what it wrote is seen here before anything replaces it.
void host_tree::publish(const std::string &real, const std::string &text)
{
    auto [entry, fresh] = published_.try_emplace(real, text);
    if (fresh) {
        write(real, text);
        return;
    }
    fs::path target = path(real);
    if (entry->second == text || !fs::is_regular_file(fs::symlink_status(target))) {
        return;
    }
    node_lock lock(target);
    if (read_file(target) == entry->second) {
        replace_file(target, text);
        entry->second = text;
    }
}

std::optional<std::string> host_tree::take_written(const std::string &real)
{
    auto entry = published_.find(real);
    fs::path target = path(real);
    if (entry == published_.end() || !fs::is_regular_file(fs::symlink_status(target))) {
        return std::nullopt;
    }
    node_lock lock(target);
    std::string text = read_file(target);
    if (text == entry->second) {
        return std::nullopt;
    }
    entry->second = text;
    return text;
}

void host_tree::publish_number(const std::string &real, std::int64_t value)
{
    publish(real, std::to_string(value) + "\n");
}

std::string host_tree::read(const std::string &real) const
{
    return fs::is_regular_file(path(real)) ? read_file(path(real)) : "";
}

bool host_tree::exists(const std::string &real) const
{
    return fs::exists(fs::symlink_status(path(real)));
}

void host_tree::remove(const std::string &real)
{
    fs::remove_all(path(real));
}

void host_tree::make_directory(const std::string &real)
{
    fs::path target = path(real);
    if (!fs::is_directory(fs::symlink_status(target))) {
        fs::remove(target);
    }
    fs::create_directories(target);
}

void host_tree::link(const std::string &real, const std::string &target)
{
    fs::create_directories(path(real).parent_path());
    fs::remove_all(path(real));
    fs::create_symlink(target, path(real));
}

void host_tree::set_mode(const std::string &real, unsigned mode)
{
    fs::permissions(path(real), static_cast<fs::perms>(mode));
}

void host_tree::fail(const std::string &real, int error)
{
    link(real, "errno:" + std::to_string(error));
}

void host_tree::fail_writes(const std::string &real)
{
    link(real, "/dev/full");
}

const gpu_config &host_tree::config(int position) const
{
    return gpus_.at(static_cast<std::size_t>(position)).config;
}

const gpu_state &host_tree::state(int position) const
{
    return gpus_.at(static_cast<std::size_t>(position)).state;
}

std::string host_tree::card(int position) const
{
    return "/sys/class/drm/card" + std::to_string(config(position).card);
}

std::string host_tree::hwmon(int position) const
{
    return card(position) + "/device/hwmon/hwmon" + std::to_string(config(position).hwmon);
}

std::string host_tree::card(int position, const std::string &node) const
{
    return card(position) + "/" + node;
}

std::string host_tree::hwmon(int position, const std::string &node) const
{
    return hwmon(position) + "/" + node;
}

std::string host_tree::debug_dump(int position) const
{
    return format("/sys/kernel/debug/vekgpu/gpu%02d/debug_dump", position);
}

std::string host_tree::request(int position, unsigned number, unsigned selector) const
{
    return format("/host/requests/card%d/%08X.%u", config(position).card, number, selector);
}

void host_tree::fail_request(int position, unsigned number, unsigned selector, int error)
{
    write(request(position, number, selector), "errno " + std::to_string(error) + "\n");
}

host_tree::gpu &host_tree::add(const gpu_config &config, const gpu_state &state, bool bare)
{
    int position = gpu_count();
    gpu &board = gpus_.emplace_back(gpu{config, state, bare});
    gpu_config &c = board.config;
    c.card = c.card < 0 ? position : c.card;
    c.hwmon = c.hwmon < 0 ? position + 1 : c.hwmon;
    c.pci_address = c.pci_address.empty() ? format("0000:%02x:00.0", 3 + position) : c.pci_address;
    c.chip_id = c.chip_id == 0 ? 0x5e0a1c00 + static_cast<std::uint32_t>(position) : c.chip_id;
    c.bar0 = c.bar0 == 0 ? static_cast<std::uint64_t>(position + 1) * 0x4000000 : c.bar0;
    if (board.state.local_total == 0) {
        board.state.local_total = std::uint64_t{c.memory_gib} << 30;
    }
    return board;
}

int host_tree::add_gpu(const gpu_config &config, const gpu_state &state)
{
    gpu &board = add(config, state, false);
    publish_identity(board);
    publish_links(board);
    publish_readings(board);
    publish_processes(board);
    publish_debugfs();
    set_video_state(video_);
    set_modules(modules_text(true));
    return gpu_count() - 1;
}

int host_tree::add_bare_gpu(const gpu_config &config, const gpu_state &state)
{
    gpu &board = add(config, state, true);
    gpu_config bridge;
    bridge.vendor_id = bridge.subsystem_vendor_id = 0x1d17;
    bridge.device_id = 0x1000;
    add_pci_device("0000:00:00.0", bridge, 0x060000);
    add_pci_device(board.config.pci_address, board.config, 0x030000);
    publish_firmware(board);
    publish_firmware_readings(board);
    return gpu_count() - 1;
}

void host_tree::set_state(int position, const gpu_state &state)
{
    gpu &board = gpus_.at(static_cast<std::size_t>(position));
    std::vector<process_entry> before = std::move(board.state.processes);
    board.state = state;
    if (board.bare) {
        publish_firmware_readings(board);
        return;
    }
    for (const process_entry &process : before) {
        auto same = [&](const process_entry &other) { return other.pid == process.pid; };
        if (std::none_of(state.processes.begin(), state.processes.end(), same)) {
            remove("/proc/" + std::to_string(process.pid));
            published_.erase(format("/proc/%u/status", process.pid));
            published_.erase(format("/proc/%u/comm", process.pid));
        }
    }
    publish_readings(board);
    publish_processes(board);
    publish_debugfs();
}

void host_tree::set_processes(int position, const std::vector<process_entry> &processes)
{
    gpu_state fresh = state(position);
    fresh.processes = processes;
    set_state(position, fresh);
}

void host_tree::set_video_state(const video_state &state)
{
    video_ = state;
    if (std::any_of(gpus_.begin(), gpus_.end(), [](const gpu &board) { return !board.bare; })) {
        publish("/sys/kernel/debug/vpu/xmem", xmem_text(state));
    }
}

void host_tree::publish_identity(const gpu &board)
{
    const gpu_config &c = board.config;
    int position = gpu_count() - 1;
    auto on_card = [&](const char *node, const std::string &text) { write(card(position, node), text + "\n"); };
    auto on_hwmon = [&](const char *node, const std::string &text) { write(hwmon(position, node), text + "\n"); };

    on_card("vek_product_name", c.product_name);
    on_card("vek_dbdf", c.pci_address);
    on_card("vek_enable_dvfs", "1");
    on_card("version", "1 10 1 10 1 4 0");
    on_card("device/vendor", format("0x%04x", c.vendor_id));
    on_card("device/device", format("0x%04x", c.device_id));
    on_card("device/subsystem_vendor", format("0x%04x", c.subsystem_vendor_id));
    on_card("device/subsystem_device", format("0x%04x", c.subsystem_device_id));
    on_card("device/class", "0x030000");
    on_card("device/current_link_speed", c.current_link_speed);
    on_card("device/current_link_width", std::to_string(c.current_link_width));
    on_card("device/max_link_speed", c.max_link_speed);
    on_card("device/max_link_width", std::to_string(c.max_link_width));
    write(card(position, "device/uevent"), uevent_text(c));
    write(card(position, "device/gpu_static_info"), static_info_text(c));
    write(request(position, static_request, 0), static_reply(c));
    write(request(position, information_request, 3), static_reply(c));

    on_hwmon("name", "vekgpu");
    on_hwmon("vek_vendor", vendor_name(c.vendor_index));
    on_hwmon("vek_device_model", c.model + " " + std::to_string(c.asic_id));
    on_hwmon("vek_chip_id", chip_text(c.chip_id));
    on_hwmon("vek_fw_ver", dotted_version(c.firmware_version));
    on_hwmon("vek_vbios", dotted_version(c.vbios_version));
    on_hwmon("vek_gddr_size", std::to_string(c.memory_gib));
    on_hwmon("vek_gddr_count", std::to_string(c.memory_count));
    on_hwmon("vek_gddr_phys_speed", std::to_string(c.memory_speed));
    on_hwmon("vek_gpu_primary_id", std::to_string(c.primary_id));
    on_hwmon("vek_gpu_primary_core_id", "0");
    on_hwmon("vek_pcie_mmbar_type", "64-bit prefetch");
    on_hwmon("vek_support_fan_info", c.fan_support ? "1" : "0");
    on_hwmon("vek_support_power_info", c.power_support ? "1" : "0");
    on_hwmon("vek_slowdown_temp", "95");
    on_hwmon("vek_shutdown_temp", "105");
    on_hwmon("vek_enable_thm_slowdown", "1");
    on_hwmon("vek_enable_thm_shutdown", "1");
    on_hwmon("temp1_label", "GPU");
    on_hwmon("temp1_min", "0");
    on_hwmon("temp1_max", "90");
    on_hwmon("temp1_crit", "100");
    on_hwmon("temp1_ctrl_mode", "1");
    on_hwmon("power1_cap", "150");
    on_hwmon("fan1_ctrl_mode", "1");
    on_hwmon("fan1_min", "900");
    on_hwmon("fan1_max", "4800");
    if (c.fan == fan_kind::pwm) {
        on_hwmon("pwm1", "3200");
        on_hwmon("pwm1_min", "1950");
        on_hwmon("pwm1_max", "5998");
    } else {
        on_hwmon("fan1_target", "50");
    }
    write(card(position, format("card%d-HDMI-A-1/status", c.card)),
          c.hdmi_connected ? "connected\n" : "disconnected\n");
    write(card(position, format("card%d-DP-1/status", c.card)), c.dp_connected ? "connected\n" : "disconnected\n");
    write("/dev/dri/card" + std::to_string(c.card), "");
}

// The entries by which libdrm and libpciaccess reach a card's device.
void host_tree::publish_links(const gpu &board)
{
    const gpu_config &c = board.config;
    std::string name = "card" + std::to_string(c.card);
    std::string base = "/sys/class/drm/" + name;
    for (const char *connector : {"-HDMI-A-1", "-DP-1"}) {
        link(base + connector, std::string(name).append("/").append(name).append(connector));
    }
    link(base + "/device/drm/" + name, "../../../" + name);
    link(base + "/device/subsystem", "../../../../bus/pci");
    link("/sys/dev/char/226:" + std::to_string(c.card), "../../class/drm/" + name);
    link("/sys/bus/pci/devices/" + c.pci_address, "../../../class/drm/" + name + "/device");
}

void host_tree::publish_readings(const gpu &board)
{
    int position = static_cast<int>(&board - gpus_.data());
    const gpu_state &s = board.state;
    const std::pair<const char *, int> hwmon_readings[] = {
        {"temp1_input", s.temperature},
        {"temp1_highest", s.temperature_highest},
        {"vek_gddr_temp", s.memory_temperature},
        {"fan1_input", s.fan_rpm},
        {"in0_input", s.voltage_mv},
        {"curr1_input", s.current_ma},
        {"power1_average", s.power_w},
        {"vek_total_power", s.total_power_w},
        {"vek_gddr_phys_freq_mhz", s.memory_clock_mhz},
        {"vek_gfx_freq_mhz", s.gfx_clock_mhz},
        {"vek_acpu_freq_mhz", s.acpu_clock_mhz},
        {"vek_cmcu_freq_mhz", s.cmcu_clock_mhz},
        {"vek_ndf_freq_mhz", s.ndf_clock_mhz},
        {"vek_pcie_event", static_cast<int>(s.pcie_event)},
    };
    for (const auto &[node, value] : hwmon_readings) {
        publish_number(hwmon(position, node), value);
    }
    publish(card(position, "device/aer_dev_correctable"), aer_text(true, "TOTAL_ERR_COR", s.aer_totals[0]));
    publish(card(position, "device/aer_dev_fatal"), aer_text(false, "TOTAL_ERR_FATAL", s.aer_totals[1]));
    publish(card(position, "device/aer_dev_nonfatal"), aer_text(false, "TOTAL_ERR_NONFATAL", s.aer_totals[2]));
    publish(card(position, "device/gddr_crc"), gddr_crc_text(s));
    publish(card(position, "device/gpu_util_info"), util_text(s));
    publish(request(position, information_request, 2), util_reply(s));
    publish(card(position, "device/gpu_mem_util_info"), memory_text(s));
    publish(debug_dump(position), debug_dump_text(s));
}

void host_tree::publish_processes(const gpu &board)
{
    int position = static_cast<int>(&board - gpus_.data());
    for (const process_entry &process : board.state.processes) {
        std::string name = process.name.substr(0, 15);
        publish(format("/proc/%u/status", process.pid),
                format("Name:\t%s\nUmask:\t0022\nState:\tS (sleeping)\nTgid:\t%u\nPid:\t%u\nPPid:\t1\n"
                       "Uid:\t1000\t1000\t1000\t1000\nGid:\t1000\t1000\t1000\t1000\nThreads:\t4\n",
                       name.c_str(), process.pid, process.pid));
        publish(format("/proc/%u/comm", process.pid), name + "\n");
    }
    publish(request(position, information_request, 1), process_reply(board.state));
}

// The file has room for one GPU's figures: the first that has a driver.
void host_tree::publish_debugfs()
{
    auto board = std::find_if(gpus_.begin(), gpus_.end(), [](const gpu &candidate) { return !candidate.bare; });
    if (board != gpus_.end()) {
        publish("/sys/kernel/debug/vekgpu/status", status_text(board->state));
    }
}

void host_tree::add_pci_device(const std::string &address, const gpu_config &c, std::uint32_t class_code)
{
    std::string base = "/sys/bus/pci/devices/" + address;
    auto node = [&](const char *name, const std::string &text) { write(base + "/" + name, text + "\n"); };
    node("vendor", format("0x%04x", c.vendor_id));
    node("device", format("0x%04x", c.device_id));
    node("subsystem_vendor", format("0x%04x", c.subsystem_vendor_id));
    node("subsystem_device", format("0x%04x", c.subsystem_device_id));
    node("class", format("0x%06x", class_code));

    constexpr std::uint32_t bar_64bit_prefetchable = 0xC;
    std::string space(256, '\0');
    auto put = [&](std::size_t offset, std::uint32_t word) { std::memcpy(&space[offset], &word, sizeof word); };
    put(0x00, c.vendor_id | (c.device_id << 16));
    put(0x04, 0x00100006); // memory space and bus master enabled, capability list
    put(0x08, class_code << 8);
    put(0x10, c.bar0 == 0 ? 0 : static_cast<std::uint32_t>(c.bar0) | bar_64bit_prefetchable);
    put(0x14, static_cast<std::uint32_t>(c.bar0 >> 32));
    put(0x2C, c.subsystem_vendor_id | (c.subsystem_device_id << 16));
    write(base + "/config", space);

    auto last = static_cast<unsigned long long>(c.bar0 + bar0_size - 1);
    std::string region = c.bar0 == 0 ? std::string("0x0000000000000000 0x0000000000000000 0x0000000000000000\n")
                                     : format("0x%016llx 0x%016llx 0x%016llx\n",
                                              static_cast<unsigned long long>(c.bar0), last, 0x14220cULL);
    for (int i = 1; i < 13; ++i) {
        region += "0x0000000000000000 0x0000000000000000 0x0000000000000000\n";
    }
    write(base + "/resource", region);
}

void host_tree::publish_firmware(const gpu &board)
{
    static constexpr std::uint64_t clocks[] = {800000000,  900000000,  1000000000, 1050000000, 1100000000, 1150000000,
                                               1200000000, 1250000000, 1300000000, 1350000000, 1400000000, 1450000000,
                                               1500000000, 700000000,  600000000,  500000000};
    static constexpr std::uint64_t speeds[] = {8000000000, 12000000000, 14000000000, 15200000000, 16000000000};
    const gpu_config &c = board.config;
    int position = gpu_count() - 1;
    fs::path memory = path("/dev/mem");
    std::uint64_t needed = c.bar0 + bar0_size;
    if (!fs::exists(memory)) {
        write("/dev/mem", "");
    }
    if (fs::file_size(memory) < needed) {
        fs::resize_file(memory, needed); // sparse: only the blocks below take room
    }
    auto voltage = static_cast<std::uint32_t>(board.state.voltage_mv);
    set_firmware(position, 0x13FF000, 1);
    set_firmware(position, 0x13FF004, packed_version(c.firmware_version));
    set_firmware_text(position, 0x13FF008, dotted_version(c.firmware_version), 64);
    set_firmware(position, 0x13FF048, packed_version(c.vbios_version));
    set_firmware_text(position, 0x13FF04C, dotted_version(c.vbios_version), 64);
    set_firmware(position, 0x13FF08C, (c.memory_gib << 12) | (table_index(speeds, c.memory_speed) << 20));
    set_firmware(position, 0x13FF090, (table_index(clocks, c.default_clock_hz) << 4) | (voltage << 12));
    set_firmware(position, 0x13FF098, c.vendor_index);
    set_firmware(position, 0x13FF09C, c.power_support);
    set_firmware(position, 0x13FF0A0, c.fan_support);
}

void host_tree::publish_firmware_readings(const gpu &board)
{
    int position = static_cast<int>(&board - gpus_.data());
    const gpu_state &s = board.state;
    const std::pair<std::uint32_t, int> readings[] = {
        {0x13FF800, s.voltage_mv},
        {0x13FF804, s.current_ma},
        {0x13FF808, s.power_w},
        {0x13FF80C, s.fan_rpm},
        {0x13FF810, 900},
        {0x13FF814, 4800},
        {0x13FF818, s.temperature},
        {0x13FF838, s.memory_temperature},
        {0x13FF844, s.total_power_w},
    };
    for (const auto &[offset, value] : readings) {
        set_firmware(position, offset, static_cast<std::uint32_t>(value));
    }
}

void host_tree::set_firmware(int position, std::uint32_t offset, std::uint32_t value)
{
    overwrite(path("/dev/mem"), config(position).bar0 + offset, &value, sizeof value);
}

void host_tree::set_firmware_text(int position, std::uint32_t offset, const std::string &text, std::size_t size)
{
    std::string field = text;
    field.resize(size, '\0');
    overwrite(path("/dev/mem"), config(position).bar0 + offset, field.data(), size);
}

void host_tree::set_euid(unsigned uid)
{
    write_number("/host/euid", uid);
}

void host_tree::set_modules(const std::string &text)
{
    write("/host/modules", text);
}

void host_tree::set_packages(const std::string &text)
{
    write("/host/packages", text);
}

void host_tree::instant_pauses()
{
    write("/host/pauses", "");
}

std::vector<std::string> host_tree::pauses() const
{
    std::istringstream text(read("/host/pauses"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string host_tree::log() const
{
    return read("/tmp/smi.log");
}

void host_tree::add_video_libraries(const fs::path &va_driver)
{
    const std::string folder = "/opt/vekgpu/lib/aarch64-linux-gnu/";
    for (const auto &[name, soname] : {std::pair{"libva.so", "libva.so.2"}, {"libva-drm.so", "libva-drm.so.2"}}) {
        fs::path installed = installed_library(soname);
        if (installed.empty()) {
            write(folder + name, ""); // present, as far as a probe can see
        } else {
            link(folder + name, installed.string());
        }
    }
    if (!va_driver.empty()) {
        link("/usr/lib/aarch64-linux-gnu/dri/vekgpu_drv_video.so", fs::absolute(va_driver).string());
    }
}

void host_tree::set_live(bool live)
{
    if (live) {
        write("/host/live", "");
    } else {
        remove("/host/live");
    }
}

gpu_config sample_gpu(int position)
{
    gpu_config target_board;
    gpu_config pwm_board;
    pwm_board.fan = fan_kind::pwm;
    pwm_board.device_id = 0x4a17;
    pwm_board.model = "VEK S280 XT";
    pwm_board.product_name = "TALON-S3";
    pwm_board.core_count = 2;
    pwm_board.memory_gib = 4;
    pwm_board.memory_vendor = 1;
    pwm_board.default_clock_hz = 1300000000;
    pwm_board.subsystem_vendor_id = 0;
    pwm_board.current_link_speed = "8.0 GT/s PCIe";
    pwm_board.hdmi_connected = false;
    return position % 2 == 0 ? target_board : pwm_board;
}

} // namespace veksim
