// SPDX-License-Identifier: Apache-2.0
#include "report_nodes.h"

#include "frame.h"
#include "readings/cards.h"
#include "readings/pci_address.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

namespace {

constexpr const char *drm_class = "/sys/class/drm";
constexpr const char *pci_devices = "/sys/bus/pci/devices";

struct node_name {
    const char *name;
    content what = content::kept;
};

// What the report keeps of each place, by name; nothing else is read.
constexpr node_name card_nodes[] = {{"vek_product_name"}, {"vek_dbdf"}, {"vek_enable_dvfs"}, {"version"}};

constexpr node_name device_nodes[] = {
    {"gpu_static_info", content::static_facts}, {"gpu_mem_util_info"}, {"gpu_util_info"}, {"gddr_crc"}};

constexpr const char *hwmon_nodes[] = {"name",
                                       "vek_device_model",
                                       "vek_vendor",
                                       "vek_fw_ver",
                                       "vek_vbios",
                                       "vek_gpu_primary_id",
                                       "vek_gpu_primary_core_id",
                                       "vek_gddr_size",
                                       "vek_gddr_count",
                                       "vek_gddr_phys_speed",
                                       "vek_pcie_mmbar_type",
                                       "vek_pcie_event",
                                       "vek_support_fan_info",
                                       "vek_support_power_info",
                                       "temp1_input",
                                       "temp1_highest",
                                       "temp1_label",
                                       "temp1_ctrl_mode",
                                       "temp1_min",
                                       "temp1_max",
                                       "temp1_crit",
                                       "vek_gddr_temp",
                                       "vek_slowdown_temp",
                                       "vek_shutdown_temp",
                                       "vek_enable_thm_slowdown",
                                       "vek_enable_thm_shutdown",
                                       "fan1_input",
                                       "fan1_min",
                                       "fan1_max",
                                       "fan1_ctrl_mode",
                                       "fan1_target",
                                       "pwm1",
                                       "pwm1_min",
                                       "pwm1_max",
                                       "in0_input",
                                       "curr1_input",
                                       "power1_average",
                                       "power1_cap",
                                       "vek_total_power",
                                       "vek_gddr_phys_freq_mhz",
                                       "vek_gfx_freq_mhz",
                                       "vek_acpu_freq_mhz",
                                       "vek_cmcu_freq_mhz",
                                       "vek_ndf_freq_mhz"};

// Of a PCI function; these the kernel tells without asking the device.
constexpr const char *known_to_kernel[] = {"vendor",
                                           "device",
                                           "subsystem_vendor",
                                           "subsystem_device",
                                           "class",
                                           "revision",
                                           "irq",
                                           "enable",
                                           "resource",
                                           "uevent",
                                           "numa_node",
                                           "local_cpulist",
                                           "power/control",
                                           "power/runtime_status"};
constexpr const char *asked_of_device[] = {"power_state",    "current_link_speed", "current_link_width",
                                           "max_link_speed", "max_link_width",     "aer_dev_correctable",
                                           "aer_dev_fatal",  "aer_dev_nonfatal"};

struct driver_request {
    std::uint32_t number, selector;
    content what;
};
constexpr driver_request requests[] = {{0xC010644B, 0, content::static_reply},
                                       {0xC010644C, 3, content::static_reply},
                                       {0xC010644C, 2, content::counters_reply},
                                       {0xC010644C, 1, content::processes_reply}};

constexpr const char *libraries[] = {"/opt/vekgpu/lib/aarch64-linux-gnu/libva.so",
                                     "/opt/vekgpu/lib/aarch64-linux-gnu/libva-drm.so",
                                     "/usr/lib64/vekgpu/libva.so",
                                     "/usr/lib64/vekgpu/libva-drm.so",
                                     "/usr/lib/aarch64-linux-gnu/vekgpu/libva.so",
                                     "/usr/lib/aarch64-linux-gnu/vekgpu/libva-drm.so",
                                     "/usr/lib/aarch64-linux-gnu/dri/vekgpu_drv_video.so"};

std::vector<std::string> names_in(const std::string &folder)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR *)> directory(opendir(folder.c_str()), closedir);
    while (const dirent *entry = directory ? readdir(directory.get()) : nullptr) {
        if (entry->d_name[0] != '.')
            names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string resolved(const std::string &path)
{
    const std::unique_ptr<char, decltype(&std::free)> whole(realpath(path.c_str(), nullptr), &std::free);
    return whole ? whole.get() : std::string();
}

std::string parent_of(const std::string &path)
{
    return path.substr(0, path.rfind('/'));
}

std::string name_of(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

// Where what PATH names stands behind all links; empty where nobody can get there.
std::string place_of(const std::string &path)
{
    const std::string parent = resolved(parent_of(path));
    if (!parent.empty())
        return parent + "/" + name_of(path);
    return errno == EACCES ? path : std::string();
}

std::string printed_by(const char *command)
{
    std::string text;
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command, "re"), pclose);
    std::array<char, 4096> piece;
    while (const std::size_t length = pipe ? fread(piece.data(), 1, piece.size(), pipe.get()) : 0)
        text.append(piece.data(), length);
    return text;
}

} // namespace

void report_survey::add(report_nodes &list, const std::string &path, content what, node_job::kind kind) const
{
    if (const std::string place = place_of(path); !place.empty())
        list.push_back({.job = {.path = path, .what = kind}, .place = place, .what = what});
}

bool report_survey::link(const std::string &path)
{
    std::array<char, PATH_MAX> target;
    if (readlink(path.c_str(), target.data(), target.size()) < 0)
        return false;
    const std::string to = resolved(path), place = place_of(path);
    if (!to.starts_with("/sys/") || place.empty())
        return false;
    tree_.link_to(place, to);
    return true;
}

void report_survey::add_pci_function(report_nodes &list, const std::string &address)
{
    add_bus(list, resolved(std::string(pci_devices) + "/" + address), true);
}

// The names by which the bus and the driver know the PCI function at PATH.
void report_survey::link_function(const std::string &path)
{
    link(std::string(pci_devices) + "/" + name_of(path));
    link(path + "/subsystem");
    if (link(path + "/driver")) {
        const std::string driver = resolved(path + "/driver");
        tree_.add_directory(driver);
        link(driver + "/" + name_of(path));
    }
}

// A PCI function and the bridges above it, each once.
void report_survey::add_bus(report_nodes &list, const std::string &device, bool ask)
{
    for (std::string path = device; is_bus_id(name_of(path)); path = parent_of(path)) {
        if (!functions_.insert(path).second)
            continue;
        link_function(path);
        for (const char *name : known_to_kernel)
            add(list, path + "/" + name);
        if (ask)
            add_answers(list, path);
    }
}

// What the device itself is asked for, which may wake it.
void report_survey::add_answers(report_nodes &list, const std::string &device) const
{
    add(list, device + "/config", content::configuration);
    for (const char *name : asked_of_device)
        add(list, device + "/" + name);
}

report_nodes report_survey::card(unsigned number, bool ours)
{
    const std::string card = fmt::format("{}/card{}", drm_class, number), device = card + "/device";
    report_nodes list;
    if (!link(card))
        tree_.add_directory(card);
    const bool linked = link(device);
    link(fmt::format("/sys/dev/char/226:{}", number));
    if (!ours) {
        add(list, device + "/vendor");
        return list;
    }
    const std::string where = linked ? resolved(device) : std::string();
    const bool awake = wake_ || !is_asleep(number);
    // By the names that programs open them by, so that one that hangs does so for them as well.
    for (const char *name : known_to_kernel)
        add(list, device + "/" + name);
    functions_.insert(where);
    if (linked) {
        link_function(where);
        add_bus(list, parent_of(where), awake);
    }
    if (!awake)
        return list;
    add_answers(list, device);
    for (const node_name &node : card_nodes)
        add(list, card + "/" + node.name, node.what);
    for (const std::string &name : names_in(card)) {
        if (name.starts_with("card"))
            add(list, fmt::format("{}/{}/status", card, name));
    }
    const std::string sensors = device + "/hwmon";
    bool first = true;
    for (int i = 0; i < 99; ++i) { // the lowest number is the one that is read
        const std::string folder = fmt::format("{}/hwmon{}", sensors, i);
        if (resolved(folder).empty())
            continue;
        tree_.add_directory(resolved(folder));
        if (!std::exchange(first, false))
            continue;
        add(list, folder + "/vek_chip_id", content::chip_id);
        for (const char *name : hwmon_nodes)
            add(list, folder + "/" + name);
    }
    for (const node_name &node : device_nodes)
        add(list, device + "/" + node.name, node.what);
    for (const driver_request &request : requests)
        list.push_back(
            {.job = {.path = fmt::format("/dev/dri/card{}", number),
                     .what = node_job::kind::request,
                     .request = request.number,
                     .selector = request.selector},
             .place = fmt::format("/host/requests/card{}/{:08X}.{}", number, request.number, request.selector),
             .what = request.what});
    return list;
}

std::vector<report_nodes> report_survey::cards()
{
    std::vector<report_nodes> lists;
    report_nodes shared;
    std::size_t position = 0;
    for (const readings::card &c : cards_of_host().value_or(std::vector<readings::card>())) {
        const bool ours = !is_of_another_maker(c.number);
        lists.push_back(card(c.number, ours));
        if (ours)
            add(shared, fmt::format("/sys/kernel/debug/vekgpu/gpu{:02}/debug_dump", position++), content::driver_dump,
                node_job::kind::dump);
    }
    for (const std::string &name : names_in(drm_class)) { // connectors: their number is looked at
        const std::string path = std::string(drm_class) + "/" + name;
        if (name.starts_with("card") && !tree_.has(path) && !link(path))
            tree_.add_directory(path);
    }
    add(shared, std::string(drm_class) + "/version");
    add(shared, "/sys/kernel/debug/vekgpu/status", content::driver_dump);
    add(shared, "/sys/kernel/debug/vpu/xmem");
    lists.push_back(std::move(shared));
    return lists;
}

report_nodes report_survey::pci_vendors() const
{
    report_nodes list;
    for (const std::string &address : names_in(pci_devices))
        add(list, std::string(pci_devices) + "/" + address + "/vendor", content::seen_not_recorded);
    return list;
}

report_nodes report_survey::processes(const std::set<unsigned> &numbers, bool keep_all)
{
    report_nodes list;
    for (const unsigned number : numbers) {
        const std::string folder = fmt::format("/proc/{}", number);
        const auto add = [&](const char *name, content what) {
            const std::string path = folder + "/" + name;
            list.push_back({.job = {.path = path}, .place = path, .what = what});
        };
        add("status", content::process_status);
        add("comm", content::process_name);
        if (keep_all) {
            add("cmdline", content::kept);
            add("cgroup", content::kept);
        }
    }
    return list;
}

// A tree holds no code: an empty file says that there is one.
void report_survey::add_libraries()
{
    for (const char *path : libraries) {
        if (access(path, F_OK) == 0)
            tree_.add(path, "");
    }
}

std::string report_survey::modules() const
{
    return printed_by("lsmod 2>/dev/null");
}

std::string report_survey::packages() const
{
    return printed_by("dpkg -l 2>/dev/null");
}
