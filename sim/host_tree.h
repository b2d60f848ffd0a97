// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#ifndef VEKGPU_PCI_VENDOR_ID
#define VEKGPU_PCI_VENDOR_ID 0x7665
#endif

namespace veksim {

enum class fan_kind {
    pwm,    // has pwm1, pwm1_min, pwm1_max
    target, // has fan1_target and no pwm1
};

struct process_entry {
    std::uint32_t pid = 0;
    std::string name;
    std::int64_t local_bytes = 0; // MemoryUsageAllocGPUMemLMA
    std::int64_t total_bytes = 0; // MemoryUsageTotal
};

// Busy share of one counter pair; the driver publishes times, so active / cumulative is the load.
struct busy_time {
    std::uint64_t active = 0;
    std::uint64_t cumulative = 1000000;
};

// What a GPU is. The defaults make a healthy display card.
struct gpu_config {
    int card = -1;           // DRM card number; -1: the GPU's position
    int hwmon = -1;          // hwmon number; -1: position + 1
    std::string pci_address; // empty: 0000:(03 + position):00.0
    std::uint32_t vendor_id = VEKGPU_PCI_VENDOR_ID;
    std::uint32_t device_id = 0x4a1f;
    std::uint32_t subsystem_vendor_id = VEKGPU_PCI_VENDOR_ID;
    std::uint32_t subsystem_device_id = 0;
    std::string product_name = "TALON-M1";
    std::string model = "VEK M310";
    std::uint32_t asic_id = 0; // also the architecture number behind the model
    std::uint32_t core_count = 4;
    std::uint32_t memory_gib = 8;
    std::uint32_t memory_count = 4;
    std::uint64_t memory_speed = 14000000000;
    std::uint32_t memory_vendor = 0;
    std::uint32_t memory_package = 0x21;
    std::uint32_t primary_id = 0;
    std::uint32_t vendor_index = 0; // 0 VEK, 1 BITLAND, 2 GOODTIMES, 3 OTHERS
    std::uint32_t chip_id = 0;      // 0: 0x5e0a1c00 + position
    std::uint32_t card_type = 0;    // 0 display, 1 compute
    std::array<unsigned, 3> firmware_version{1, 2, 3};
    std::array<unsigned, 3> vbios_version{1, 0, 4};
    std::string static_text = "VEK GPU";
    std::uint64_t default_clock_hz = 1000000000;
    fan_kind fan = fan_kind::target;
    bool fan_support = true;
    bool power_support = true;
    std::string current_link_speed = "16.0 GT/s PCIe";
    std::string max_link_speed = "16.0 GT/s PCIe";
    unsigned current_link_width = 8;
    unsigned max_link_width = 8;
    bool hdmi_connected = true;
    bool dp_connected = false;
    std::uint64_t bar0 = 0; // 0: (1 + position) * 0x4000000
};

// What a GPU reads at one moment, in the driver's units.
struct gpu_state {
    int temperature = 48; // degrees Celsius
    int temperature_highest = 61;
    int memory_temperature = 52;
    int fan_rpm = 2400;
    int voltage_mv = 850;
    int current_ma = 24000;
    int power_w = 21;
    int total_power_w = 32;
    int memory_clock_mhz = 1750;
    int gfx_clock_mhz = 1000;
    int acpu_clock_mhz = 800;
    int cmcu_clock_mhz = 600;
    int ndf_clock_mhz = 500;
    busy_time gpu{370000};
    std::array<busy_time, 9> masters{
        {{0}, {120000}, {80000}, {310000}, {0}, {0}, {0}, {0}, {0}}}; // 1 TDM, 2 GEOM, 3 3D, 4 CDM
    std::uint64_t timestamp = 1000000;
    std::uint64_t local_total = 0; // bytes; 0: all of the configured memory
    std::uint64_t local_used = 1288490188;
    std::uint64_t system_total = 4294967296;
    std::uint64_t system_used = 134217728;
    std::vector<process_entry> processes;
    std::array<unsigned, 3> aer_totals{0, 0, 0}; // correctable, fatal, nonfatal
    unsigned pcie_event = 0;
    // Per memory device: CRC errors on write and read, and the retries of each.
    std::array<std::array<unsigned, 4>, 4> memory_errors{};
};

// What the video engines of the whole host read.
struct video_state {
    std::uint64_t decoder_rate = 30;
    std::uint64_t encoder_rate = 60;
    std::uint64_t decoder_commands = 20000;
    std::uint64_t encoder_commands = 10000;
};

// A host in a directory. Every path given is the absolute one of a real host
// ("/sys/class/drm/card0/device/vendor"); it is mapped below the directory.
// Errors throw std::filesystem::filesystem_error or std::system_error.
class host_tree {
public:
    host_tree();                                            // a fresh temporary directory, removed at the end
    explicit host_tree(const std::filesystem::path &where); // that directory, made if absent, kept
    ~host_tree();
    host_tree(const host_tree &) = delete;
    host_tree &operator=(const host_tree &) = delete;

    void keep() { keep_ = true; }
    const std::filesystem::path &root() const { return root_; }
    std::filesystem::path path(const std::string &real) const; // where REAL lies in the tree

    // Nodes. write() and the others replace whatever stands there and make missing parents.
    void write(const std::string &real, const std::string &text);
    void write_number(const std::string &real, std::int64_t value); // with the newline of a sysfs attribute
    std::string read(const std::string &real) const;                // "" when missing
    bool exists(const std::string &real) const;
    void remove(const std::string &real); // with everything below it
    void make_directory(const std::string &real);
    void link(const std::string &real, const std::string &target);
    void set_mode(const std::string &real, unsigned mode); // without a write bit, even root cannot write it
    void fail(const std::string &real, int error);         // opening it fails with that error number
    void fail_writes(const std::string &real);             // opening works, writing fails with ENOSPC

    // GPUs with the driver loaded. Each returns the GPU's position, which is also its default card number.
    int add_gpu(const gpu_config &config = {}, const gpu_state &state = {});
    // Publishes the readings that changed. A node that was taken away, turned into a fault or written by
    // someone else stays as it is.
    void set_state(int position, const gpu_state &state);
    void set_processes(int position, const std::vector<process_entry> &processes);
    void set_video_state(const video_state &state);
    const video_state &video() const { return video_; }
    // What a client wrote into a reading since the driver last published it, once.
    std::optional<std::string> take_written(const std::string &real);
    const gpu_config &config(int position) const; // defaults filled in
    const gpu_state &state(int position) const;
    bool is_bare(int position) const { return gpus_.at(static_cast<std::size_t>(position)).bare; }
    int gpu_count() const { return static_cast<int>(gpus_.size()); }

    // A GPU on a host without the driver: PCI configuration space and a firmware block in /dev/mem.
    int add_bare_gpu(const gpu_config &config = {}, const gpu_state &state = {});
    void set_firmware(int position, std::uint32_t offset, std::uint32_t value); // one word of the block
    void set_firmware_text(int position, std::uint32_t offset, const std::string &text, std::size_t size);
    void add_pci_device(const std::string &address, const gpu_config &identity, std::uint32_t class_code);

    // Real-looking paths of GPU POSITION.
    std::string card(int position = 0) const;                       // /sys/class/drm/card0
    std::string hwmon(int position = 0) const;                      // /sys/class/drm/card0/device/hwmon/hwmon1
    std::string card(int position, const std::string &node) const;  // .../card0/NODE
    std::string hwmon(int position, const std::string &node) const; // .../hwmon1/NODE
    std::string debug_dump(int position = 0) const;                 // /sys/kernel/debug/vekgpu/gpu00/debug_dump
    std::string request(int position, unsigned number,
                        unsigned selector) const; // /host/requests/card0/C010644B.0
    void fail_request(int position, unsigned number, unsigned selector, int error);

    // The host around them.
    void set_euid(unsigned uid);
    void set_modules(const std::string &text);  // what lsmod prints
    void set_packages(const std::string &text); // what dpkg -l prints
    void instant_pauses();
    std::vector<std::string> pauses() const; // "sleep 3", "usleep 500000", in order
    std::string log() const;                 // /tmp/smi.log
    // The video libraries where the vendor's packages put them, and the VA driver beside them.
    void add_video_libraries(const std::filesystem::path &va_driver = {});
    // The driver is alive: a text stored without a newline reads back with one.
    void set_live(bool live);

private:
    struct gpu {
        gpu_config config;
        gpu_state state;
        bool bare = false;
    };

    gpu &add(const gpu_config &config, const gpu_state &state, bool bare);
    void prepare_host();
    void publish_identity(const gpu &board);
    void publish_links(const gpu &board);
    void publish_readings(const gpu &board);
    void publish_processes(const gpu &board);
    void publish_debugfs();
    void publish_firmware(const gpu &board);
    void publish_firmware_readings(const gpu &board);
    void publish(const std::string &real, const std::string &text);
    void publish_number(const std::string &real, std::int64_t value);
    void replace_file(const std::filesystem::path &target, const std::string &text);

    std::filesystem::path root_;
    bool keep_ = false;
    std::vector<gpu> gpus_;
    video_state video_;
    std::map<std::string, std::string> published_;
};

// The GPUs a simulated host has when nothing else is said: boards of different kinds in turn.
gpu_config sample_gpu(int position);

} // namespace veksim
