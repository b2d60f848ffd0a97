// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <poll.h>

namespace {

volatile std::sig_atomic_t stop = 0;

void ask_to_stop(int)
{
    stop = 1;
}

// From now on SIGINT and SIGTERM end the monitor between two lines.
void catch_signals()
{
    struct sigaction action {};
    action.sa_handler = ask_to_stop; // without SA_RESTART: a write to a reader that sleeps ends too
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

struct column {
    const char *heading;
    const char *key;
    int width;
};

constexpr column columns[] = {
    {"gpu", "index", 3},
    {"temp", "temperature", 6},
    {"fan", "fan_speed", 6},
    {"power", "power", 6},
    {"gfx MHz", "gfx_clock_mhz", 7},
    {"mem MHz", "memory_clock_mhz", 7},
    {"load %", "gpu_util_percent", 6},
    {"3d %", "3d_util_percent", 4},
    {"mem %", "memory_util_percent", 5},
    {"mem used", "memory_used", 12},
};

field_list monitored()
{
    field_list fields;
    for (const column &c : columns)
        fields.push_back(&field_of(c.key));
    return fields;
}

std::tm local_time()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local;
}

std::string timestamp()
{
    const std::tm local = local_time();
    char text[64];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S%z", &local)};
}

std::string time_of_day()
{
    const std::tm local = local_time();
    return fmt::format("{:02}:{:02}:{:02}", local.tm_hour, local.tm_min, local.tm_sec);
}

using steady = std::chrono::steady_clock;

timespec remaining(steady::time_point until)
{
    using std::chrono::nanoseconds;
    constexpr long second = 1000000000;
    const auto left = std::max(std::chrono::duration_cast<nanoseconds>(until - steady::now()), nanoseconds(0)).count();
    return {static_cast<std::time_t>(left / second), static_cast<long>(left % second)};
}

// False when there is nobody to go on for: a signal came, or the reader went away.
bool wait(steady::time_point until)
{
    sigset_t signals, before;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    // Blocked from the look at `stop` to the wait, so that no signal slips in between.
    sigprocmask(SIG_BLOCK, &signals, &before);
    pollfd reader{output_descriptor(), 0, 0};
    const timespec left = remaining(until);
    const bool elapsed = stop == 0 && ppoll(&reader, 1, &left, &before) == 0;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return elapsed && stop == 0;
}

// One line per GPU; false when they cannot go out.
class line_writer {
public:
    explicit line_writer(format shape) : shape_(shape), fields_(monitored()) {}

    bool write(gpu &g)
    {
        if (shape_ == format::json)
            put(json_document(fields_, {&g}, {.head = {{"time", timestamp()}}}) + "\n");
        else if (shape_ == format::csv)
            write_csv(g);
        else
            write_columns(g);
        return flush_output();
    }

private:
    static constexpr unsigned header_distance = 20;

    void write_csv(gpu &g)
    {
        if (lines_++ == 0)
            put("time," + csv_header(fields_));
        put(timestamp() + "," + csv_values(fields_, g));
    }

    void write_columns(gpu &g)
    {
        if (lines_++ % header_distance == 0) {
            std::string header = fmt::format("{:<8}", "time");
            for (const column &c : columns)
                header += fmt::format(" {:>{}}", c.heading, c.width);
            put(paint(colour::bold, header) + "\n");
        }
        std::string line = time_of_day();
        for (std::size_t i = 0; i < fields_.size(); ++i)
            line += fmt::format(" {:>{}}", cell(fields_[i]->get(g)), columns[i].width);
        put(line + "\n");
    }

    format shape_;
    field_list fields_;
    unsigned lines_ = 0;
};

} // namespace

int monitor(const options &wanted, gpu_list &gpus)
{
    catch_signals();
    line_writer lines(wanted.shape);
    const auto interval = std::chrono::duration_cast<steady::duration>(std::chrono::duration<double>(wanted.interval));
    auto next = steady::now();
    for (long round = 1;; ++round) {
        for (gpu &g : gpus) {
            g.take_snapshot();
            if (stop != 0 || !lines.write(g))
                return exit_done;
        }
        if (round == wanted.count)
            return exit_done;
        next = std::max(next + interval, steady::now()); // a late round is not made up for
        if (!wait(next))
            return exit_done;
    }
}
