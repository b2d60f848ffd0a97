// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <cstdio>
#include <cstdlib>
#include <getopt.h>

namespace {

constexpr int most_gpus = 16;

constexpr const char *usage =
    "usage: veksim [--gpus N] [--no-driver] [--still | --distinct] [--tree DIR [--trust-tree]] [--keep] -- COMMAND "
    "[ARGUMENT...]\n"
    "\n"
    "Runs COMMAND on a simulated host with GPUs and removes the host afterwards.\n"
    "\n"
    "  --gpus N      number of GPUs, 0 to 16 (default 2)\n"
    "  --no-driver   the kernel driver is not loaded: PCI devices and their firmware only\n"
    "  --still       readings stay as they are; what COMMAND writes is still taken up\n"
    "  --distinct    no two numbers of a GPU are equal, nor the same reading of two GPUs; nothing moves\n"
    "  --tree DIR    build the host in DIR and keep it; a DIR that holds a host is used as it is\n"
    "  --trust-tree  let programs and libraries in DIR run, and links lead out of it\n"
    "  --keep        keep the host and say where it is\n"
    "  --help        show this text\n";

std::optional<int> gpu_number(const char *text)
{
    char *end = nullptr;
    long value = std::strtol(text, &end, 10);
    bool valid = end != text && *end == '\0' && value >= 0 && value <= most_gpus;
    return valid ? std::optional<int>(static_cast<int>(value)) : std::nullopt;
}

} // namespace

std::optional<int> parse(int argc, char **argv, options &wanted)
{
    enum { gpus = 1, no_driver, still, distinct, tree, trust_tree, keep, help };
    static const struct option names[] = {
        {"gpus", required_argument, nullptr, gpus},
        {"no-driver", no_argument, nullptr, no_driver},
        {"still", no_argument, nullptr, still},
        {"distinct", no_argument, nullptr, distinct},
        {"tree", required_argument, nullptr, tree},
        {"trust-tree", no_argument, nullptr, trust_tree},
        {"keep", no_argument, nullptr, keep},
        {"help", no_argument, nullptr, help},
        {nullptr, 0, nullptr, 0},
    };
    opterr = 0;
    for (int option = 0; (option = getopt_long(argc, argv, "+:", names, nullptr)) != -1;) {
        switch (option) {
        case gpus: {
            auto number = gpu_number(optarg);
            if (!number)
                return complain(std::string("--gpus takes a number from 0 to 16, not \"") + optarg + "\"");
            wanted.gpus = *number;
            break;
        }
        case no_driver:
            wanted.driver = false;
            break;
        case still:
            wanted.still = true;
            break;
        case distinct:
            wanted.distinct = true;
            break;
        case tree:
            wanted.tree = optarg;
            break;
        case trust_tree:
            wanted.trust = true;
            break;
        case keep:
            wanted.keep = true;
            break;
        case help:
            std::fputs(usage, stdout);
            return 0;
        case ':':
            return complain(std::string(argv[optind - 1]) + " needs a value");
        default:
            return complain(std::string("unknown option ") + argv[optind - 1]);
        }
    }
    if (optind >= argc) {
        std::fputs(usage, stderr);
        return exit_usage;
    }
    wanted.command.assign(argv + optind, argv + argc);
    return std::nullopt;
}

int complain(const std::string &what)
{
    std::fprintf(stderr, "veksim: %s\n", what.c_str());
    return exit_usage;
}
