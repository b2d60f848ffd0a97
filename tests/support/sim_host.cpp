// SPDX-License-Identifier: Apache-2.0
#include "sim_host.h"
#include "build_paths.h"

#include "veksim.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <pthread.h>
#include <spawn.h>
#include <sstream>
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

    void put(const std::string &text)
    {
        std::fwrite(text.data(), 1, text.size(), file_);
        std::fflush(file_);
        std::rewind(file_);
    }

    std::string take()
    {
        std::string text;
        std::rewind(file_);
        char piece[4096];
        for (std::size_t size = 0; (size = std::fread(piece, 1, sizeof piece, file_)) > 0;)
            text.append(piece, size);
        return text;
    }

private:
    std::FILE *file_;
};

std::vector<char *> pointers(const std::vector<std::string> &texts)
{
    std::vector<char *> list;
    list.reserve(texts.size() + 1);
    for (const std::string &text : texts)
        list.push_back(const_cast<char *>(text.c_str()));
    list.push_back(nullptr);
    return list;
}

std::vector<std::string> merged_environment(const environment &extra)
{
    std::vector<std::string> variables;
    for (char **variable = environ; *variable != nullptr; ++variable) {
        std::string text = *variable;
        if (extra.count(text.substr(0, text.find('='))) == 0)
            variables.push_back(text);
    }
    for (const auto &[name, value] : extra)
        variables.push_back(std::string(name).append("=").append(value));
    return variables;
}

// The emulator's command line; a program for the emulated machine must be loaded by it.
std::vector<std::string> emulator()
{
    std::istringstream words(EMULATOR);
    std::vector<std::string> command;
    for (std::string word; std::getline(words, word, ';');)
        command.push_back(word);
    return command;
}

} // namespace

std::vector<log_line> parse_log(const std::string &text)
{
    std::vector<log_line> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        const std::string tag = "][vekml]";
        std::size_t file = line.rfind("[DBG][", 0) == 0 ? line.find(tag) : std::string::npos;
        if (file == std::string::npos) {
            if (!lines.empty())
                lines.back().message += "\n" + line;
            continue;
        }
        file += tag.size();
        std::size_t number = line.find('(', file);
        std::size_t function = line.find(")-<", number) + 3;
        std::size_t message = line.find(">: ", function);
        lines.push_back(
            {line.substr(file, number - file), line.substr(function, message - function), line.substr(message + 3)});
    }
    return lines;
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
    return captured.take();
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

run_result run(std::vector<std::string> argv, const environment &extra, const std::string &input)
{
    std::vector<std::string> command = emulator();
    environment settings = extra;
    if (!command.empty() && settings.count("LD_PRELOAD") != 0) {
        settings["QEMU_SET_ENV"] = "LD_PRELOAD=" + settings["LD_PRELOAD"];
        settings.erase("LD_PRELOAD");
    }
    if (!command.empty())
        settings.emplace("VEKSIM_EMULATOR", EMULATOR);
    command.insert(command.end(), argv.begin(), argv.end());

    scratch_file in, out, err;
    in.put(input);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.descriptor(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out.descriptor(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err.descriptor(), STDERR_FILENO);
    std::vector<std::string> variables = merged_environment(settings);
    pid_t pid = -1;
    int error =
        posix_spawnp(&pid, command[0].c_str(), &actions, nullptr, pointers(command).data(), pointers(variables).data());
    posix_spawn_file_actions_destroy(&actions);
    run_result result;
    int status = 0;
    if (error == 0 && waitpid(pid, &status, 0) == pid)
        result.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    result.out = out.take();
    result.err = err.take();
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

run_result sim_host::run_on_host(std::vector<std::string> argv, environment extra)
{
    extra.emplace("VEKSIM_TREE", host.root().string());
    extra.emplace("LD_PRELOAD", VEKSIM_PRELOAD);
    return run(std::move(argv), extra);
}

std::vector<std::string> sim_host::messages_of(const std::string &function) const
{
    std::vector<std::string> messages;
    for (const log_line &line : log_lines())
        if (line.function == function)
            messages.push_back(line.message);
    return messages;
}

bool sim_host::logged(const std::string &function, const std::string &message) const
{
    std::vector<std::string> messages = messages_of(function);
    return std::any_of(messages.begin(), messages.end(),
                       [&](const std::string &text) { return text.find(message) != std::string::npos; });
}
