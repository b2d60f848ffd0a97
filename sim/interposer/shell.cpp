// SPDX-License-Identifier: Apache-2.0
// Commands run through popen see the tree's own lsmod and dpkg. Their shell is an ordinary one: it runs
// without this library, which may be built for another architecture than the shell is.
#include "libc.h"
#include "lock.h"
#include "tree.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace veksim {
namespace {

constexpr std::size_t list_size = PATH_MAX + 32;

struct command {
    FILE *stream;
    pid_t pid;
};
std::array<command, 64> commands{};
pthread_mutex_t commands_guard = PTHREAD_MUTEX_INITIALIZER;

bool remember(FILE *stream, pid_t pid)
{
    const lock held(commands_guard);
    for (command &entry : commands) {
        if (entry.stream == nullptr) {
            entry = {stream, pid};
            return true;
        }
    }
    return false;
}

pid_t forget(FILE *stream)
{
    const lock held(commands_guard);
    for (command &entry : commands) {
        if (entry.stream == stream) {
            entry.stream = nullptr;
            return entry.pid;
        }
    }
    return -1;
}

bool begins(const char *text, const char *prefix)
{
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

// The tree's list NAME as the value of VARIABLE; an empty one instead of what is no plain file.
void put_list(char *buffer, const char *variable, const char *name)
{
    char path[PATH_MAX];
    struct stat info;
    bool plain = tree_path(path, name) && libc::fstatat(AT_FDCWD, path, &info, 0) == 0 && S_ISREG(info.st_mode);
    snprintf(buffer, list_size, "%s=%s", variable, plain ? path : "/dev/null");
}

// The environment without what makes a process part of the simulation, and with the places of the lists; in a trusted
// tree, its commands first. One block: the pointers, then the texts.
char **shell_environment()
{
    std::size_t count = 0;
    while (environ[count] != nullptr)
        ++count;
    const char *old_path = getenv("PATH");
    old_path = old_path != nullptr ? old_path : "/usr/local/bin:/usr/bin:/bin";
    std::size_t pointers = (count + 4) * sizeof(char *);
    std::size_t path_size = PATH_MAX + strlen(old_path) + sizeof "PATH=/host/bin:";
    char *block = static_cast<char *>(malloc(pointers + 2 * list_size + path_size));
    if (block == nullptr)
        return nullptr;
    char **variables = reinterpret_cast<char **>(block);
    char *modules = block + pointers, *packages = modules + list_size, *path = packages + list_size;
    put_list(modules, "VEKSIM_MODULES", "/host/modules");
    put_list(packages, "VEKSIM_PACKAGES", "/host/packages");
    if (tree_is_trusted())
        snprintf(path, path_size, "PATH=%s/host/bin:%s", tree(), old_path);
    else
        snprintf(path, path_size, "PATH=%s", old_path);
    std::size_t kept = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (!begins(environ[i], "LD_PRELOAD=") && !begins(environ[i], "VEKSIM_") && !begins(environ[i], "PATH="))
            variables[kept++] = environ[i];
    }
    variables[kept++] = modules;
    variables[kept++] = packages;
    variables[kept++] = path;
    variables[kept] = nullptr;
    return variables;
}

// TEXT in a shell that has the tree's commands as its own: there are no programs in a tree.
char *with_commands(const char *text)
{
    static constexpr const char commands_of_host[] = "lsmod() { cat \"$VEKSIM_MODULES\"; }\n"
                                                     "dpkg() { [ \"$1\" = -l ] && cat \"$VEKSIM_PACKAGES\"; }\n";
    std::size_t size = sizeof commands_of_host + strlen(text);
    char *script = static_cast<char *>(malloc(size));
    if (script != nullptr)
        snprintf(script, size, "%s%s", commands_of_host, text);
    return script;
}

pid_t spawn_shell(const char *text, int child_end, int child_descriptor)
{
    char **variables = shell_environment();
    char *script = with_commands(text);
    pid_t pid = -1;
    int error = ENOMEM;
    if (variables != nullptr && script != nullptr) {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, child_end, child_descriptor);
        char shell[] = "sh";
        char option[] = "-c";
        char *arguments[] = {shell, option, script, nullptr};
        error = posix_spawn(&pid, "/bin/sh", &actions, nullptr, arguments, variables);
        posix_spawn_file_actions_destroy(&actions);
    }
    free(script);
    free(variables);
    errno = error;
    return error == 0 ? pid : -1;
}

int wait_for(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return status;
}

FILE *open_command(const char *text, const char *mode)
{
    bool reading = strchr(mode, 'r') != nullptr;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return nullptr;
    int ours = reading ? ends[0] : ends[1];
    int theirs = reading ? ends[1] : ends[0];
    pid_t pid = spawn_shell(text, theirs, reading ? STDOUT_FILENO : STDIN_FILENO);
    int saved = errno;
    libc::close(theirs);
    FILE *stream = pid < 0 ? nullptr : fdopen(ours, reading ? "r" : "w");
    if (stream == nullptr) {
        libc::close(ours);
        errno = saved;
    } else if (!remember(stream, pid)) {
        libc::fclose(stream);
        wait_for(pid);
        errno = EMFILE;
        stream = nullptr;
    }
    return stream;
}

} // namespace

extern "C" {

FILE *hook_popen(const char *text, const char *mode)
{
    return tree() == nullptr ? libc::popen(text, mode) : open_command(text, mode);
}
VEKSIM_PUBLISH(popen, hook_popen);

int hook_pclose(FILE *stream)
{
    pid_t pid = forget(stream);
    if (pid < 0)
        return libc::pclose(stream);
    fclose(stream);
    return wait_for(pid);
}
VEKSIM_PUBLISH(pclose, hook_pclose);

} // extern "C"
} // namespace veksim
