// SPDX-License-Identifier: Apache-2.0
#include "signals.h"

void hold_signals()
{
    static const signal_set held{SIGINT, SIGQUIT, SIGCHLD, SIGTERM, SIGHUP};
    sigprocmask(SIG_BLOCK, held.get(), nullptr);
}

void end_if_interrupted()
{
    static const signal_set deadly{SIGINT, SIGQUIT, SIGTERM, SIGHUP};
    static const struct timespec at_once {};
    const int signal = sigtimedwait(deadly.get(), nullptr, &at_once);
    if (signal > 0)
        throw interrupted{signal};
}

int end_by(int signal)
{
    std::signal(signal, SIG_DFL);
    raise(signal);
    const signal_set one{signal};
    sigprocmask(SIG_UNBLOCK, one.get(), nullptr);
    return 128 + signal;
}
