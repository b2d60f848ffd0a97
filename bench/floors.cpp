// SPDX-License-Identifier: Apache-2.0
#include "floors.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The library's own log, so that both take the same way into the simulated host.
constexpr char log_path[] = "/tmp/smi.log";

} // namespace

floors::floors(veksim::host_tree &host, const std::function<void()> &one_refresh)
{
    host.remove(log_path);
    one_refresh();
    const std::string log = host.log();
    constexpr char prefix[] = "[DBG][";
    for (std::size_t begin = log.find(prefix); begin != std::string::npos;) {
        const std::size_t end = log.find(prefix, begin + 1);
        lines_.push_back(log.substr(begin, end - begin));
        begin = end;
    }

    for (const char *node : {"temp1_input",         "temp1_ctrl_mode",
                             "temp1_highest",       "temp1_min",
                             "temp1_max",           "temp1_crit",
                             "vek_gddr_temp",       "vek_gddr_phys_freq_mhz",
                             "vek_gfx_freq_mhz",    "vek_acpu_freq_mhz",
                             "vek_cmcu_freq_mhz",   "vek_ndf_freq_mhz",
                             "in0_input",           "curr1_input",
                             "power1_average",      "vek_total_power",
                             "fan1_input",          "vek_gpu_primary_core_id",
                             "vek_pcie_mmbar_type", "vek_pcie_event"})
        files_.push_back(host.hwmon(0, node));
    // The memory node is read twice, once for the memory and once for the processes.
    for (const char *node :
         {"card0-HDMI-A-1/status", "device/aer_dev_correctable", "device/aer_dev_fatal", "device/aer_dev_nonfatal",
          "device/gpu_mem_util_info", "device/gpu_mem_util_info", "device/gpu_util_info", "device/gddr_crc"})
        files_.push_back(host.card(0, node));
    for (const auto &process : host.state(0).processes)
        files_.push_back("/proc/" + std::to_string(process.pid) + "/status");
}

void floors::write_line(const std::string &line) const
{
    // Emptied as seldom as the library empties its own log.
    static std::size_t written = 0;
    const int fd = open(log_path, O_WRONLY | O_APPEND | O_CLOEXEC);
    written += static_cast<std::size_t>(std::max<ssize_t>(write(fd, line.data(), line.size()), 0));
    if (written > 0x100000) {
        (void)!ftruncate(fd, 0);
        written = 0;
    }
    close(fd);
}

void floors::read_once(const std::string &path) const
{
    char text[4096];
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    benchmark::DoNotOptimize(read(fd, text, sizeof text));
    close(fd);
}

void floors::refresh() const
{
    char text[4096];
    for (const auto &path : files_) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        benchmark::DoNotOptimize(pread(fd, text, sizeof text, 0));
        benchmark::DoNotOptimize(pread(fd, text, sizeof text, 0));
        close(fd);
    }
    for (const auto &line : lines_)
        write_line(line);
}
