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
#include <limits>
#include <malloc.h>
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

/** What a row's turns have come to. */
struct result {
    std::vector<double> ratios; // of the library's time to the floor's, turn by turn
    double quickest = std::numeric_limits<double>::infinity();

    double ratio()
    {
        const auto middle = ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2);
        std::nth_element(ratios.begin(), middle, ratios.end());
        return *middle;
    }
};

double seconds_for(const action &one, int times)
{
    using clock = std::chrono::steady_clock;
    const auto begin = clock::now();
    for (int i = 0; i < times; ++i)
        one();
    return std::chrono::duration<double>(clock::now() - begin).count();
}

/** One turn: the library and at once its floor, so that whatever slows the machine slows both. */
void take_turn(const row &row, int times, result &found)
{
    const double library = seconds_for(row.library, times);
    found.ratios.push_back(library / seconds_for(row.floor, times));
    found.quickest = std::min(found.quickest, library / times);
}

void compare(benchmark::State &state, const row &row, result &found)
{
    constexpr double long_enough = 100e-6; // for the clock's own cost to vanish
    const int times = static_cast<int>(long_enough / seconds_for(row.library, 1)) + 1;
    for (auto _ : state)
        take_turn(row, times, found);
}

/** The table below says it all. */
class silence : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &) override {}
};

std::vector<result> measure(const std::vector<row> &rows, int argc, char **argv)
{
    std::vector<result> found(rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        benchmark::RegisterBenchmark(rows[i].name.c_str(), compare, rows[i], std::ref(found[i]));
    std::string default_time = "--benchmark_min_time=3";
    std::vector<char *> arguments{argv[0], default_time.data()};
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    silence nothing;
    benchmark::RunSpecifiedBenchmarks(&nothing);
    return found;
}

void report(const std::vector<row> &rows, std::vector<result> found)
{
    std::printf("%-26s %6s %6s %13s %9s %8s\n", "", "ratio", "owed", "system calls", "floor's", "us");
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (!found[i].ratios.empty())
            std::printf("%-26s %6.2f %6.2f %13.1f %9.1f %8.2f\n", rows[i].name.c_str(), found[i].ratio(), rows[i].owed,
                        system_calls_of(rows[i].library), system_calls_of(rows[i].floor), found[i].quickest * 1e6);
    }
}

std::size_t open_descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

/** What a refresh costs over its floor, by some hundred of them. */
double present_cost(const row &refresh_row)
{
    result found;
    for (int i = 0; i < 500; ++i)
        take_turn(refresh_row, 1, found);
    return found.ratio();
}

/** Whether a refresh still costs the same, and holds the same, after a hundred thousand. */
void report_long_run(const row &refresh_row)
{
    const double early = present_cost(refresh_row);
    const auto heap = mallinfo2().uordblks;
    const auto descriptors = open_descriptors();
    for (int i = 0; i < 100000; ++i)
        refresh_row.library();
    const auto heap_growth = static_cast<long>(mallinfo2().uordblks) - static_cast<long>(heap);
    const auto descriptor_growth = static_cast<long>(open_descriptors()) - static_cast<long>(descriptors);
    std::printf("%-26s %6.2f %6.2f   heap %+ld bytes, descriptors %+ld\n", "refresh 100,000 to 100",
                present_cost(refresh_row) / early, 1.05, heap_growth, descriptor_growth);
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
    const row refresh_row = {"refresh", [] { refresh(0); }, [&] { bare.refresh(); }, 1.40};
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
        refresh_row,
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
    const std::vector<result> found = measure(rows, argc, argv);
    std::printf("a refresh: %zu files read, %zu lines logged\n\n", bare.files(), bare.lines());
    report(rows, found);
    report_long_run(refresh_row);
}
