// SPDX-License-Identifier: Apache-2.0
#include "target.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

target chosen;

void write_seeds(const std::vector<target> &targets, const fs::path &folder)
{
    for (const target &each : targets) {
        fs::create_directories(folder / each.name);
        for (const std::string &seed : each.seeds()) {
            const std::string name = "seed-" + std::to_string(std::hash<std::string>()(seed));
            std::ofstream(folder / each.name / name, std::ios::binary) << seed;
        }
        std::printf("%s %s\n", each.name.c_str(), each.source.c_str());
    }
}

} // namespace

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
