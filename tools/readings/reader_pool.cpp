// SPDX-License-Identifier: Apache-2.0
#include "reader_pool.h"

#include "cards.h"
#include "message.h"
#include "seat.h"

#include <algorithm>
#include <list>
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>
#include <utility>

namespace readings {
namespace {

using clock = reader_pool::clock;
using std::chrono::milliseconds;

} // namespace

struct reader_pool::state {
    pool_options wanted;
    int events = epoll_create1(EPOLL_CLOEXEC);
    std::list<seat> seats{};
    unsigned next_index = 0;
    std::uint64_t number = 0;
    request asked{};
    std::vector<unsigned> only{};
    bool running = false;
    clock::time_point began{}, deadline{};
    milliseconds allowed{};
    answers told{};

    // ---- cards come and go

    void look_around()
    {
        if (wanted.out_of_band) {
            if (seats.empty())
                seats.emplace_back(events, 0);
            return;
        }
        auto cards = cards_of_host();
        if (!cards)
            return;
        for (seat &s : seats) {
            const auto found = std::find(cards->begin(), cards->end(), card{s.number, s.link_bus_id});
            const bool was_present = s.present;
            s.present = found != cards->end();
            if (found != cards->end())
                cards->erase(found);
            if (was_present && !s.present)
                leave(s);
            if (!was_present && s.present)
                s.come_back(s.number);
        }
        seats.remove_if([](const seat &s) { return !s.present && !s.index && s.alive == life::none; });
        for (const card &c : *cards)
            welcome(c);
    }

    // A card with a new number may be a GPU that was here before.
    void welcome(const card &c)
    {
        const auto known = std::find_if(seats.begin(), seats.end(), [&](const seat &s) {
            return !s.present && !c.bus_id.empty() && s.link_bus_id == c.bus_id;
        });
        if (known != seats.end())
            return known->come_back(c.number);
        const auto place = std::find_if(seats.begin(), seats.end(), [&](const seat &s) { return s.number > c.number; });
        seats.emplace(place, events, c.number, c.bus_id);
    }

    void leave(seat &s)
    {
        s.end_for_good();
        s.of_another_maker = false;
        if (s.index)
            s.enter(gpu_state::lost, "its card left /sys/class/drm");
    }

    void start(seat &s) const { s.start({s.number, wanted.out_of_band, wanted.extensions}); }

    // ---- messages

    void receive(seat &s)
    {
        while (const auto document = s.next_message()) {
            if (!take(s, *document))
                return s.bury("the reader's answer makes no sense");
        }
    }

    bool take(seat &s, const json &document)
    {
        const auto answered = number_of(document);
        answer said;
        if (!answered || !take_answer(document, said))
            return false;
        if (*answered == 0)
            return greet(s, document, std::move(said));
        if (*answered != s.asked || !s.greeted)
            return false;
        s.has_answered();
        if (said.state == gpu_state::lost) {
            s.enter(gpu_state::lost, "its configuration space reads all ones");
            return true;
        }
        s.enter(gpu_state::ok);
        if (!running || !s.wanted)
            return true;
        if (*answered != number) { // to something older: now it can take part
            ask(s);
            return true;
        }
        s.answered = true;
        s.said = std::move(said);
        return true;
    }

    bool greet(seat &s, const json &document, answer said)
    {
        const auto ours = document.find("ours"), count = document.find("count");
        if (ours == document.end() || !ours->is_boolean() || count == document.end() || !count->is_number_unsigned())
            return false;
        s.of_another_maker = !ours->get<bool>();
        s.greeted = !s.of_another_maker;
        s.greeting = std::move(said);
        if (s.of_another_maker) {
            s.waited_for = false;
            s.wanted = false;
            return true;
        }
        if (s.state == gpu_state::stuck && s.asked != trial_number) { // in starting, which is over
            s.enter(gpu_state::ok);
            s.kill_at = clock::time_point::max();
            s.waited_for = running && s.wanted;
        }
        const std::uint64_t gpus = std::min<std::uint64_t>(count->get<std::uint64_t>(), VEKML_MAX_DEVICES);
        for (auto last = seats.back().number; wanted.out_of_band && last + 1 < gpus; ++last) {
            seats.emplace_back(events, last + 1);
            seats.back().wanted = s.wanted;
            ask(seats.back());
        }
        return true;
    }

    // ---- a round

    void ask(seat &s)
    {
        const bool was_stuck = s.state == gpu_state::stuck;
        if (s.alive == life::none && s.present && clock::now() >= s.start_at)
            start(s);
        if (s.alive == life::dying && s.state == gpu_state::ok)
            s.enter(gpu_state::stuck, "the last reader cannot be ended");
        if (s.alive != life::running)
            return;
        s.waited_for = !was_stuck;
        if (s.asked != 0) // a round before this one was cut short
            return;
        s.at_work = asked;
        s.send(number);
    }

    bool sleeps(const seat &s) const { return !wanted.out_of_band && !wanted.wake && is_asleep(s.number); }

    // A GPU that sleeps is left alone, even to ask whether it is one of ours.
    bool leaves_alone(seat &s)
    {
        if (!s.present || s.of_another_maker)
            return true;
        if (!wanted.out_of_band && !s.greeted && s.alive == life::none && is_of_another_maker(s.number)) {
            s.of_another_maker = true;
            s.wanted = false;
            return true;
        }
        if (s.asked != 0 || s.state == gpu_state::stuck || !sleeps(s)) {
            if (s.state == gpu_state::asleep)
                s.enter(gpu_state::ok);
            return false;
        }
        s.enter(gpu_state::asleep, "the device is suspended");
        return true;
    }

    bool is_wanted(const seat &s) const
    {
        return only.empty() || (s.index && std::find(only.begin(), only.end(), *s.index) != only.end());
    }

    void begin(const request &what, milliseconds most, const std::vector<unsigned> &of)
    {
        finish(); // what was not over is told as it stands
        asked = what;
        only = of;
        ++number;
        began = clock::now();
        allowed = most + what.extra;
        deadline = began + allowed;
        look_around();
        service();
        running = true;
        for (seat &s : seats) {
            s.answered = s.waited_for = false;
            s.wanted = !s.of_another_maker && is_wanted(s);
        }
        for (seat &s : seats) {
            if (s.wanted && !leaves_alone(s))
                ask(s);
        }
        finish_if_over();
    }

    // What happens without being asked for: answers come, processes end, their time runs out.
    void service()
    {
        epoll_event ready[32];
        for (int count = 1; count > 0;) {
            count = epoll_wait(events, ready, std::size(ready), 0);
            for (int i = 0; i < count; ++i)
                receive(*static_cast<seat *>(ready[i].data.ptr));
        }
        const auto now = clock::now();
        for (seat &s : seats) {
            if (now >= s.kill_at)
                s.end_for_good();
            s.reap();
            if (s.state == gpu_state::stuck && s.alive == life::none && s.present)
                follow_up(s);
        }
    }

    // The reader of a stuck GPU is gone. One that could not be killed went because its read returned; else another one
    // tries the same again, for nobody to wait for.
    void follow_up(seat &s)
    {
        if (std::exchange(s.is_unkillable, false)) {
            s.enter(gpu_state::ok);
            if (running && s.wanted)
                ask(s);
            return;
        }
        start(s);
        if (s.alive != life::running)
            return;
        s.at_work.more = json::object(); // what changes something is not done twice
        if (s.send(trial_number))
            s.give_grace();
    }

    void finish_if_over()
    {
        const bool waits = std::any_of(seats.begin(), seats.end(), [](const seat &s) { return s.waited_for; });
        if (!waits)
            return finish();
        if (clock::now() < deadline)
            return;
        for (seat &s : seats) {
            if (!s.waited_for)
                continue;
            s.enter(gpu_state::stuck, s.process->whereabouts());
            s.since = std::chrono::system_clock::now() -
                      std::chrono::duration_cast<std::chrono::system_clock::duration>(clock::now() - began);
            s.waited_for = false;
            s.give_grace();
        }
        finish();
    }

    // Ends the round: those that are to be shown get their index, and each says what it has to say.
    void finish()
    {
        if (!running)
            return;
        running = false;
        told.clear();
        for (seat &s : seats) {
            if (s.of_another_maker || (!s.wanted && !s.index) || (!s.present && !s.index))
                continue;
            if (!s.index)
                s.index = next_index++;
            if (!s.wanted)
                continue;
            told.push_back(told_by(s, s.answered ? std::move(s.said) : answer{}));
            told.back().printed.insert(0, std::exchange(s.greeting.printed, {}));
        }
        std::sort(told.begin(), told.end(), [](const answer &a, const answer &b) { return a.index < b.index; });
    }

    answers so_far() const
    {
        answers known;
        for (const seat &s : seats) {
            if (s.wanted && s.index)
                known.push_back(told_by(s, s.answered ? s.said : answer{}));
        }
        std::sort(known.begin(), known.end(), [](const answer &a, const answer &b) { return a.index < b.index; });
        return known;
    }

    answer told_by(const seat &s, answer one) const
    {
        one.state = s.answered ? gpu_state::ok : s.state;
        if (!s.answered && one.state == gpu_state::ok) { // the round was cut short
            one.state = gpu_state::stuck;
            one.detail = "not waited for";
        }
        one.index = *s.index;
        if (!wanted.out_of_band || !s.greeting.driverless)
            one.card = s.number;
        one.driverless = s.greeting.driverless;
        one.bus_id = s.link_bus_id.empty() ? s.greeting.bus_id : s.link_bus_id;
        if (one.state != gpu_state::ok) {
            if (one.detail.empty())
                one.detail = s.detail;
            one.since = s.state == gpu_state::ok ? std::chrono::system_clock::now() : s.since;
            std::fill(one.values.begin(), one.values.end(), value(missing{reason_of(one.state)}));
        }
        for (const field *known : pick<"model", "name", "uuid">()) {
            value &held = one.values[index_of(*known)];
            if (!is_present(held) && is_present(s.greeting[*known]))
                held = s.greeting[*known];
        }
        one.values[index_of(field_of("index"))] = std::uint64_t{one.index};
        one.values[index_of(field_of("card"))] =
            one.card ? value(std::uint64_t{*one.card}) : value(missing{reason::driverless});
        one.values[index_of(field_of("state"))] = std::string(name_of(one.state));
        one.values[index_of(field_of("bus_id"))] = one.bus_id.empty() ? value(missing{}) : value(one.bus_id);
        return one;
    }

    std::optional<clock::time_point> due() const
    {
        constexpr auto reaping = milliseconds(10),
                       waiting = milliseconds(500); // those that can die, and those that hang
        auto first = clock::time_point::max();
        if (running)
            first = deadline;
        for (const seat &s : seats) {
            first = std::min(first, s.kill_at);
            if (s.alive == life::dying)
                first = std::min(first, clock::now() + (s.is_unkillable ? waiting : reaping));
        }
        return first == clock::time_point::max() ? std::nullopt : std::optional(first);
    }

    static constexpr std::uint64_t trial_number = UINT64_MAX;
};

reader_pool::reader_pool(pool_options wanted) : self_(std::make_unique<state>(state{.wanted = wanted})) {}

reader_pool::~reader_pool()
{
    for (seat &s : self_->seats)
        s.end();
    // Those that can die do so within a moment; nobody waits for the others.
    for (int look = 0; look < 200; ++look) {
        bool all = true;
        for (seat &s : self_->seats)
            all &= s.reap() || s.alive == life::none;
        if (all)
            break;
        poll(nullptr, 0, 1);
    }
    close(self_->events);
}

void reader_pool::begin(const request &asked, const std::vector<unsigned> &only)
{
    self_->begin(asked, self_->wanted.deadline, only);
}

void reader_pool::begin(const request &asked, milliseconds deadline, const std::vector<unsigned> &only)
{
    self_->begin(asked, deadline, only);
}

bool reader_pool::advance()
{
    self_->service();
    if (self_->running)
        self_->finish_if_over();
    return !self_->running;
}

bool reader_pool::is_over() const
{
    return !self_->running;
}

const answers &reader_pool::result() const
{
    return self_->told;
}

answers reader_pool::so_far() const
{
    return is_over() ? self_->told : self_->so_far();
}

int reader_pool::descriptor() const
{
    return self_->events;
}

std::optional<clock::time_point> reader_pool::due() const
{
    return self_->due();
}

answers reader_pool::round(const request &asked, const std::vector<unsigned> &only, int stop)
{
    begin(asked, only);
    while (!is_over()) {
        pollfd watched[] = {{self_->events, POLLIN, 0}, {stop, POLLIN, 0}};
        const auto left = due().value_or(clock::now()) - clock::now();
        const auto until = std::chrono::ceil<milliseconds>(std::max<clock::duration>(left, clock::duration::zero()));
        poll(watched, stop < 0 ? 1 : 2, static_cast<int>(until.count()));
        if ((watched[1].revents & (POLLIN | POLLHUP | POLLERR)) != 0)
            self_->finish();
        else
            advance();
    }
    return result();
}

} // namespace readings
