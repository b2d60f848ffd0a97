// SPDX-License-Identifier: Apache-2.0
#include "target.h"

#include "veksim.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

target chosen;

veksim::host_tree *begun_host()
{
    static veksim::host_tree tree;
    tree.set_euid(0);
    veksim_use(tree.root().c_str());
    return &tree;
}

void write_seeds(const std::vector<target> &targets, const fs::path &folder)
{
    for (const target &each : targets) {
        fs::create_directories(folder / each.name);
        for (const std::string &seed : each.seeds) {
            const std::string name = "seed-" + std::to_string(std::hash<std::string>()(seed));
            std::ofstream(folder / each.name / name, std::ios::binary) << seed;
        }
        std::printf("%s %s\n", each.name.c_str(), each.source.c_str());
    }
}

} // namespace

veksim::host_tree *const host = begun_host();

inputs single_values()
{
    inputs nodes;
    for (const auto &file : fs::directory_iterator(host->path(host->hwmon())))
        nodes.push_back(host->hwmon(0, file.path().filename()));
    for (const char *node :
         {"vek_product_name", "vek_dbdf", "vek_enable_dvfs", "card0-HDMI-A-1/status", "device/device",
          "device/current_link_speed", "device/current_link_width", "device/numa_node", "device/power_state",
          "device/aer_dev_fatal", "device/gddr_crc", "device/gpu_util_info", "device/gpu_mem_util_info"})
        nodes.push_back(host->card(0, node));
    return nodes;
}

void link_to_first(const inputs &nodes)
{
    for (std::size_t i = 1; i < nodes.size(); ++i)
        host->link(nodes[i], host->path(nodes[0]).string());
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    const std::vector<target> targets = all_targets();
    for (const std::string argument : std::vector<char *>(*argv, *argv + *argc)) {
        if (argument.starts_with("--seeds=")) {
            write_seeds(targets, argument.substr(argument.find('=') + 1));
            std::exit(0);
        }
        for (const target &each : targets)
            if (argument == "--target=" + each.name)
                chosen = each;
    }
    if (!chosen.run) {
        std::fprintf(stderr, "%s: --target=NAME or --seeds=FOLDER is missing\n", **argv);
        std::exit(1);
    }
    chosen.prepare();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    chosen.run(std::string(reinterpret_cast<const char *>(data), size));
    return 0;
}
