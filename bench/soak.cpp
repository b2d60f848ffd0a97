// SPDX-License-Identifier: Apache-2.0
//
// vekml_soak [SECONDS] or vekml_soak --refreshes N: a monitoring agent's day in short. Refreshes 15 GPUs, for so long or
// so often, while their nodes come and go and the log is filled and emptied, and fails when that has cost memory or
// descriptors, or within seconds speed: over hours a machine has other things to do.

#include "host_tree.h"
#include "vekml.h"
#include "veksim.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <malloc.h>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using clock_type = std::chrono::steady_clock;

constexpr std::uint32_t gpus = 15;
constexpr long heap_tolerance = 4096; // what stdio and the tree's own bookkeeping may keep
constexpr double cost_tolerance = 1.25;

vekml_device_query_t records[gpus];

void refresh_all()
{
    for (std::uint32_t gpu = 0; gpu < gpus; ++gpu)
        vekml_device_query_two_parts(&globals.devices[gpu], &records[gpu]);
}

/** Takes nodes away and brings them back, each for some rounds; the static record is asked for anew now and then. */
class coming_and_going {
public:
    explicit coming_and_going(const veksim::host_tree &host)
    {
        const std::string roots[] = {host.path("/sys/devices"), host.path("/sys/kernel/debug"),
                                     host.path("/host/requests"), host.path("/dev/dri"), host.path("/proc")};
        for (const std::string &root : roots)
            for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root))
                if (entry.is_regular_file() && !entry.is_symlink())
                    nodes_.push_back({entry.path().string(), entry.path().string() + ".gone", false});
    }
    void turn()
    {
        for (int i = 0; i < 20; ++i)
            toggle(nodes_[random_() % nodes_.size()]);
        records[random_() % gpus].static_valid = 0;
    }
    void bring_all_back()
    {
        for (node &each : nodes_)
            if (each.away)
                toggle(each);
        for (vekml_device_query_t &record : records)
            record.static_valid = 0;
        refresh_all();
    }

private:
    struct node {
        std::string here, gone;
        bool away;
    };
    void toggle(node &one)
    {
        if (std::rename((one.away ? one.gone : one.here).c_str(), (one.away ? one.here : one.gone).c_str()) == 0)
            one.away = !one.away;
    }
    std::vector<node> nodes_;
    std::mt19937 random_{1};
};

struct reading {
    long heap = 0;
    long descriptors = 0;
    double refresh_us = 0; // of one GPU
};

/** What the process holds, and what a refresh costs on a healthy host: the quickest of many batches. */
reading take_reading()
{
    auto quickest = clock_type::duration::max();
    for (int batch = 0; batch < 100; ++batch) {
        const auto begin = clock_type::now();
        refresh_all();
        quickest = std::min(quickest, clock_type::now() - begin);
    }
    reading now;
    now.refresh_us = std::chrono::duration<double, std::micro>(quickest).count() / gpus;
    const fs::directory_iterator descriptors("/proc/self/fd");
    now.descriptors = std::distance(begin(descriptors), end(descriptors));
    now.heap = static_cast<long>(mallinfo2().uordblks);
    return now;
}

void print(std::FILE *out, const char *when, const reading &r)
{
    std::fprintf(out, "%-6s heap %ld bytes, descriptors %ld, refresh %.1f us\n", when, r.heap, r.descriptors,
                 r.refresh_us);
}

} // namespace

int main(int argc, char **argv)
{
    const bool by_count = argc == 3 && std::string(argv[1]) == "--refreshes";
    const long wanted = argc > 1 ? std::atol(argv[argc - 1]) : 60;
    if ((argc > 2 && !by_count) || wanted <= 0) {
        std::fputs("usage: vekml_soak [SECONDS | --refreshes N]\n", stderr);
        return 1;
    }
    // Memory that malloc sets aside for each thread counts as in use; without it the heap tells the truth.
    if (std::getenv("GLIBC_TUNABLES") == nullptr) {
        setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1);
        execv("/proc/self/exe", argv);
    }
    // The library tells of its failures on standard output; nobody wants to read so many.
    std::FILE *out = fdopen(dup(STDOUT_FILENO), "w");
    if (out == nullptr || std::freopen("/dev/null", "w", stdout) == nullptr)
        return 1;
    setlinebuf(out);

    veksim::host_tree host;
    for (std::uint32_t gpu = 0; gpu < gpus; ++gpu) {
        veksim::gpu_state state;
        state.processes = {{5000001 + gpu, "worker", 1 << 20, 1 << 21}};
        host.add_gpu(veksim::sample_gpu(static_cast<int>(gpu)), state);
    }
    host.set_euid(0);
    veksim_use(host.root().c_str());
    vekml_init();

    coming_and_going nodes(host);
    for (int i = 0; i < 50; ++i) { // until every way through the library has been gone once
        nodes.turn();
        refresh_all();
    }
    nodes.bring_all_back();
    std::fprintf(out, "%ld %s\n", wanted, by_count ? "refreshes" : "seconds");
    const reading start = take_reading();
    print(out, "start", start);
    long rounds = 0;
    const auto end = clock_type::now() + std::chrono::seconds(wanted);
    for (; by_count ? rounds * gpus < wanted : clock_type::now() < end; ++rounds) {
        nodes.turn();
        refresh_all();
    }
    nodes.bring_all_back();
    const reading finish = take_reading();
    print(out, "end", finish);
    std::fprintf(out, "%ld refreshes of %u GPUs\n", rounds * gpus, gpus);

    const bool grew = finish.heap > start.heap + heap_tolerance || finish.descriptors > start.descriptors ||
                      (!by_count && finish.refresh_us > start.refresh_us * cost_tolerance);
    if (grew)
        std::fputs("the process has grown\n", out);
    return grew ? 1 : 0;
}
