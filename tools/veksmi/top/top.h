// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readings/answer.h"
#include "readings/reader_pool.h"

#include <chrono>
#include <optional>
#include <vector>

namespace top {

// Where rounds of readings come from: the readers, or a play of them.
class source {
public:
    using clock = readings::reader_pool::clock;
    virtual ~source() = default;
    virtual void begin(const readings::request &asked, std::chrono::milliseconds deadline) = 0;
    virtual bool advance() = 0; // whether the round is over
    virtual bool is_over() const = 0;
    virtual const readings::answers &result() const = 0;
    virtual int descriptor() const = 0;
    virtual std::optional<clock::time_point> due() const = 0;
    virtual clock::time_point now() const { return clock::now(); }
    virtual std::chrono::system_clock::time_point wall() const { return std::chrono::system_clock::now(); }
};

class pool_source : public source {
public:
    explicit pool_source(readings::reader_pool &pool, std::vector<unsigned> only = {})
        : pool_(pool), only_(std::move(only))
    {}
    void begin(const readings::request &asked, std::chrono::milliseconds deadline) override
    {
        pool_.begin(asked, deadline, only_);
    }
    bool advance() override { return pool_.advance(); }
    bool is_over() const override { return pool_.is_over(); }
    const readings::answers &result() const override { return pool_.result(); }
    int descriptor() const override { return pool_.descriptor(); }
    std::optional<clock::time_point> due() const override { return pool_.due(); }

private:
    readings::reader_pool &pool_;
    std::vector<unsigned> only_;
};

struct options {
    std::optional<std::chrono::milliseconds> interval{}; // else as chosen before
    std::chrono::milliseconds deadline{5000};            // of a round
    bool ascii = false;
    bool once = false; // one screen as text
};

enum class ending {
    done,
    ill,         // a GPU was stuck, crashed or lost; once only
    no_gpu,      // likewise
    no_terminal, // said on standard error
};

// Shows the live screen until a key or a signal ends it. Blocks nothing: a GPU that hangs costs its own place only.
ending run(source &from, const options &wanted);

} // namespace top
