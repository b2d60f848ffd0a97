// SPDX-License-Identifier: Apache-2.0
#include "seat.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fmt/format.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace readings {
namespace {

using std::chrono::seconds;

constexpr auto longest_pause = seconds(60);
constexpr auto shortest_grace = seconds(2);
constexpr int patience = 100; // looks at a process that ends, a millisecond apart

std::string death_of(int status)
{
    if (!WIFSIGNALED(status))
        return fmt::format("the reader ended with {}", WEXITSTATUS(status));
    const int signal = WTERMSIG(status);
    const char *name = sigdescr_np(signal);
    return fmt::format("signal {} ({})", signal, name == nullptr ? "unknown" : name);
}

} // namespace

void seat::enter(gpu_state now, std::string why)
{
    if (state != now)
        since = std::chrono::system_clock::now();
    state = now;
    detail = std::move(why);
}

void seat::come_back(unsigned as)
{
    present = true;
    number = as;
    start_at = {};
    pause_ = first_pause;
    enter(gpu_state::ok);
}

void seat::start(const assignment &what)
{
    process = reader::start(what);
    if (!process) {
        enter(gpu_state::crashed, fmt::format("no reader could be started: {}", std::strerror(errno)));
        postpone();
        return;
    }
    alive = life::running;
    incoming_.clear();
    asked = 0;
    kill_at = clock::time_point::max();
    epoll_event event{.events = EPOLLIN, .data = {.ptr = this}};
    epoll_ctl(events_, EPOLL_CTL_ADD, process->socket(), &event);
}

void seat::postpone()
{
    start_at = clock::now() + pause_;
    pause_ = std::min<clock::duration>(pause_ * 2, longest_pause);
}

bool seat::send(std::uint64_t as)
{
    asked = as;
    // The last words of one that ended, and how it did, are yet to be read.
    if (process->send(at_work, as) || errno == EPIPE || errno == ECONNRESET)
        return true;
    bury("the reader takes no requests");
    return false;
}

std::optional<json> seat::next_message()
{
    packet buffer(65536);
    while (alive == life::running) {
        const ssize_t length = recv(process->socket(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (length < 0 && errno == ECONNRESET) // it went without reading a request; what it said is still to come
            continue;
        if (length < 0 && (errno == EAGAIN || errno == EINTR))
            break;
        if (length <= 0) {
            bury({});
            break;
        }
        const auto outcome = incoming_.add(buffer.data(), static_cast<std::size_t>(length));
        if (outcome == assembly::outcome::whole)
            return incoming_.document();
        if (outcome == assembly::outcome::garbage)
            bury("the reader's answer makes no sense");
    }
    return std::nullopt;
}

void seat::is_idle()
{
    asked = 0;
    waited_for = false;
    kill_at = clock::time_point::max();
}

void seat::has_answered()
{
    is_idle();
    grace_ = {};
    if (state == gpu_state::ok)
        pause_ = first_pause;
}

void seat::give_grace()
{
    grace_ = std::min<clock::duration>(std::max<clock::duration>(grace_ * 2, shortest_grace), longest_pause);
    kill_at = clock::now() + grace_;
}

void seat::hang_up()
{
    epoll_ctl(events_, EPOLL_CTL_DEL, process->socket(), nullptr);
    process.reset();
}

void seat::end()
{
    if (alive == life::running) {
        kill(process->pid(), SIGKILL);
        dying_pid_ = process->pid();
        alive = life::dying;
        hang_up();
    }
    is_idle();
    reap();
}

void seat::end_for_good()
{
    end();
    for (int look = 0; look < patience && alive == life::dying && !reap(); ++look)
        poll(nullptr, 0, 1);
    is_unkillable = alive == life::dying;
}

bool seat::reap()
{
    if (alive != life::dying)
        return false;
    int status = 0;
    if (waitpid(dying_pid_, &status, WNOHANG) == 0)
        return false;
    alive = life::none;
    dying_pid_ = -1;
    return true;
}

// Its socket ended when WHY is empty, so the process has or will in a moment.
void seat::bury(std::string why)
{
    const pid_t pid = process->pid();
    int status = 0;
    pid_t gone = 0;
    for (int look = 0; look < 5 * patience && gone == 0 && why.empty(); ++look) {
        gone = waitpid(pid, &status, WNOHANG);
        if (gone == 0)
            poll(nullptr, 0, 1);
    }
    if (gone == pid) {
        alive = life::none;
        hang_up();
        why = death_of(status);
    } else {
        end();
        why = why.empty() ? "the reader ended" : why;
    }
    is_idle();
    if (of_another_maker)
        return;
    enter(gpu_state::crashed, std::move(why));
    postpone();
}

} // namespace readings
