// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <csignal>
#include <initializer_list>

class signal_set {
public:
    signal_set(std::initializer_list<int> signals)
    {
        sigemptyset(&set_);
        for (int signal : signals)
            sigaddset(&set_, signal);
    }
    const sigset_t *get() const { return &set_; }

private:
    sigset_t set_;
};

// Signals that end this program wait while it builds, so that what it has built goes with it.
struct interrupted {
    int signal;
};

void hold_signals();
void end_if_interrupted(); // throws interrupted
int end_by(int signal);
