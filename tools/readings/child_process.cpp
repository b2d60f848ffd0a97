// SPDX-License-Identifier: Apache-2.0
#include "child_process.h"

#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace readings::child_process {

void leave(pid_t program, int kept)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != program) // it ended before it could be watched
        _exit(0);
    setsid();
    for (int signal = 1; signal < NSIG; ++signal)
        std::signal(signal, SIG_DFL);
    std::signal(SIGPIPE, SIG_IGN);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (kept != channel)
        dup2(kept, channel);
    const int nothing = open("/dev/null", O_RDWR); // never 0 to 3: each of those may be closed here, so dup2 follows
    for (int file = 0; file < channel; ++file)
        dup2(nothing, file);
    closefrom(channel + 1);
}

} // namespace readings::child_process
