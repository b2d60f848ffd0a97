// SPDX-License-Identifier: Apache-2.0
// The client as a person or a script meets it: a program that is run on a host.
#include "client_host.h"
#include "host_files.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <pwd.h>
#include <regex>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using client_test = client_host;

TEST_F(client_test, helps_without_a_gpu_and_without_a_driver)
{
    host.remove("/sys/class/drm");
    for (const char *command :
         {"list", "version", "help -h", "help help", "help fan", "help thermal set", "query --help-fields"}) {
        const run_result result = veksmi(command);
        EXPECT_EQ(result.status, 0) << command;
        for (const std::string &line : lines(result.out))
            EXPECT_LE(line.size(), 80U) << line;
    }
    EXPECT_EQ(veksmi("--version").out, veksmi("version").out);
    EXPECT_EQ(veksmi("help").out, veksmi("--help").out);
    host.remove("/tmp/smi.log");
    EXPECT_EQ(veksmi("--complete fan set m").status, 0);
    EXPECT_FALSE(host.exists("/tmp/smi.log"));
}

TEST_F(client_test, wrong_usage_is_one_line_and_1)
{
    add_gpus(2);
    const std::string wrong = R"(nonsense;list set 1;-i 2;-i 0000:09:00.0;-i 0x;-i --format csv;-i 0, list;-i ,0 list;
        -i 1-0 list;-i 2-3 list;-i 0,7 list;-i 03:00.1 list;-i 1-- list;query --fields '';query --fields ,;
        query --fields temperature,nonsense;--deadline 0.009;--deadline 3601;--deadline nan;--deadline 1s;--deadline -1;
        monitor -n 0;monitor -c 1 -n 0.009;monitor -c 1 -n 86401;monitor -c 1 -n inf;monitor -c '';monitor -c 1.5;
        monitor -c -1;monitor -c 99999999999999999999;top --once -n 0.09;top --once -n 3601;ps --sort name;
        help nonsense;help list set;help fan set 1;fan set nonsense 1;dvfs set 1)"; // with two GPUs, it takes -i
    for (const std::string &arguments : lines(wrong, ';')) {
        const run_result result = veksmi(arguments);
        EXPECT_EQ(result.status, 1) << arguments;
        EXPECT_EQ(result.out, "") << arguments;
        EXPECT_EQ(result.err.rfind("veksmi: ", 0), 0U) << arguments << "\n" << result.err;
        EXPECT_EQ(lines(result.err).size(), 1U) << result.err;
    }
}

TEST_F(client_test, processes_of_all_gpus_by_memory)
{
    const std::string me = getpwuid(static_cast<uid_t>(syscall(SYS_geteuid)))->pw_name; // whose the tree is
    add_gpus(2);
    host.set_processes(0, {{101, "small", 10, 20}, {102, "large", 3000, 3001}});
    host.set_processes(1, {{103, "middle", 500, 600}});
    EXPECT_EQ(veksmi("ps --format csv").out, "index,pid,name,memory,memory_total,user,command,unit\n"
                                             "0,102,large,3000,3001," +
                                                 me + ",,\n1,103,middle,500,600," + me + ",,\n0,101,small,10,20," + me +
                                                 ",,\n");
    EXPECT_NE(veksmi("").out.find("  500 B       600 B  middle  N/A   N/A\n"), std::string::npos);
    host.remove(host.card(1, "device/gpu_mem_util_info"));
    host.fail_request(1, veksim::process_request, EBUSY);
    EXPECT_EQ(document("ps --format json", 255)["gpus"][1]["processes"], nullptr);
}

TEST_F(client_test, setters_write_and_say_so)
{
    host.add_gpu(veksim::sample_gpu(1));
    host.add_gpu(veksim::sample_gpu(0));
    // Arguments; node in the hwmon directory and what it holds then; pauses.
    for (const auto &[arguments, node, text, pauses] : std::vector<std::array<std::string, 4>>{
             {"-i 1 fan set fan 060", "fan1_target", "60", ""},
             {"-i 0 fan set pwm 3000", "pwm1", "3000", ""},
             {"fan reset -i 0", "fan1_ctrl_mode", "0", ""},
             {"temp -i 0 set max 95", "temp1_max", "95", "sleep 1,sleep 3,sleep 3"},
             {"-i 0 temp set min -5", "temp1_min", "-5", "sleep 1,sleep 3,sleep 3"},
             {"-i 0 temp set crit 9999 --yes", "temp1_crit", "9999", "sleep 1,sleep 3,sleep 3"},
             {"-i 0 temp set ctrl 0", "temp1_ctrl_mode", "0", ""},
             {"-i 0 power set cap 19999 --yes", "power1_cap", "19999", ""},
             {"-i 0 power set volt 900", "in0_input", "900", "usleep 500000"},
             {"-i 0000:03:00.0 clock set gfx 900000000", "vek_gfx_freq_mhz", "900000000", ""},
             {"-i 0 thermal set slowdown 90", "vek_slowdown_temp", "90", "sleep 1"},
             {"-i 0 thermal set shutdown 110", "vek_shutdown_temp", "110", "sleep 1"},
             {"-i 0 thermal set enable-slowdown 0 --yes", "vek_enable_thm_slowdown", "0", "sleep 1"},
             {"-i 0 thermal set enable-shutdown 0 --yes", "vek_enable_thm_shutdown", "0", "sleep 1"},
             {"-i 0 dvfs set 0", "../../drm/card0/vek_enable_dvfs", "0", "sleep 1"}}) {
        host.remove("/host/pauses");
        host.instant_pauses();
        const run_result result = veksmi(arguments);
        EXPECT_EQ(result.status, 0) << arguments << "\n" << result.err;
        EXPECT_EQ(host.read(host.hwmon(arguments.rfind("-i 1", 0) == 0 ? 1 : 0, node)), text) << arguments;
        EXPECT_EQ(host.pauses(), lines(pauses, ',')) << arguments;
        EXPECT_EQ(result.out.find(" blocks for ") != std::string::npos, !pauses.empty()) << result.out;
        EXPECT_NE(result.out.find(" to " + text), std::string::npos) << result.out;
    }
}

TEST_F(client_test, setters_refuse_what_would_not_be_written)
{
    host.add_gpu(veksim::sample_gpu(1));
    host.instant_pauses();
    const std::string wrong = R"(fan set fan 101;fan set fan -1;fan set pwm 1949;fan set pwm 5999;fan set mode 2;
        temp set max 10000;temp set ctrl 2;power set cap 0;power set cap 20000;power set volt 0;dvfs set 2;
        clock set gfx 900000001;clock set gfx 1550000000;thermal set slowdown hot;thermal set enable-slowdown 2;
        dvfs set 1 --format csv;dvfs set 99999999999999999999)";
    for (const std::string &arguments : lines(wrong, ';')) {
        const run_result result = veksmi(arguments);
        EXPECT_EQ(result.status, 1) << arguments;
        EXPECT_EQ(lines(result.err).size(), 1U) << result.err;
    }
    EXPECT_EQ(host.read(host.hwmon(0, "pwm1")), "3200\n");
    EXPECT_EQ(host.pauses(), std::vector<std::string>{});

    EXPECT_EQ(veksmi("fan set fan 60").status, 255) << "a PWM fan has no target";
    host.fail_writes(host.hwmon(0, "vek_slowdown_temp"));
    const run_result failed = veksmi("thermal set slowdown 90");
    EXPECT_EQ(failed.status, 255);
    EXPECT_EQ(failed.out.find(" to 90"), std::string::npos) << failed.out;
    host.fail_writes(host.hwmon(0, "temp1_ctrl_mode"));
    EXPECT_EQ(veksmi("temp set ctrl 0").status, 255) << "the library takes this one for done";
    host.set_euid(1000);
    const run_result refused = veksmi("temp set max 90");
    EXPECT_EQ(refused.status, 4);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, "veksmi: GPU 0: the upper temperature limit was not set: Permission denied! set temper crit "
                           "failed\n");
}

TEST_F(client_test, the_manual_has_every_field)
{
    // As tbl and a terminal show it: without the marks around what is filled.
    std::string manual = std::regex_replace(slurp(VEKSMI_MANUAL), std::regex("T\\{\n|\nT\\}"), "");
    manual = std::regex_replace(manual, std::regex("\\\\\\(de"), "°");
    std::replace(manual.begin(), manual.end(), '\n', ' ');
    const std::vector<std::string> fields = lines(veksmi("query --help-fields --format csv").out);
    for (auto line = fields.begin() + 1; line != fields.end(); ++line) {
        std::string row = " " + *line + " ";
        row.replace(row.find(','), 1, "|").replace(row.find(','), 1, "|");
        row.erase(std::remove(row.begin(), row.end(), '"'), row.end());
        EXPECT_NE(manual.find(row), manual.npos) << row;
    }
}

TEST_F(client_test, a_reader_may_go_away)
{
    if (*EMULATOR != '\0')
        GTEST_SKIP() << "a shell of this machine cannot start a program of the other";
    host.add_gpu();
    const std::string client = VEKSMI_PATH;
    const auto begun = std::chrono::steady_clock::now();
    const run_result piped =
        run_on_host({"/bin/sh", "-c", "{ " + client + " monitor -n 30; echo $? >&2; } | head -n 1"});
    EXPECT_EQ(piped.err, "0\n");
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(20)) << "it waited to find out";
    const run_result full = run_on_host({"/bin/sh", "-c", client + " list > /dev/full"});
    EXPECT_EQ(full.status, 255);
    EXPECT_EQ(full.err, "veksmi: cannot write: No space left on device\n");
}

} // namespace
