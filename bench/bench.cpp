// SPDX-License-Identifier: Apache-2.0
//
// Every row holds one operation of the library against its floor: the bare system calls that it cannot do without,
// measured in turns with it, in this process and on the same simulated host. Only the ratios mean anything.

#include "debug_log.h"
#include "floors.h"
#include "host_tree.h"
#include "system_calls.h"
#include "vek_smi_utils.h"
#include "vekml.h"
#include "veksim.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <malloc.h>
#include <map>
#include <string>
#include <vector>

namespace {

using action = std::function<void()>;

struct row {
    std::string name;
    action library;
    action floor;
    double owed;
};

/** A refresh as a monitoring agent does it: one record per GPU, kept from call to call. */
void refresh(std::uint32_t gpu)
{
    static vekml_device_query_t records[VEKML_MAX_DEVICES];
    vekml_device_query_two_parts(&globals.devices[gpu], &records[gpu]);
}

void run(benchmark::State &state, const action &one)
{
    for (auto _ : state)
        one();
}

/** Keeps the quickest repetition of each benchmark: noise only ever adds. */
class quickest : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const auto &one : runs) {
            if (one.run_type != Run::RT_Iteration || one.iterations == 0)
                continue;
            const double seconds = one.cpu_accumulated_time / static_cast<double>(one.iterations);
            const auto [place, first] = times_.try_emplace(one.run_name.function_name, seconds);
            if (!first)
                place->second = std::min(place->second, seconds);
        }
    }
    bool has(const std::string &name) const { return times_.count(name) != 0; }
    double seconds(const std::string &name) const { return times_.at(name); }

private:
    std::map<std::string, double> times_;
};

quickest measure(const std::vector<row> &rows, int argc, char **argv)
{
    for (const auto &row : rows) {
        benchmark::RegisterBenchmark(row.name.c_str(), run, row.library);
        benchmark::RegisterBenchmark((row.name + " floor").c_str(), run, row.floor);
    }
    std::string defaults[] = {"--benchmark_repetitions=15", "--benchmark_enable_random_interleaving=true",
                              "--benchmark_min_time=0.1"};
    std::vector<char *> arguments{argv[0]};
    for (auto &argument : defaults)
        arguments.push_back(argument.data());
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    quickest times;
    benchmark::RunSpecifiedBenchmarks(&times);
    return times;
}

void report(const std::vector<row> &rows, const quickest &times)
{
    std::printf("%-26s %6s %6s %13s %9s %8s\n", "", "ratio", "owed", "system calls", "floor's", "us");
    for (const auto &row : rows) {
        if (!times.has(row.name) || !times.has(row.name + " floor"))
            continue;
        const double library = times.seconds(row.name);
        const double floor = times.seconds(row.name + " floor");
        std::printf("%-26s %6.2f %6.2f %13.1f %9.1f %8.2f\n", row.name.c_str(), library / floor, row.owed,
                    system_calls_of(row.library), system_calls_of(row.floor), library * 1e6);
    }
}

std::size_t open_descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

/** The quickest of a hundred refreshes, in seconds. */
double a_hundred_refreshes()
{
    using clock = std::chrono::steady_clock;
    auto best = clock::duration::max();
    for (int i = 0; i < 100; ++i) {
        const auto begin = clock::now();
        refresh(0);
        best = std::min(best, clock::now() - begin);
    }
    return std::chrono::duration<double>(best).count();
}

/** Whether a refresh still costs the same, and holds the same, after a hundred thousand. */
void report_long_run()
{
    const double early = a_hundred_refreshes();
    const auto heap = mallinfo2().uordblks;
    const auto descriptors = open_descriptors();
    for (int i = 200; i < 99900; ++i)
        refresh(0);
    const auto heap_growth = static_cast<long>(mallinfo2().uordblks) - static_cast<long>(heap);
    const auto descriptor_growth = static_cast<long>(open_descriptors()) - static_cast<long>(descriptors);
    std::printf("%-26s %6.2f %6.2f   heap %+ld bytes, descriptors %+ld\n", "refresh 100,000 to 100",
                a_hundred_refreshes() / early, 1.05, heap_growth, descriptor_growth);
}

} // namespace

int main(int argc, char **argv)
{
    constexpr std::uint32_t gpus = 15;
    veksim::host_tree host;
    for (std::uint32_t i = 0; i < gpus; ++i)
        host.add_gpu();
    veksim_use(host.root().c_str());
    vekml_init();
    refresh(0);

    const floors bare(host, [] { refresh(0); });
    const std::string node = host.hwmon(0, "temp1_input");
    const std::vector<row> rows = {
        {"trace message", [] { TRACE("get data from [%s]: 0x%04lx", "/sys/class/drm/card0/device/vendor", 0x7665L); },
         [&] { bare.write_line(); }, 1.4},
        {"node read",
         [&] {
             vekml::node_text<> text;
             text.read(node.c_str());
         },
         [&] {
             bare.read_once(node);
             bare.write_line(); // its two messages
             bare.write_line();
         },
         1.4},
        {"refresh", [] { refresh(0); }, [&] { bare.refresh(); }, 1.25},
        {"15 GPUs to 15 x 1",
         [] {
             for (std::uint32_t i = 0; i < gpus; ++i)
                 refresh(i);
         },
         [] {
             for (std::uint32_t i = 0; i < gpus; ++i)
                 refresh(0);
         },
         1.1},
    };
    const quickest times = measure(rows, argc, argv);
    std::printf("a refresh: %zu files read, %zu lines logged\n\n", bare.files(), bare.lines());
    report(rows, times);
    report_long_run();
}
