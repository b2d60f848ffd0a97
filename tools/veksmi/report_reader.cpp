// SPDX-License-Identifier: Apache-2.0
#include "report_reader.h"

#include "readings/child_process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using step = node_result::step;
using readings::child_process::channel, readings::child_process::leave;

constexpr std::size_t most_workers = 8;
constexpr std::size_t node_size = 4096, dump_size = 1 << 20, end_size = 64 << 10;
constexpr std::size_t reply_room = 1 << 17;

// What goes through the pipe at each step of a job; with the last, the text follows.
struct message {
    std::uint32_t job;
    step at, failed;
    bool writable;
    std::int32_t error;
    std::uint32_t length;
};

void send_all(const void *bytes, std::size_t size)
{
    const char *at = static_cast<const char *>(bytes);
    while (size > 0) {
        const ssize_t sent = write(channel, at, size);
        if (sent < 0 && errno != EINTR)
            _exit(0);
        if (sent > 0) {
            at += sent;
            size -= static_cast<std::size_t>(sent);
        }
    }
}

// The argument of the driver's information requests.
struct request_block {
    std::uint64_t reply_address;
    std::uint32_t limit, selector;
};

int ask_driver(int card, const node_job &job, std::string &text)
{
    constexpr std::uint32_t process_statistics = 1, process_limit = 100000;
    text.assign(reply_room, '\0');
    request_block block{reinterpret_cast<std::uintptr_t>(text.data()),
                        job.selector == process_statistics ? process_limit : std::uint32_t{reply_room}, job.selector};
    return ioctl(card, static_cast<unsigned long>(job.request), &block);
}

int read_text(int file, std::size_t most, std::string &text)
{
    constexpr std::size_t piece = node_size;
    for (;;) {
        const std::size_t before = text.size();
        text.resize(before + std::min(piece, most - before));
        const ssize_t length = read(file, text.data() + before, text.size() - before);
        text.resize(before + static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        if (length < 0)
            return -1;
        if (length < static_cast<ssize_t>(piece) || text.size() == most)
            return 0;
    }
}

int read_end(int file, const struct stat &facts, std::string &text)
{
    if (!S_ISREG(facts.st_mode)) {
        errno = EINVAL;
        return -1;
    }
    lseek(file, std::max<off_t>(facts.st_size - static_cast<off_t>(end_size), 0), SEEK_SET);
    return read_text(file, end_size, text);
}

void read_one(std::uint32_t number, const node_job &job)
{
    message said{number, step::opening, step::untried, true, 0, 0};
    send_all(&said, sizeof said);
    const bool is_file = job.what == node_job::kind::end;
    const int file = open(job.path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | (is_file ? O_NONBLOCK | O_NOFOLLOW : 0));
    std::string text;
    if (file < 0) {
        said.failed = step::opening;
        said.error = errno;
    } else {
        said.at = step::reading;
        send_all(&said, sizeof said);
        struct stat facts {};
        said.writable = fstat(file, &facts) != 0 || (facts.st_mode & 0222) != 0;
        const int result = job.what == node_job::kind::request ? ask_driver(file, job, text)
                           : is_file                           ? read_end(file, facts, text)
                                     : read_text(file, job.what == node_job::kind::dump ? dump_size : node_size, text);
        if (result < 0) {
            said.failed = step::reading;
            said.error = errno;
            text.clear();
        }
        close(file);
    }
    said.at = step::done;
    said.length = static_cast<std::uint32_t>(text.size());
    send_all(&said, sizeof said);
    send_all(text.data(), text.size());
}

} // namespace

node_lane::node_lane(std::vector<node_job> jobs, clock::duration patience)
    : jobs_(std::move(jobs)), results_(jobs_.size()), patience_(patience)
{
    start(0);
}

node_lane::~node_lane()
{
    for (worker &w : workers_)
        end(w);
}

bool node_lane::start(std::size_t first)
{
    int ends[2];
    last_step_ = clock::now();
    if (first >= jobs_.size() || pipe2(ends, O_CLOEXEC) != 0)
        return false;
    const pid_t program = getpid();
    const pid_t child = fork();
    if (child == 0) {
        leave(program, ends[1]);
        for (std::size_t i = first; i < jobs_.size(); ++i)
            read_one(static_cast<std::uint32_t>(i), jobs_[i]);
        _exit(0);
    }
    close(ends[1]);
    if (child < 0) {
        close(ends[0]);
        return false;
    }
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    workers_.push_back({child, ends[0], first, false});
    return true;
}

void node_lane::end(worker &w)
{
    kill(w.pid, SIGKILL);
    close(w.pipe);
    for (int look = 0; look < 50 && waitpid(w.pid, nullptr, WNOHANG) == 0; ++look)
        poll(nullptr, 0, 1);
    w.pid = -1;
}

void node_lane::take(worker &w)
{
    std::array<char, 65536> piece;
    ssize_t length = 0;
    while ((length = read(w.pipe, piece.data(), piece.size())) > 0)
        w.received.append(piece.data(), static_cast<std::size_t>(length));
    const bool ended = length == 0;
    message said;
    while (w.pid > 0 && w.received.size() >= sizeof said) {
        std::memcpy(&said, w.received.data(), sizeof said);
        if (said.job >= results_.size())
            return end(w);
        if (w.received.size() < sizeof said + said.length)
            break;
        const bool own = !w.left_behind || said.job == w.job;
        if (own)
            results_[said.job] = {said.at, said.failed, said.error, said.writable,
                                  w.received.substr(sizeof said, said.length)};
        w.received.erase(0, sizeof said + said.length);
        w.job = own ? said.job : w.job;
        if (!w.left_behind)
            last_step_ = clock::now();
        else if (!own || said.at == step::done)
            end(w);
    }
    if (!ended || w.pid < 0)
        return;
    end(w);
    if (results_[w.job].at != step::done) // reading it was the end of the process
        results_[w.job] = {.at = step::done, .failed = step::reading, .error = EIO};
    if (!w.left_behind)
        start(w.job + 1);
}

void node_lane::advance()
{
    for (std::size_t i = 0; i < workers_.size(); ++i) { // the last one may start another
        worker w = std::move(workers_[i]);
        const std::size_t before = workers_.size();
        take(w);
        workers_[i] = std::move(w);
        if (workers_.size() > before)
            break;
    }
    std::erase_if(workers_, [](const worker &w) { return w.pid < 0; });
    if (workers_.empty() || workers_.size() >= most_workers || clock::now() - last_step_ < patience_)
        return;
    const std::size_t newest = workers_.size() - 1;
    if (!workers_[newest].left_behind && start(workers_[newest].job + 1))
        workers_[newest].left_behind = true;
}

bool node_lane::is_over() const
{
    return workers_.empty();
}

void node_lane::watch(std::vector<pollfd> &descriptors) const
{
    for (const worker &w : workers_)
        descriptors.push_back({w.pipe, POLLIN, 0});
}
