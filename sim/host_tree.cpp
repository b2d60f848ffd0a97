// SPDX-License-Identifier: Apache-2.0
#include "host_tree.h"

#include "driver_text.h"
#include "format.h"

#include <algorithm>
#include <sstream>

namespace fs = std::filesystem;

namespace veksim {
namespace {

const char *vendor_name(std::uint32_t index)
{
    static constexpr const char *names[] = {"VEK", "BITLAND", "GOODTIMES", "OTHERS"};
    return names[std::min<std::uint32_t>(index, 3)];
}

} // namespace

host_tree::host_tree(const fs::path &where) : node_tree(where)
{
    for (const char *directory :
         {"/sys/bus/pci/devices", "/sys/dev/char", "/sys/kernel/debug", "/dev/dri", "/proc", "/tmp"}) {
        make_directory(directory);
    }
    write("/sys/class/drm/version", "drm 1.1.0 20060810\n");
    set_modules(modules_text(false));
    set_packages(packages_text());
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

std::string host_tree::request(int position, const card_request &which) const
{
    return format("/host/requests/card%d/%08X.%u", config(position).card, which.number, which.selector);
}

void host_tree::fail_request(int position, const card_request &which, int error)
{
    write(request(position, which), "errno " + std::to_string(error) + "\n");
}

host_tree::gpu &host_tree::add(const gpu_config &config, const gpu_state &state, bool bare)
{
    int position = gpu_count();
    gpu &board = gpus_.emplace_back(gpu{position, bare, config, state});
    gpu_config &c = board.config;
    c.card = c.card < 0 ? position : c.card;
    c.hwmon = c.hwmon < 0 ? position + 1 : c.hwmon;
    c.pci_address = c.pci_address.empty() ? format("0000:%02x:00.0", 3 + position) : c.pci_address;
    c.chip_id = c.chip_id == 0 ? 0x5e0a1c00 + static_cast<std::uint32_t>(position) : c.chip_id;
    c.bar0 = c.bar0 == 0 ? static_cast<std::uint64_t>(position + 1) * 0x4000000 : c.bar0;
    if (board.state.local_total == 0)
        board.state.local_total = std::uint64_t{c.memory_gib} << 30;
    return board;
}

int host_tree::add_gpu(const gpu_config &config, const gpu_state &state)
{
    gpu &board = add(config, state, false);
    add_pci_device(board.config.pci_address, board.config, display_class);
    publish_links(board);
    publish_identity(board);
    publish_readings(board);
    publish_processes(board);
    publish_driver_status();
    set_video_state(video_);
    set_modules(modules_text(true));
    return board.position;
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
        if (std::none_of(state.processes.begin(), state.processes.end(), same))
            withdraw("/proc/" + std::to_string(process.pid));
    }
    publish_readings(board);
    publish_processes(board);
    publish_driver_status();
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
    if (first_with_driver() != nullptr)
        publish("/sys/kernel/debug/vpu/xmem", xmem_text(state));
}

void host_tree::publish_identity(const gpu &board)
{
    const gpu_config &c = board.config;
    const gpu_settings &set = c.settings;
    const int position = board.position;
    auto on_card = [&](const char *node, const std::string &text) { write(card(position, node), text + "\n"); };
    auto on_hwmon = [&](const char *node, const std::string &text) { write(hwmon(position, node), text + "\n"); };

    on_card("vek_product_name", c.product_name);
    on_card("vek_dbdf", c.pci_address);
    on_card("vek_enable_dvfs", "1");
    on_card("version", "1 10 1 10 1 4 0");
    write(card(position, "device/uevent"), uevent_text(c));
    write(card(position, "device/gpu_static_info"), static_info_text(c));
    write(request(position, first_static_request), static_reply(c));
    write(request(position, second_static_request), static_reply(c));

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
    on_hwmon("vek_gpu_primary_core_id", std::to_string(c.primary_core_id));
    on_hwmon("vek_pcie_mmbar_type", "64-bit prefetch");
    on_hwmon("vek_support_fan_info", c.fan_support ? "1" : "0");
    on_hwmon("vek_support_power_info", c.power_support ? "1" : "0");
    on_hwmon("vek_slowdown_temp", std::to_string(set.slowdown_temperature));
    on_hwmon("vek_shutdown_temp", std::to_string(set.shutdown_temperature));
    on_hwmon("vek_enable_thm_slowdown", "1");
    on_hwmon("vek_enable_thm_shutdown", "1");
    on_hwmon("temp1_label", "GPU");
    on_hwmon("temp1_min", std::to_string(set.temperature_min));
    on_hwmon("temp1_max", std::to_string(set.temperature_max));
    on_hwmon("temp1_crit", std::to_string(set.temperature_critical));
    on_hwmon("temp1_ctrl_mode", "1");
    on_hwmon("power1_cap", std::to_string(set.power_cap_w));
    on_hwmon("fan1_ctrl_mode", "1");
    on_hwmon("fan1_min", std::to_string(set.fan_min_rpm));
    on_hwmon("fan1_max", std::to_string(set.fan_max_rpm));
    if (c.fan == fan_kind::pwm) {
        on_hwmon("pwm1", std::to_string(set.pwm));
        on_hwmon("pwm1_min", std::to_string(set.pwm_min));
        on_hwmon("pwm1_max", std::to_string(set.pwm_max));
    } else {
        on_hwmon("fan1_target", std::to_string(set.fan_target));
    }
    auto connector = [&](const char *name, bool connected) {
        write(card(position, format("card%d-%s/status", c.card, name)), connected ? "connected\n" : "disconnected\n");
    };
    connector("HDMI-A-1", c.hdmi_connected);
    connector("DP-1", c.dp_connected);
    write("/dev/dri/card" + std::to_string(c.card), "");
}

// A card's directory stands below its PCI device's, and its names are links, as on a real host.
void host_tree::publish_links(const gpu &board)
{
    const std::string name = "card" + std::to_string(board.config.card);
    const std::string device = pci_device(board.position);
    const std::string directory = device + "/drm/" + name;
    make_directory(directory);
    link(directory + "/device", "../../../" + board.config.pci_address);
    link_to(card(board.position), directory);
    for (const char *connector : {"-HDMI-A-1", "-DP-1"})
        link_to(card(board.position) + connector, format("%s/%s%s", directory.c_str(), name.c_str(), connector));
    link_to("/sys/dev/char/226:" + std::to_string(board.config.card), directory);
    make_directory("/sys/bus/pci/drivers/vekgpu");
    link_to(device + "/driver", "/sys/bus/pci/drivers/vekgpu");
    link_to("/sys/bus/pci/drivers/vekgpu/" + board.config.pci_address, device);
}

// Every name by which a program reaches a card; its directories stay, as nobody can get to them.
std::vector<std::string> host_tree::card_names(int position) const
{
    const std::string number = std::to_string(config(position).card);
    return {card(position), "/sys/bus/pci/devices/" + config(position).pci_address, "/sys/dev/char/226:" + number,
            "/dev/dri/card" + number};
}

void host_tree::lose_card(int position)
{
    for (const std::string &name : card_names(position))
        move(name, "/host/lost" + name);
}

void host_tree::return_card(int position)
{
    for (const std::string &name : card_names(position))
        move("/host/lost" + name, name);
}

void host_tree::publish_readings(const gpu &board)
{
    const int position = board.position;
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
    for (const auto &[node, value] : hwmon_readings)
        publish_number(hwmon(position, node), value);
    publish_bus_errors(card(position, "device"), s);
    publish(card(position, "device/gddr_crc"), gddr_crc_text(s));
    publish(card(position, "device/gpu_util_info"), util_text(s));
    publish(request(position, utilisation_request), util_reply(s));
    publish(card(position, "device/gpu_mem_util_info"), memory_text(s));
    publish(debug_dump(position), debug_dump_text(s));
}

void host_tree::publish_bus_errors(const std::string &directory, const gpu_state &s)
{
    publish(directory + "/aer_dev_correctable", aer_text(true, "TOTAL_ERR_COR", s.aer_totals[0]));
    publish(directory + "/aer_dev_fatal", aer_text(false, "TOTAL_ERR_FATAL", s.aer_totals[1]));
    publish(directory + "/aer_dev_nonfatal", aer_text(false, "TOTAL_ERR_NONFATAL", s.aer_totals[2]));
}

void host_tree::publish_processes(const gpu &board)
{
    const int position = board.position;
    for (const process_entry &process : board.state.processes) {
        std::string name = process.name.substr(0, 15);
        publish(format("/proc/%u/status", process.pid),
                format("Name:\t%s\nUmask:\t0022\nState:\tS (sleeping)\nTgid:\t%u\nPid:\t%u\nPPid:\t1\n"
                       "Uid:\t1000\t1000\t1000\t1000\nGid:\t1000\t1000\t1000\t1000\nThreads:\t4\n",
                       name.c_str(), process.pid, process.pid));
        publish(format("/proc/%u/comm", process.pid), name + "\n");
    }
    publish(request(position, process_request), process_reply(board.state));
}

const host_tree::gpu *host_tree::first_with_driver() const
{
    auto board = std::find_if(gpus_.begin(), gpus_.end(), [](const gpu &candidate) { return !candidate.bare; });
    return board == gpus_.end() ? nullptr : &*board;
}

// The file has room for one GPU's figures.
void host_tree::publish_driver_status()
{
    if (const gpu *board = first_with_driver())
        publish("/sys/kernel/debug/vekgpu/status", status_text(board->state));
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
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

std::string host_tree::log() const
{
    return read("/tmp/smi.log");
}

void host_tree::add_video_libraries(bool with_driver)
{
    write("/opt/vekgpu/lib/aarch64-linux-gnu/libva.so", "");
    write("/opt/vekgpu/lib/aarch64-linux-gnu/libva-drm.so", "");
    if (with_driver)
        write("/usr/lib/aarch64-linux-gnu/dri/vekgpu_drv_video.so", "");
}

void host_tree::set_live(bool live)
{
    if (live)
        write("/host/live", "");
    else
        remove("/host/live");
}

} // namespace veksim
