// SPDX-License-Identifier: Apache-2.0
#include "output.h"
#include "session.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

using steady = std::chrono::steady_clock;

// SIGINT and SIGTERM as something to wait for, also beside a GPU that does not answer.
class interruption {
public:
    interruption()
    {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
        descriptor_ = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    ~interruption() { close(descriptor_); }
    interruption(const interruption &) = delete;
    interruption &operator=(const interruption &) = delete;

    int descriptor() const { return descriptor_; }
    bool came() const
    {
        pollfd signal{descriptor_, POLLIN, 0};
        return poll(&signal, 1, 0) > 0;
    }

    // False when there is nobody to go on for: a signal came, or the reader went away.
    bool wait(steady::time_point until) const
    {
        pollfd watched[] = {{descriptor_, POLLIN, 0}, {output_descriptor(), 0, 0}};
        using std::chrono::milliseconds;
        const auto left = std::max(std::chrono::ceil<milliseconds>(until - steady::now()), milliseconds(0));
        return poll(watched, 2, static_cast<int>(left.count())) == 0;
    }

private:
    int descriptor_;
};

std::string timestamp()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[64], zone[16];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    std::strftime(zone, sizeof zone, "%z", &local); // "+0100"
    return fmt::format("{}.{:03}{:.3}:{}", text, since % 1000, zone, zone + 3);
}

struct column {
    const char *heading;
    const field &of;
    std::size_t width;
};

// In the order in which they find room.
const column usual_columns[] = {
    {"gpu", field_of("index"), 3},
    {"°C", field_of("temperature"), 3},
    {"fan RPM", field_of("fan_speed"), 7},
    {"W", field_of("power"), 4},
    {"gfx MHz", field_of("gfx_clock_mhz"), 7},
    {"load %", field_of("gpu_util_percent"), 6},
    {"mem %", field_of("memory_util_percent"), 5},
    {"mem MHz", field_of("memory_clock_mhz"), 7},
    {"3d %", field_of("3d_util_percent"), 4},
    {"mem used", field_of("memory_used"), 12},
};
constexpr std::size_t time_width = 29;

std::string heading_of(const field &f)
{
    const char *symbol = facts_of(f.in).symbol;
    return *symbol == '\0' ? f.key : fmt::format("{} {}", label(f), symbol);
}

bool any_is(const answers &gpus, bool (*in_state)(gpu_state))
{
    return std::any_of(gpus.begin(), gpus.end(), [&](const answer &gpu) { return in_state(gpu.state); });
}

// A round: in columns and CSV a line per GPU, in JSON one document.
class round_writer {
public:
    explicit round_writer(const options &wanted) : shape_(wanted.shape), fields_(wanted.fields)
    {
        if (fields_.empty())
            choose_usual();
        else if (fields_.front() != &field_of("index")) // a line says whose it is
            fields_.insert(fields_.begin(), &field_of("index"));
    }

    const field_list &fields() const { return fields_; }

    // False when it cannot go out.
    bool write(const answers &gpus)
    {
        const std::string now = timestamp();
        if (shape_ == format::json) {
            put(json_document(fields_, gpus, {.head = {{"time", now}}}) + "\n");
        } else if (shape_ == format::csv) {
            if (lines_ == 0)
                put("time,state," + csv_header(fields_));
            lines_ = 1;
            for (const answer &gpu : gpus)
                put(fmt::format("{},{},{}", now, name_of(gpu.state), csv_values(fields_, gpu)));
        } else {
            if (lines_ == 0 || lines_ >= header_distance)
                write_header(gpus);
            for (const answer &gpu : gpus)
                write_line(now, gpu);
        }
        lines_ += gpus.size();
        return flush_output();
    }

private:
    static constexpr std::size_t header_distance = 20;

    void choose_usual()
    {
        std::size_t taken = time_width;
        for (const column &c : usual_columns) {
            taken += c.width + 1;
            if (shape_ == format::table && taken > output_width())
                break;
            fields_.push_back(&c.of);
            headings_.emplace_back(c.heading);
            widths_.push_back(c.width);
        }
    }

    void write_header(const answers &gpus)
    {
        lines_ = 0;
        for (const field *f : headings_.empty() ? fields_ : field_list{}) {
            headings_.push_back(heading_of(*f));
            widths_.push_back(width_of(headings_.back()));
            for (const answer &gpu : gpus)
                widths_.back() = std::max(widths_.back(), width_of(plain(gpu, *f)));
        }
        std::string header = fmt::format("{:<{}}", "time", time_width);
        for (std::size_t i = 0; i < fields_.size(); ++i)
            header += " " + right(headings_[i], widths_[i]);
        put(paint(colour::bold, header) + "\n");
    }

    void write_line(const std::string &now, const answer &gpu)
    {
        std::string line = now;
        std::size_t end = time_width; // of the column; a text that is too wide for its own takes the next one's blanks
        // A state stands where the readings would, once.
        bool told = gpu.state == gpu_state::ok;
        for (std::size_t i = 0; i < fields_.size(); ++i) {
            const missing *none = why_missing(gpu[*fields_[i]]);
            const bool is_of_the_gpu = none != nullptr && none->why >= reason::asleep;
            const std::string text = is_of_the_gpu ? (told ? "-" : name_of(none->why)) : plain(gpu, *fields_[i]);
            told |= is_of_the_gpu;
            end += 1 + widths_[i];
            line += " " + right(text, end - std::min(end, width_of(line) + 1));
        }
        put(line + (told ? "" : fmt::format(" {}", name_of(gpu.state))) + "\n");
    }

    static std::string right(const std::string &text, std::size_t width)
    {
        return std::string(width - std::min(width, width_of(text)), ' ') + text;
    }

    format shape_;
    field_list fields_;
    std::vector<std::string> headings_{};
    std::vector<std::size_t> widths_{};
    std::size_t lines_ = 0; // since the last header
};

} // namespace

int monitor(const options &wanted, session &gpus)
{
    const interruption interrupted;
    round_writer writer(wanted);
    const auto interval = std::chrono::duration_cast<steady::duration>(std::chrono::duration<double>(wanted.interval));
    auto next = steady::now();
    for (long round = 1;; ++round) {
        const answers said = gpus.ask({.fields = writer.fields()}, interrupted.descriptor());
        if (interrupted.came() || !writer.write(said) || said.empty())
            return exit_done;
        const bool is_last = round == wanted.count ||
                             (wanted.until_lost && any_is(said, [](gpu_state s) { return s == gpu_state::lost; }));
        if (is_last)
            return any_is(said, is_sick) ? status_of(said) : exit_done;
        next = std::max(next + interval, steady::now()); // a late round is not made up for
        if (!interrupted.wait(next))
            return exit_done;
    }
}
