// SPDX-License-Identifier: Apache-2.0
// veksim: runs a command on a simulated GPU host.
#include "command.h"
#include "options.h"
#include "signals.h"

#include "tree_check.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace fs = std::filesystem;

namespace {

constexpr int exit_not_executable = 126;
constexpr int exit_not_found = 127;

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
