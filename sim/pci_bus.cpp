// SPDX-License-Identifier: Apache-2.0
// The PCI devices of a host, as sysfs shows them: a directory each, below that of the bridge they stand behind.
#include "format.h"
#include "host_tree.h"
#include "pci_config.h"

#include <cinttypes>

namespace veksim {
namespace {

constexpr std::uint32_t bridge_class = 0x060400;
const std::string no_bus = "00";

// Of "0000:03:00.0".
std::string domain_of(const std::string &address)
{
    return address.substr(0, address.find(':'));
}

std::string bus_of(const std::string &address)
{
    const std::size_t colon = address.find(':');
    return colon == std::string::npos ? no_bus : address.substr(colon + 1, address.find(':', colon + 1) - colon - 1);
}

std::string regions_text(std::uint64_t bar0)
{
    auto region = [](std::uint64_t first, std::uint64_t last, unsigned flags) {
        return format("0x%016" PRIx64 " 0x%016" PRIx64 " 0x%016x\n", first, last, flags);
    };
    std::string regions = bar0 == 0 ? region(0, 0, 0) : region(bar0, bar0 + bar0_size - 1, 0x14220c);
    for (int i = 1; i < 13; ++i)
        regions += region(0, 0, 0);
    return regions;
}

} // namespace

std::string host_tree::pci_device(int position) const
{
    return device_directories_.at(config(position).pci_address);
}

std::string host_tree::pci_bridge(int position) const
{
    return pci_device(position).substr(0, pci_device(position).rfind('/'));
}

void host_tree::add_pci_device(const std::string &address, const gpu_config &c, std::uint32_t class_code)
{
    const std::string root = "/sys/devices/pci" + domain_of(address) + ":00";
    std::string parent = root;
    if (bus_of(address) != no_bus)
        parent += "/" + add_bridge(address, c);
    const std::string directory = parent + "/" + address;
    device_directories_[address] = directory;
    pci_function function{c.vendor_id,          c.device_id,     c.subsystem_vendor_id, c.subsystem_device_id,
                          class_code,           c.bar0,          c.current_link_speed,  c.max_link_speed,
                          c.current_link_width, c.max_link_width};
    publish_pci_function(directory, function, c);
}

// The port above ADDRESS' bus, which is made when the first device comes to it.
std::string host_tree::add_bridge(const std::string &address, const gpu_config &c)
{
    const std::string domain = domain_of(address);
    auto [entry, fresh] = bridges_.try_emplace(domain + ":" + bus_of(address));
    if (!fresh)
        return entry->second;
    entry->second = format("%s:00:%02x.0", domain.c_str(), static_cast<unsigned>(bridges_.size()));
    pci_function port;
    port.vendor_id = 0x1b36; // the emulators' generic root port
    port.device_id = 0x000c;
    port.class_code = bridge_class;
    port.current_link_speed = c.current_link_speed;
    port.max_link_speed = c.max_link_speed;
    port.current_link_width = c.current_link_width;
    port.max_link_width = c.max_link_width;
    port.secondary_bus = static_cast<unsigned>(std::strtoul(bus_of(address).c_str(), nullptr, 16));
    publish_pci_function("/sys/devices/pci" + domain + ":00/" + entry->second, port, c);
    return entry->second;
}

void host_tree::publish_pci_function(const std::string &directory, const pci_function &f, const gpu_config &c)
{
    auto node = [&](const char *name, const std::string &text) { write(directory + "/" + name, text + "\n"); };
    node("vendor", format("0x%04x", f.vendor_id));
    node("device", format("0x%04x", f.device_id));
    node("subsystem_vendor", format("0x%04x", f.subsystem_vendor_id));
    node("subsystem_device", format("0x%04x", f.subsystem_device_id));
    node("class", format("0x%06x", f.class_code));
    node("revision", "0x01");
    node("irq", "0");
    node("enable", "1");
    node("numa_node", std::to_string(c.numa_node));
    node("local_cpulist", c.local_cpulist);
    node("current_link_speed", f.current_link_speed);
    node("current_link_width", std::to_string(f.current_link_width));
    node("max_link_speed", f.max_link_speed);
    node("max_link_width", std::to_string(f.max_link_width));
    node("power_state", "D0");
    node("power/runtime_status", "active");
    node("power/control", "auto");
    write(directory + "/config", pci_config_space(f));
    write(directory + "/resource", regions_text(f.bar0));
    link_to(directory + "/subsystem", "/sys/bus/pci");
    link_to("/sys/bus/pci/devices/" + directory.substr(directory.rfind('/') + 1), directory);
}

} // namespace veksim
