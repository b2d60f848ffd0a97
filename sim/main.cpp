// SPDX-License-Identifier: Apache-2.0
// veksim: runs a command on a simulated GPU host.
#include "driver_model.h"
#include "tree_check.h"

#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <memory>
#include <optional>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int exit_usage = 1;
constexpr int exit_not_executable = 126;
constexpr int exit_not_found = 127;
constexpr int most_gpus = 16;

constexpr const char *usage =
    "usage: veksim [--gpus N] [--no-driver] [--still | --distinct] [--tree DIR [--trust-tree]] [--keep] -- COMMAND "
    "[ARGUMENT...]\n"
    "\n"
    "Runs COMMAND on a simulated host with GPUs and removes the host afterwards.\n"
    "\n"
    "  --gpus N      number of GPUs, 0 to 16 (default 2)\n"
    "  --no-driver   the kernel driver is not loaded: PCI devices and their firmware only\n"
    "  --still       readings stay as they are; what COMMAND writes is still taken up\n"
    "  --distinct    no two numbers of a GPU are equal, nor the same reading of two GPUs; nothing moves\n"
    "  --tree DIR    build the host in DIR and keep it; a DIR that holds a host is used as it is\n"
    "  --trust-tree  let programs and libraries in DIR run, and links lead out of it\n"
    "  --keep        keep the host and say where it is\n"
    "  --help        show this text\n";

struct options {
    int gpus = 2;
    bool driver = true;
    bool still = false;
    bool distinct = false;
    bool keep = false;
    bool trust = false;
    fs::path tree;
    std::vector<char *> command;
};

int complain(const std::string &what)
{
    std::fprintf(stderr, "veksim: %s\n", what.c_str());
    return exit_usage;
}

std::optional<int> gpu_number(const char *text)
{
    char *end = nullptr;
    long value = std::strtol(text, &end, 10);
    bool valid = end != text && *end == '\0' && value >= 0 && value <= most_gpus;
    return valid ? std::optional<int>(static_cast<int>(value)) : std::nullopt;
}

// The exit status when there is nothing to run.
std::optional<int> parse(int argc, char **argv, options &wanted)
{
    enum { gpus = 1, no_driver, still, distinct, tree, trust_tree, keep, help };
    static const struct option names[] = {
        {"gpus", required_argument, nullptr, gpus},
        {"no-driver", no_argument, nullptr, no_driver},
        {"still", no_argument, nullptr, still},
        {"distinct", no_argument, nullptr, distinct},
        {"tree", required_argument, nullptr, tree},
        {"trust-tree", no_argument, nullptr, trust_tree},
        {"keep", no_argument, nullptr, keep},
        {"help", no_argument, nullptr, help},
        {nullptr, 0, nullptr, 0},
    };
    opterr = 0;
    for (int option = 0; (option = getopt_long(argc, argv, "+:", names, nullptr)) != -1;) {
        switch (option) {
        case gpus: {
            auto number = gpu_number(optarg);
            if (!number)
                return complain(std::string("--gpus takes a number from 0 to 16, not \"") + optarg + "\"");
            wanted.gpus = *number;
            break;
        }
        case no_driver:
            wanted.driver = false;
            break;
        case still:
            wanted.still = true;
            break;
        case distinct:
            wanted.distinct = true;
            break;
        case tree:
            wanted.tree = optarg;
            break;
        case trust_tree:
            wanted.trust = true;
            break;
        case keep:
            wanted.keep = true;
            break;
        case help:
            std::fputs(usage, stdout);
            return 0;
        case ':':
            return complain(std::string(argv[optind - 1]) + " needs a value");
        default:
            return complain(std::string("unknown option ") + argv[optind - 1]);
        }
    }
    if (optind >= argc) {
        std::fputs(usage, stderr);
        return exit_usage;
    }
    wanted.command.assign(argv + optind, argv + argc);
    return std::nullopt;
}

// This program's own place: the build tree's bin beside lib, or an installation's.
std::vector<fs::path> library_folders()
{
    std::error_code ignored;
    fs::path prefix = fs::read_symlink("/proc/self/exe", ignored).parent_path().parent_path();
    std::vector<fs::path> folders = {prefix / "lib", prefix / "lib/veksim", prefix / "lib64/veksim"};
    for (const auto &entry : fs::directory_iterator(prefix / "lib", ignored))
        folders.push_back(entry.path() / "veksim");
    return folders;
}

fs::path find_library(const char *name)
{
    for (const fs::path &folder : library_folders()) {
        std::error_code ignored;
        if (fs::exists(folder / name, ignored))
            return folder / name;
    }
    return {};
}

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

const signal_set &watched_signals()
{
    static const signal_set set{SIGCHLD, SIGTERM, SIGHUP};
    return set;
}

// Signals that end this program wait while it builds, so that what it has built goes with it.
struct interrupted {
    int signal;
};

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

std::unique_ptr<veksim::host_tree> build_host(const options &wanted)
{
    auto host = std::make_unique<veksim::host_tree>(wanted.tree);
    for (int i = 0; i < wanted.gpus; ++i) {
        end_if_interrupted();
        const veksim::gpu_config config = wanted.distinct ? veksim::distinct_gpu(i) : veksim::sample_gpu(i);
        const veksim::gpu_state state = wanted.distinct ? veksim::distinct_state(i) : veksim::gpu_state();
        if (wanted.driver)
            host->add_gpu(config, state);
        else
            host->add_bare_gpu(config, state);
    }
    if (wanted.distinct)
        host->set_video_state(veksim::distinct_video());
    host->add_video_libraries(!find_library("vekgpu_drv_video.so").empty());
    return host;
}

bool is_to_be_built(const fs::path &directory)
{
    std::error_code ignored;
    return !fs::exists(directory) || fs::is_empty(directory, ignored);
}

// Why the tree at DIRECTORY cannot be used as it is; empty when it can.
std::string objection(const fs::path &directory, bool trusted)
{
    if (!fs::is_directory(directory / "host"))
        return "holds something else than a host";
    char what[PATH_MAX];
    if (trusted || veksim::tree_is_data(directory.c_str(), what, sizeof what))
        return "";
    return std::string(what) + "; --trust-tree uses the tree all the same";
}

// The command, behind the emulator that a cross-built one needs. Only the command itself may load the
// interposer then, not the emulator, which is of the other architecture.
std::vector<std::string> prepare_command(const options &wanted, const fs::path &tree, const fs::path &interposer)
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
    std::vector<char *> argv;
    argv.reserve(command.size() + 1);
    for (const std::string &word : command)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
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

// Waits for the command. What it writes is answered within 20 ms; the readings move ten times a second.
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

int run(const options &wanted)
{
    fs::path interposer = find_library("libveksim.so");
    if (interposer.empty())
        return complain("libveksim.so is not where this program was installed");
    std::unique_ptr<veksim::host_tree> host;
    std::unique_ptr<veksim::driver_model> model;
    fs::path tree = wanted.tree;
    hold_signals();
    if (tree.empty() || is_to_be_built(tree)) {
        host = build_host(wanted);
        if (!wanted.distinct)
            model = std::make_unique<veksim::driver_model>(*host);
        end_if_interrupted();
        if (wanted.keep || !tree.empty())
            host->keep();
        tree = host->root();
        if (wanted.keep)
            std::fprintf(stderr, "veksim: the host stays in %s\n", tree.c_str());
    } else {
        const std::string why_not = objection(tree, wanted.trust);
        if (!why_not.empty())
            return complain(tree.string() + ": " + why_not);
    }
    std::vector<std::string> command = prepare_command(wanted, fs::canonical(tree), interposer);
    end_if_interrupted();

    // Ctrl-C reaches the command through the terminal; this program stays to clear up after it.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGQUIT, SIG_IGN);
    pid_t pid = -1;
    int error = spawn(command, &pid);
    if (error != 0) {
        std::fprintf(stderr, "veksim: %s: %s\n", command.front().c_str(), std::strerror(error));
        return error == ENOENT ? exit_not_found : exit_not_executable;
    }
    return attend(pid, model, wanted.still);
}

} // namespace

int main(int argc, char **argv)
{
    options wanted;
    if (auto status = parse(argc, argv, wanted))
        return *status;
    try {
        return run(wanted);
    } catch (const interrupted &end) {
        return end_by(end.signal);
    } catch (const std::exception &error) {
        return complain(error.what());
    }
}
