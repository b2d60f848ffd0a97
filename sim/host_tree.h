// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "card_requests.h"
#include "gpu.h"
#include "node_tree.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace veksim {

struct pci_function;

constexpr std::uint32_t display_class = 0x030000;

// A host with GPUs in a directory.
class host_tree : public node_tree {
public:
    explicit host_tree(const std::filesystem::path &where = {});

    // GPUs with the driver loaded. Each returns the GPU's position, which is also its default card number.
    int add_gpu(const gpu_config &config = {}, const gpu_state &state = {});
    void set_state(int position, const gpu_state &state);
    void set_processes(int position, const std::vector<process_entry> &processes);
    void set_video_state(const video_state &state);
    const video_state &video() const { return video_; }
    const gpu_config &config(int position) const; // defaults filled in
    const gpu_state &state(int position) const;
    bool is_bare(int position) const { return gpus_.at(static_cast<std::size_t>(position)).bare; }
    int gpu_count() const { return static_cast<int>(gpus_.size()); }

    // A GPU on a host without the driver: PCI configuration space and a firmware block in /dev/mem.
    int add_bare_gpu(const gpu_config &config = {}, const gpu_state &state = {});
    void set_firmware(int position, std::uint32_t offset, std::uint32_t value); // one word of the block
    void set_firmware_text(int position, std::uint32_t offset, const std::string &text, std::size_t size);
    // A PCI device, and the bridge above its bus.
    void add_pci_device(const std::string &address, const gpu_config &identity, std::uint32_t class_code);

    // A card falls off the bus, and returns; open descriptors stay.
    void lose_card(int position);
    void return_card(int position);

    // Real-looking paths of GPU POSITION.
    std::string card(int position = 0) const;                       // /sys/class/drm/card0
    std::string hwmon(int position = 0) const;                      // /sys/class/drm/card0/device/hwmon/hwmon1
    std::string card(int position, const std::string &node) const;  // .../card0/NODE
    std::string hwmon(int position, const std::string &node) const; // .../hwmon1/NODE
    std::string pci_device(int position = 0) const;                 // /sys/devices/pci0000:00/0000:00:01.0/0000:03:00.0
    std::string pci_bridge(int position = 0) const;                 // /sys/devices/pci0000:00/0000:00:01.0
    std::string debug_dump(int position = 0) const;                 // /sys/kernel/debug/vekgpu/gpu00/debug_dump
    // /host/requests/card0/C010644B.0
    std::string request(int position, const card_request &which) const;
    void fail_request(int position, const card_request &which, int error);

    // The host around them.
    void set_euid(unsigned uid);
    void set_modules(const std::string &text);  // what lsmod prints
    void set_packages(const std::string &text); // what dpkg -l prints
    void instant_pauses();
    std::vector<std::string> pauses() const; // "sleep 3", "usleep 500000", in order
    std::string log() const;                 // /tmp/smi.log
    // The video libraries where the vendor's packages put them, and the VA driver. Empty files: a tree holds no code,
    // and the program gets the machine's own libraries in their place.
    void add_video_libraries(bool with_driver = true);
    // The driver is alive: a text stored without a newline reads back with one.
    void set_live(bool live);

private:
    struct gpu {
        int position;
        bool bare;
        gpu_config config;
        gpu_state state;
    };

    gpu &add(const gpu_config &config, const gpu_state &state, bool bare);
    const gpu *first_with_driver() const;
    void publish_pci_function(const std::string &directory, const pci_function &function, const gpu_config &config);
    std::string add_bridge(const std::string &address, const gpu_config &config);
    std::vector<std::string> card_names(int position) const;
    void publish_bus_errors(const std::string &directory, const gpu_state &state);
    void publish_identity(const gpu &board);
    void publish_links(const gpu &board);
    void publish_readings(const gpu &board);
    void publish_processes(const gpu &board);
    void publish_driver_status();
    void publish_firmware(const gpu &board);
    void publish_firmware_readings(const gpu &board);

    std::vector<gpu> gpus_;
    std::map<std::string, std::string> device_directories_; // by address
    std::map<std::string, std::string> bridges_;            // their addresses, by domain and bus
    video_state video_;
};

} // namespace veksim
