// SPDX-License-Identifier: Apache-2.0
#include "history.h"

#include <algorithm>
#include <cmath>

namespace top {
namespace {

samples nothing()
{
    samples empty;
    empty.fill(gap);
    return empty;
}

} // namespace

void history::begin_round(moment at, std::chrono::milliseconds interval)
{
    const moment until = at + 2 * interval + longest_round;
    if (count_ > 0) {
        round &last = rounds_[(count_ - 1) % capacity];
        if (at - last.at < finest - std::min(interval, finest) / 2) {
            last.stands_until = until;
            return;
        }
        last.stands_until = std::min(last.stands_until, at);
    }
    if (rounds_.size() < capacity)
        rounds_.resize(capacity);
    rounds_[count_ % capacity] = {at, until};
    for (auto &[gpu, values] : gpus_)
        values[count_ % capacity] = nothing();
    ++count_;
}

void history::add(unsigned gpu, const samples &values)
{
    auto &all = gpus_[gpu];
    if (all.empty())
        all.assign(capacity, nothing());
    samples &entry = all[(count_ - 1) % capacity];
    for (std::size_t i = 0; i < series_count; ++i)
        entry[i] = std::fmax(entry[i], values[i]); // a gap gives way to any number
}

moment history::newest() const
{
    return count_ == 0 ? moment() : round_at(count_ - 1).at;
}

std::vector<float> history::columns(unsigned gpu, series of, const window &shown) const
{
    std::vector<float> values(shown.columns, gap);
    const auto found = gpus_.find(gpu);
    if (found == gpus_.end())
        return values;
    const moment start = shown.end - shown.columns * shown.column;
    std::vector<bool> has_own(shown.columns, false);
    const auto value_of = [&](std::size_t number) {
        return found->second[number % capacity][static_cast<std::size_t>(of)];
    };
    const auto column_of = [&](moment at) { return static_cast<std::size_t>((at - start) / shown.column); };
    const std::size_t oldest = count_ > capacity ? count_ - capacity : 0;
    std::size_t first = count_;
    while (first > oldest && round_at(first - 1).stands_until > start)
        --first;
    for (std::size_t i = first; i < count_; ++i) {
        const moment at = round_at(i).at;
        if (at < start || at >= shown.end)
            continue;
        const std::size_t column = column_of(at);
        values[column] = has_own[column] ? std::fmax(values[column], value_of(i)) : value_of(i);
        has_own[column] = true;
    }
    // A column without a round of its own shows what stood then.
    for (std::size_t i = first; i < count_; ++i) {
        const moment from = std::max(round_at(i).at, start), until = std::min(round_at(i).stands_until, shown.end);
        for (moment at = from; at < until; at = start + (column_of(at) + 1) * shown.column) {
            if (!has_own[column_of(at)])
                values[column_of(at)] = value_of(i);
        }
    }
    return values;
}

std::size_t history::bytes() const
{
    std::size_t sum = rounds_.capacity() * sizeof(round);
    for (const auto &[gpu, values] : gpus_)
        sum += values.capacity() * sizeof(samples);
    return sum;
}

float highest(const std::vector<float> &values)
{
    float most = gap;
    for (const float value : values)
        most = std::fmax(most, value);
    return most;
}

} // namespace top
