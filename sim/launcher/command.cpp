// SPDX-License-Identifier: Apache-2.0
#include "command.h"

#include "argument_vector.h"
#include "signals.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const signal_set &watched_signals()
{
    static const signal_set set{SIGCHLD, SIGTERM, SIGHUP};
    return set;
}

int exit_status(int status)
{
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// A tree that someone takes apart may end the driver's life, not the command's.
void tick(std::unique_ptr<veksim::driver_model> &model, double seconds)
{
    try {
        if (model != nullptr)
            model->tick(seconds);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "veksim: the driver stops: %s\n", error.what());
        model.reset();
    }
}

} // namespace

// Only the command itself may load the interposer, not its emulator, which is of the other architecture.
std::vector<std::string> prepare_command(const options &wanted, const std::filesystem::path &tree,
                                         const std::filesystem::path &interposer)
{
    std::vector<std::string> command;
    const char *emulator = std::getenv("VEKSIM_EMULATOR");
    std::istringstream words(emulator != nullptr ? emulator : "");
    for (std::string word; words >> word;)
        command.push_back(word);
    const char *loaded = std::getenv("LD_PRELOAD");
    std::string preload =
        loaded != nullptr && *loaded != '\0' ? loaded + (":" + interposer.string()) : interposer.string();
    setenv("VEKSIM_TREE", tree.c_str(), 1);
    setenv("VEKSIM_TREE_CHECKED", tree.c_str(), 1);
    if (wanted.trust)
        setenv("VEKSIM_TRUST_TREE", "1", 1);
    else
        unsetenv("VEKSIM_TRUST_TREE");
    if (command.empty())
        setenv("LD_PRELOAD", preload.c_str(), 1);
    else
        setenv("QEMU_SET_ENV", ("LD_PRELOAD=" + preload).c_str(), 1);
    command.insert(command.end(), wanted.command.begin(), wanted.command.end());
    return command;
}

int spawn(const std::vector<std::string> &command, pid_t *pid)
{
    const std::vector<char *> argv = veksim::argument_vector(command);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    static const signal_set none{};
    static const signal_set restored{SIGINT, SIGQUIT};
    posix_spawnattr_setsigmask(&attributes, none.get());
    posix_spawnattr_setsigdefault(&attributes, restored.get());
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    int error = posix_spawnp(pid, argv[0], nullptr, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    return error;
}

int attend(pid_t pid, std::unique_ptr<veksim::driver_model> &model, bool still)
{
    using clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds period(100);
    const struct timespec nap {
        0, 20000000
    };
    auto last = clock::now();
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        int signal = sigtimedwait(watched_signals().get(), nullptr, &nap);
        if (signal == SIGTERM || signal == SIGHUP)
            kill(pid, signal);
        auto elapsed = clock::now() - last;
        bool due = !still && elapsed >= period;
        tick(model, due ? std::chrono::duration<double>(elapsed).count() : 0);
        if (due)
            last = clock::now();
    }
    tick(model, 0); // what the command wrote last is answered too: the tree may be kept
    return exit_status(status);
}
