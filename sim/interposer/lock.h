// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>

namespace veksim {

class lock {
public:
    explicit lock(pthread_mutex_t &guard) : guard_(guard) { pthread_mutex_lock(&guard_); }
    ~lock() { pthread_mutex_unlock(&guard_); }
    lock(const lock &) = delete;
    lock &operator=(const lock &) = delete;

private:
    pthread_mutex_t &guard_;
};

} // namespace veksim
