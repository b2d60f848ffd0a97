// SPDX-License-Identifier: Apache-2.0
#include "collection.h"

#include "log.h"

#include <algorithm>
#include <fmt/format.h>

namespace exporter {
namespace {

using readings::answer;
using readings::gpu_state;

readings::request request_for(const options &wanted)
{
    readings::request asked{.processes = wanted.processes > 0};
    for (const readings::field &f : readings::all_fields) {
        if (f.exported.kind != readings::metric_kind::none)
            asked.fields.push_back(&f);
    }
    return asked;
}

} // namespace

collection::collection(const options &wanted)
    : asked_(request_for(wanted)), pool_({.deadline = wanted.deadline}), latest_(std::make_shared<snapshot>())
{}

void collection::begin()
{
    if (is_running())
        return;
    began_ = clock::now();
    pool_.begin(asked_);
    if (pool_.is_over())
        take_in(pool_.result());
}

void collection::advance()
{
    const bool was_running = is_running();
    if (pool_.advance() && was_running)
        take_in(pool_.result());
}

shared_snapshot collection::so_far()
{
    return is_running() ? snapshot_of(pool_.so_far()) : latest_;
}

shared_snapshot collection::once()
{
    began_ = clock::now();
    take_in(pool_.round(asked_));
    return latest_;
}

void collection::take_in(const readings::answers &said)
{
    bool success = said.empty();
    for (const answer &one : said) {
        gpu_history &history = histories_[one.index];
        if (history.bus_id.empty())
            history.bus_id = label_for(one);
        remember(one, history);
        success |= !is_sick(one.state);
    }
    if (success)
        last_success_ = clock::now();
    latest_ = snapshot_of(said);
}

// Two cards may claim one address, and one may claim none: a page with the same series twice would be refused whole.
std::string collection::label_for(const answer &said) const
{
    std::string card = said.card ? fmt::format("card{}", *said.card) : fmt::format("gpu{}", said.index);
    if (said.bus_id.empty())
        return card;
    const bool is_taken = std::any_of(histories_.begin(), histories_.end(),
                                      [&](const auto &known) { return known.second.bus_id == said.bus_id; });
    return is_taken ? fmt::format("{} {}", said.bus_id, card) : said.bus_id;
}

void collection::remember(const answer &said, gpu_history &history)
{
    if (said.state != history.state) {
        const std::string why = said.state == gpu_state::ok ? "" : ": " + said.detail;
        log_line(fmt::format("GPU {}: {}{}", history.bus_id, name_of(said.state), readings::printable(why)));
    }
    history.state = said.state;
    if (said.state == gpu_state::ok)
        history.last_success = std::chrono::system_clock::now();
    std::vector<std::pair<std::string, std::string>> facts;
    for (const readings::field *f : asked_.fields) {
        const readings::value &held = said[*f];
        if (f->exported.kind == readings::metric_kind::label && is_present(held))
            facts.emplace_back(f->exported.name, text_of(held));
        const readings::missing *why = why_missing(held);
        const auto *const counted =
            std::find(std::begin(error_reasons), std::end(error_reasons), why ? why->why : readings::reason::absent);
        if (said.state == gpu_state::ok && counted != std::end(error_reasons))
            ++history.errors[static_cast<std::size_t>(counted - error_reasons)];
    }
    if (said.state == gpu_state::ok || history.facts.empty())
        history.facts = std::move(facts);
}

shared_snapshot collection::snapshot_of(const readings::answers &said) const
{
    auto made = std::make_shared<snapshot>();
    made->took = clock::now() - began_;
    for (const answer &one : said) {
        const auto history = histories_.find(one.index);
        if (history == histories_.end())
            continue;
        made->gpus.push_back(one);
        made->histories.push_back(history->second);
    }
    return made;
}

} // namespace exporter
