// SPDX-License-Identifier: Apache-2.0
#include "sim_host.h"
#include "build_paths.h"
#include "host_files.h"
#include "text.h"

#include "argument_vector.h"
#include "veksim.h"

#include <algorithm>
#include <cstdio>
#include <pthread.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

// Only where the library's inside is linked in.
namespace vekml {
extern pthread_once_t video_libraries_lookup __attribute__((weak));
}

namespace {

// An unnamed file: takes any amount without a reader at the other end.
class scratch_file {
public:
    scratch_file() : file_(std::tmpfile()) {}
    ~scratch_file() { std::fclose(file_); }
    scratch_file(const scratch_file &) = delete;
    scratch_file &operator=(const scratch_file &) = delete;

    int descriptor() const { return fileno(file_); }
    std::string text() const { return slurp("/proc/self/fd/" + std::to_string(descriptor())); }

private:
    std::FILE *file_;
};

} // namespace

std::vector<log_line> parse_log(const std::string &text)
{
    std::vector<log_line> parsed;
    for (const std::string &line : lines(text)) {
        const std::string tag = "][vekml]";
        std::size_t file = line.rfind("[DBG][", 0) == 0 ? line.find(tag) : std::string::npos;
        if (file == std::string::npos) {
            if (!parsed.empty())
                parsed.back().message += "\n" + line;
            continue;
        }
        file += tag.size();
        std::size_t number = line.find('(', file);
        std::size_t function = line.find(")-<", number) + 3;
        std::size_t message = line.find(">: ", function);
        parsed.push_back(
            {line.substr(file, number - file), line.substr(function, message - function), line.substr(message + 3)});
    }
    return parsed;
}

std::string standard_output(const std::function<void()> &action)
{
    scratch_file captured;
    std::fflush(stdout);
    int kept = dup(STDOUT_FILENO);
    dup2(captured.descriptor(), STDOUT_FILENO);
    action();
    std::fflush(stdout);
    dup2(kept, STDOUT_FILENO);
    close(kept);
    return captured.text();
}

int in_child(const std::function<int()> &action)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(action());
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

run_result run(const std::vector<std::string> &argv, environment settings)
{
    const std::vector<std::string> emulator = lines(EMULATOR, ';');
    if (!emulator.empty()) {
        // A program for the emulated machine must be loaded by the emulator.
        if (const auto preload = settings.extract("LD_PRELOAD"))
            settings["QEMU_SET_ENV"] = "LD_PRELOAD=" + preload.mapped();
        settings.emplace("VEKSIM_EMULATOR", EMULATOR);
    }
    std::vector<std::string> command{"env"};
    for (const auto &[name, value] : settings)
        command.push_back(std::string(name).append("=").append(value));
    command.insert(command.end(), emulator.begin(), emulator.end());
    command.insert(command.end(), argv.begin(), argv.end());

    scratch_file out, err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out.descriptor(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.descriptor(), STDERR_FILENO);
    pid_t pid = -1;
    int error = posix_spawnp(&pid, "env", &actions, nullptr, veksim::argument_vector(command).data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    run_result result;
    int status = 0;
    if (error == 0 && waitpid(pid, &status, 0) == pid)
        result.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    result.out = out.text();
    result.err = err.text();
    return result;
}

sim_host::sim_host()
{
    if (&vekml::video_libraries_lookup != nullptr)
        vekml::video_libraries_lookup = PTHREAD_ONCE_INIT; // as in a new process
    host.set_euid(0);                                      // whoever runs the tests
    veksim_use(host.root().c_str());
}

sim_host::~sim_host()
{
    vekml_shutdown();
    veksim_on_pause(nullptr, nullptr);
    veksim_use(nullptr);
}

void sim_host::add_gpus(int count)
{
    while (count-- > 0)
        host.add_gpu();
}

vekml_device_t sim_host::start(unsigned index)
{
    EXPECT_EQ(vekml_init(), VEKML_SUCCESS);
    vekml_device_t device = nullptr;
    vekml_device_get_handle_by_index(index, &device);
    return device;
}

void sim_host::remove_first_choices()
{
    for (const char *node : {"version", "device/gpu_static_info", "device/gpu_util_info", "device/gpu_mem_util_info"})
        host.remove(host.card(0, node));
}

run_result sim_host::run_on_host(const std::vector<std::string> &argv, environment settings)
{
    settings.emplace("VEKSIM_TREE", host.root().string());
    settings.emplace("LD_PRELOAD", VEKSIM_PRELOAD);
    return run(argv, std::move(settings));
}

std::vector<std::string> sim_host::messages_of(const std::string &function) const
{
    std::vector<std::string> messages;
    for (const log_line &line : log_lines())
        if (line.function == function)
            messages.push_back(line.message);
    return messages;
}

bool sim_host::logged(const std::string &function, const std::string &part) const
{
    std::vector<std::string> messages = messages_of(function);
    return std::any_of(messages.begin(), messages.end(),
                       [&](const std::string &text) { return text.find(part) != std::string::npos; });
}
