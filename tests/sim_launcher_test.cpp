// SPDX-License-Identifier: Apache-2.0
// veksim as a command.
#include "build_paths.h"
#include "support/host_files.h"
#include "support/sim_host.h"

#include <csignal>
#include <filesystem>
#include <sys/wait.h>

namespace fs = std::filesystem;

namespace {

const environment native{{"VEKSIM_EMULATOR", ""}}; // the commands below belong to the machine we run on

TEST(veksim_launcher, gives_the_commands_status)
{
    struct {
        std::vector<std::string> arguments;
        int status;
    } const cases[] = {
        {{"--", "sh", "-c", "exit 7"}, 7},
        {{"--gpus", "1", "--still", "--", "sh", "-c", "kill -9 $$"}, 128 + 9},
        {{"--no-driver", "--", "true"}, 0},
        {{"--", "/no/such/command"}, 127},
        {{"--gpus", "0", "--", "true"}, 0},
        {{"--gpus", "17", "--", "true"}, 1},
        {{"--unknown"}, 1},
        {{}, 1},
    };
    for (const auto &[arguments, status] : cases) {
        std::vector<std::string> argv{VEKSIM_PATH};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        run_result result = run(argv, native);
        EXPECT_EQ(result.status, status) << ::testing::PrintToString(arguments) << result.err;
        if (EMULATOR[0] == '\0') { // a foreign program complains about what it cannot preload
            EXPECT_EQ(result.err.empty(), status != 1 && status != 127) << result.err;
        }
    }
}

TEST(veksim_launcher, keeps_a_named_tree_and_uses_it_again)
{
    veksim::host_tree scratch;
    const std::string tree = (scratch.root() / "tree").string();
    EXPECT_EQ(run({VEKSIM_PATH, "--tree", tree, "--gpus", "1", "--", "true"}, native).status, 0);
    const std::string node = tree + "/sys/class/drm/card0/vek_product_name";
    std::ofstream(node) << "EDITED\n";
    EXPECT_EQ(run({VEKSIM_PATH, "--tree", tree, "--", "true"}, native).status, 0);
    EXPECT_EQ(slurp(node), "EDITED\n");
}

TEST(veksim_launcher, leaves_nothing_of_a_build_that_ends_early)
{
    if (EMULATOR[0] != '\0')
        GTEST_SKIP() << "the emulator takes the signals";
    veksim::node_tree scratch;
    const std::string place = scratch.path("/t").string(), named = scratch.path("/named").string();
    fs::create_directory(place);
    const std::string tmpdir = "TMPDIR=" + place;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        for (const char *tree : {"", named.c_str()}) {
            const int status = in_child([&] {
                sigset_t waiting;
                sigemptyset(&waiting);
                sigaddset(&waiting, signal);
                sigprocmask(SIG_BLOCK, &waiting, nullptr);
                raise(signal); // and is there when the program starts
                putenv(const_cast<char *>(tmpdir.c_str()));
                return execl(VEKSIM_PATH, "veksim", "--tree", tree, "--", "true", nullptr);
            });
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
            EXPECT_TRUE(fs::is_empty(place));
            EXPECT_FALSE(fs::exists(named));
        }

    const std::string full = "ulimit -f 1; exec \"$0\" \"$@\"";
    EXPECT_NE(run({"sh", "-c", full, VEKSIM_PATH, "--tree", named, "--", "true"}, native).status, 0);
    const run_result again = run({VEKSIM_PATH, "--tree", named, "--gpus", "1", "--", "true"}, native);
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_TRUE(fs::exists(named + "/sys/class/drm/card0/vek_dbdf"));
    EXPECT_EQ(run({VEKSIM_PATH, "--tree", place, "--", "true"}, native).status, 0) << "an empty directory will do";
    const std::string relative = "cd " + place + "/host && exec \"$0\" --tree new/ --gpus 0 -- test -d new/host";
    EXPECT_EQ(run({"sh", "-c", relative, VEKSIM_PATH}, native).status, 0);
    fs::remove_all(place + "/host");
    EXPECT_EQ(run({VEKSIM_PATH, "--tree", place, "--", "true"}, native).status, 1) << "but not one with other files";
}

} // namespace
