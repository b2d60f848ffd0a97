// SPDX-License-Identifier: Apache-2.0
// What the client offers to a shell for the last word of a line.
#include "client_host.h"

#include <array>

namespace {

// Some seconds under sanitizers: a start of the client for each line.
class completion_test : public client_host {
protected:
    // The candidates, without their descriptions.
    std::string offered(const std::string &line)
    {
        std::vector<std::string> command = lines(line + " ", ' '); // which may end in an empty word
        command.insert(command.begin(), {VEKSMI_PATH, "--complete"});
        const run_result result = run_on_host(command);
        EXPECT_EQ(result.status, 0) << line << "\n" << result.err;
        std::vector<std::string> all;
        for (const std::string &candidate : lines(result.out))
            all.push_back(candidate.substr(0, candidate.find('\t')));
        return joined(all, " ");
    }
};

TEST_F(completion_test, follows_the_line_to_its_last_word)
{
    add_gpus(2);
    const std::vector<std::array<std::string, 2>> cases = {
        {"p", "ps power pcie"},
        {"list", "list"},
        {"fan re", "reset"},
        {"--he", "--help"},
        {"--comp", ""},
        {"--out-of-band q", "query"},
        {"-i 1 --format csv mon", "monitor"},
        {"-i fan", ""}, // the value of -i, no command
        {"-i ", "0 1"},
        {"--gpu=", "--gpu=0 --gpu=1"},
        {"list --format ", "table csv json"},
        {"list --format=c", "--format=csv"},
        {"list ", "--help -h --gpu -i --format --out-of-band --wake --deadline --version"},
        {"monitor --c", "--count"},
        {"monitor -n ", ""},
        {"monitor -n 2 -", "--help -h --fields --interval -n --count -c --until-lost --gpu -i --format --out-of-band "
                           "--wake --deadline --version"},
        {"query --fields uuid,temperature_h", "uuid,temperature_highest"},
        {"query --fields=uuid,temperature_h", "--fields=uuid,temperature_highest"},
        {"fan ", "set reset"},
        {"temp set ", "min max crit ctrl"},
        {"temp set -i 1 cr", "crit"},
        {"temp set ctrl ", "0 1"},
        {"temp set ctrl 1 ", ""},
        {"temp set max ", ""},
        {"dvfs set ", "0 1"},
        {"dvfs set 1 ", ""},
        {"help d", "dvfs"},
        {"help dvfs ", "set"},
        {"help temp set c", "crit ctrl"},
        {"help ps ", ""},
        {"nonsense ", ""},
        {"nonsense li", ""},
    };
    for (const auto &[line, candidates] : cases)
        EXPECT_EQ(offered(line), candidates) << line;
}

TEST_F(completion_test, needs_no_gpu_and_leaves_the_log_alone)
{
    host.remove("/sys/class/drm");
    EXPECT_EQ(offered("fan set m"), "mode");
    EXPECT_FALSE(host.exists("/tmp/smi.log"));
    EXPECT_EQ(offered("-i "), "");
}

} // namespace
