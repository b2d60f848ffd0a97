// SPDX-License-Identifier: Apache-2.0
//
// What a process for each card costs, and what a sick GPU costs the others: each figure beside what is owed. A ratio is
// the middle one of many turns, in which both sides follow each other on the same simulated hosts.

#include "host_tree.h"
#include "readings/read_field.h"
#include "readings/reader_pool.h"
#include "veksim.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <malloc.h>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace readings;

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

bool all_met = true;

void report(const char *what, double measured, const char *relation, double owed, const char *unit)
{
    const bool met = *relation == '<' ? measured <= owed : measured >= owed;
    all_met &= met;
    std::printf("%-66s %9.2f  %s %7.2f %s%s\n", what, measured, *relation == '<' ? "at most " : "at least", owed, unit,
                met ? "" : "  MISSED");
    std::fflush(stdout);
}

double middle(std::vector<double> numbers)
{
    const auto half = numbers.begin() + static_cast<std::ptrdiff_t>(numbers.size() / 2);
    std::nth_element(numbers.begin(), half, numbers.end());
    return *half;
}

double milliseconds_for(const std::function<void()> &action)
{
    const auto begin = steady_clock::now();
    action();
    return std::chrono::duration<double, std::milli>(steady_clock::now() - begin).count();
}

request everything()
{
    request asked;
    for (const field &f : all_fields)
        asked.fields.push_back(&f);
    return asked;
}

// A simulated host and the pool of a program that runs on it.
class host {
public:
    explicit host(int gpus)
    {
        for (int gpu = 0; gpu < gpus; ++gpu) {
            veksim::gpu_state state;
            state.processes = {{5000001u + static_cast<unsigned>(gpu), "worker", 1 << 20, 1 << 21}};
            tree_.add_gpu(veksim::sample_gpu(gpu), state);
        }
        tree_.set_euid(0);
    }
    void start(milliseconds deadline)
    {
        use();
        pool_ = std::make_unique<reader_pool>(pool_options{.deadline = deadline});
    }
    void stop() { pool_.reset(); }
    void use() { veksim_use(tree_.root().c_str()); }
    const answers &round(const request &asked)
    {
        pool_->begin(asked);
        while (!pool_->is_over()) {
            wait();
            pool_->advance();
        }
        return pool_->result();
    }
    bool wait(milliseconds most = milliseconds(60000))
    {
        const auto left = pool_->due().value_or(steady_clock::now() + most) - steady_clock::now();
        pollfd answers{pool_->descriptor(), POLLIN, 0};
        const auto until = std::chrono::ceil<milliseconds>(std::max<steady_clock::duration>(left, milliseconds(0)));
        return poll(&answers, 1, static_cast<int>(until.count())) > 0;
    }
    void hang(int gpu, const char *node) { tree_.link(tree_.hwmon(gpu, node), "stuck"); }
    void recover(int gpu, const char *node, const char *text) { tree_.write(tree_.hwmon(gpu, node), text); }

private:
    veksim::host_tree tree_;
    std::unique_ptr<reader_pool> pool_;
};

bool are_ok(const answers &said, int but = -1)
{
    return !said.empty() && std::all_of(said.begin(), said.end(), [&](const answer &one) {
        return (one.state == gpu_state::ok) != (static_cast<int>(one.index) == but);
    });
}

struct process {
    pid_t pid;
    pid_t parent;
    char state;
};

std::vector<process> processes()
{
    std::vector<process> found;
    for (const auto &entry : fs::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "stat");
        std::string text;
        std::getline(file, text);
        process one{std::atoi(entry.path().filename().c_str()), -1, '?'};
        const std::size_t name = text.rfind(") ");
        if (name != text.npos && std::sscanf(text.c_str() + name, ") %c %d", &one.state, &one.parent) == 2)
            found.push_back(one);
    }
    return found;
}

std::vector<pid_t> children()
{
    std::vector<pid_t> found;
    for (const process &one : processes()) {
        if (one.parent == getpid())
            found.push_back(one.pid);
    }
    return found;
}

long own_memory_kib(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
    for (std::string line; std::getline(file, line);) {
        long kib = 0;
        if (std::sscanf(line.c_str(), "Private_Dirty: %ld kB", &kib) == 1)
            return kib;
    }
    return -1;
}

long descriptors()
{
    const fs::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

// ---- one of four hangs

void one_of_four_hangs()
{
    constexpr milliseconds deadline(500);
    const request asked = everything();
    host three(3), four(4);
    const struct {
        const char *what, *node, *text;
        bool at_start;
    } cases[] = {{"one of four hangs in a reading", "temp1_input", "48\n", false},
                 {"one of four hangs at start", "vek_device_model", "VEK M310\n", true}};
    for (const auto &c : cases) {
        double longest = 0;
        int times = 0, healthy = 0, stayed = 0, back = 0;
        std::vector<double> ratios;
        for (; times < 5; ++times) {
            three.start(deadline);
            three.round(asked);
            if (c.at_start)
                four.use(), four.hang(3, c.node);
            four.start(deadline);
            if (!c.at_start) {
                four.round(asked);
                four.hang(3, c.node);
            }
            longest = std::max(longest, milliseconds_for([&] { healthy += are_ok(four.round(asked), 3); }));
            for (int turn = 0; turn < 40; ++turn) {
                bool as_before = true;
                const double with = milliseconds_for([&] { as_before = are_ok(four.round(asked), 3); });
                three.use();
                ratios.push_back(with / milliseconds_for([&] { as_before &= are_ok(three.round(asked)); }));
                four.use();
                stayed += as_before ? 1 : 0;
            }
            four.recover(3, c.node, c.text);
            four.wait(); // its answer is there
            back += are_ok(four.round(asked)) ? 1 : 0;
            four.stop();
            three.stop();
        }
        std::printf("%s (%d times)\n", c.what, times);
        report("  share of rounds in which the others answered", healthy / double(times), ">", 1, "");
        report("  longest round beyond the deadline", longest - double(deadline.count()), "<", 50, "ms");
        report("  a round after that against one of three GPUs", middle(ratios), "<", 1.1, "times");
        report("  share of those in which the others answered", stayed / double(ratios.size()), ">", 1, "");
        report("  share of times back in the first round after its read returned", back / double(times), ">", 1, "");
    }
}

// ---- ten thousand rounds

struct holding {
    long descriptors;
    long processes;
    long heap;
    long private_kib;
};

holding held()
{
    malloc_trim(0);
    return {descriptors(), static_cast<long>(children().size()), static_cast<long>(mallinfo2().uordblks),
            own_memory_kib(getpid())};
}

void ten_thousand_rounds()
{
    constexpr int rounds = 10000, warm_up = 1000;
    const request asked{.fields = pick<"temperature", "power">()};
    host two(2);
    two.start(milliseconds(50));
    two.round(asked);
    holding before{};
    int hung = 0, recovered = 0;
    for (int i = 0; i < rounds; ++i) {
        if (i == warm_up)
            before = held();
        if (i % 100 == 50)
            two.hang(1, "temp1_input");
        if (i % 3000 == 55)
            std::this_thread::sleep_for(milliseconds(2100)); // until its reader is ended and another one started
        const answers &said = two.round(asked);
        hung += i % 100 == 50 && are_ok(said, 1) ? 1 : 0;
        recovered += i % 100 == 49 && are_ok(said) ? 1 : 0;
        if (i % 100 == 60)
            two.recover(1, "temp1_input", "48\n");
    }
    std::this_thread::sleep_for(milliseconds(100));
    two.round(asked);
    const holding after = held();
    std::printf("%d rounds, in which a GPU hung and recovered %d times\n", rounds, rounds / 100);
    report("  times it was told as stuck", hung, ">", rounds / 100, "");
    report("  times it was told as recovered", recovered, ">", rounds / 100, "");
    report("  descriptors more", double(after.descriptors - before.descriptors), "<", 0, "");
    report("  processes more", double(after.processes - before.processes), "<", 0, "");
    report("  heap more", double(after.heap - before.heap), "<", 4096, "bytes");
    report("  memory of its own more", double(after.private_kib - before.private_kib), "<", 64, "KiB");
    two.stop();
}

// ---- fifteen GPUs

double processor_milliseconds(const std::vector<pid_t> &of)
{
    double sum = 0;
    for (const pid_t pid : of) {
        clockid_t clock;
        timespec used{};
        if (clock_getcpuclockid(pid, &clock) == 0 && clock_gettime(clock, &used) == 0)
            sum += double(used.tv_sec) * 1e3 + double(used.tv_nsec) * 1e-6;
    }
    return sum;
}

void fifteen_gpus()
{
    constexpr int gpus = 15;
    const request asked = everything();
    host all(gpus);
    all.start(milliseconds(20000));
    for (int i = 0; i < 20; ++i)
        all.round(asked);
    std::vector<pid_t> at_work = children();
    long most = 0, sum = 0;
    for (const pid_t reader : at_work) {
        const long kib = own_memory_kib(reader);
        most = std::max(most, kib);
        sum += kib;
    }
    at_work.push_back(getpid());

    vekml_init();
    std::vector<std::unique_ptr<gpu>> directly;
    for (unsigned i = 0; i < gpus; ++i) {
        vekml_device_t handle = nullptr;
        vekml_device_get_handle_by_index(i, &handle);
        directly.push_back(std::make_unique<gpu>(handle, false));
    }
    std::vector<value> values(field_count);
    const auto read_all = [&] {
        for (const auto &one : directly) {
            one->forget();
            for (const field &f : all_fields)
                values[index_of(f)] = read_field(f, *one);
        }
    };
    read_all();
    std::vector<double> elapsed, used;
    for (int turn = 0; turn < 60; ++turn) {
        double before = processor_milliseconds(at_work);
        const double by_readers = milliseconds_for([&] { all.round(asked); });
        const double used_by_readers = processor_milliseconds(at_work) - before;
        before = processor_milliseconds(at_work);
        elapsed.push_back(by_readers / milliseconds_for(read_all));
        used.push_back(used_by_readers / (processor_milliseconds(at_work) - before));
    }
    std::printf("all fields of %d GPUs, against reading them in one process\n", gpus);
    report("  time", middle(elapsed), "<", 1.5, "times");
    report("  processor time", middle(used), "<", 1.5, "times");
    report("  memory of a reader's own, the largest", double(most), "<", 1024, "KiB");
    report("  memory of a reader's own, on average", double(sum) / gpus, "<", 1024, "KiB");
    vekml_shutdown();
    all.stop();
}

// ---- a program that is killed

void killed_program()
{
    host four(4);
    four.use();
    four.hang(3, "temp1_input");
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int ready[2];
    if (pipe(ready) != 0)
        return;
    const pid_t program = fork();
    if (program == 0) {
        four.start(milliseconds(500));
        four.round(everything());
        if (write(ready[1], "r", 1) == 1)
            pause();
        _exit(1);
    }
    char word;
    if (read(ready[0], &word, 1) != 1)
        return;
    const auto started = processes();
    const auto readers =
        std::count_if(started.begin(), started.end(), [&](const process &one) { return one.parent == program; });
    kill(program, SIGKILL);
    waitpid(program, nullptr, 0);
    std::this_thread::sleep_for(milliseconds(500));
    int left = 0;
    for (const process &one : processes())
        left += one.parent == getpid() && one.state != 'Z' ? 1 : 0;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    std::printf("a program killed with SIGKILL\n");
    report("  readers before", double(readers), ">", 4, "");
    report("  readers left behind", left, "<", 0, "");
}

} // namespace

int main()
{
    one_of_four_hangs();
    fifteen_gpus();
    ten_thousand_rounds();
    killed_program();
    veksim_use(nullptr);
    return all_met ? 0 : 1;
}
