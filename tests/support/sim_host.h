// SPDX-License-Identifier: Apache-2.0
// A simulated host for a test case:
//
//     using thermal_test = sim_host;
//
//     TEST_F(thermal_test, slowdown_limit_reaches_the_node) {
//         host.add_gpu();
//         vekml_device_t gpu = start();
//         thm_set set{"90"};
//         EXPECT_EQ(standard_output([&] { vekml_device_set_thermal_info(gpu, &set, 0); }), "");
//         EXPECT_EQ(host.read(host.hwmon(0, "vek_slowdown_temp")), "90");
//         EXPECT_TRUE(logged("vekml_device_set_thermal_info", "thm_type:0"));
//     }
#pragma once

#include "host_tree.h"
#include "vekml.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

// One line of the debug log without its prefix.
struct log_line {
    std::string file;
    std::string function;
    std::string message; // further physical lines of the same message follow after '\n'
};

std::vector<log_line> parse_log(const std::string &text);

// What the process prints on standard output, stdio and descriptor 1 alike, while ACTION runs.
std::string standard_output(const std::function<void()> &action);

// The wait status of a child made by fork() whose exit status ACTION gives.
int in_child(const std::function<int()> &action);

struct run_result {
    int status = -1; // exit status, or 128 + signal
    std::string out;
    std::string err;
};

using environment = std::map<std::string, std::string>;

// Runs a program of this build (under the emulator when there is one) and waits for it.
run_result run(const std::vector<std::string> &argv, environment settings = {});

class sim_host : public ::testing::Test {
protected:
    sim_host();
    ~sim_host() override;

    void add_gpus(int count);

    // Starts the library on the host as it is now and gives the handle at INDEX (null when there is none).
    vekml_device_t start(unsigned index = 0);

    // Leaves the library the driver's requests and debugfs to ask about GPU 0.
    void remove_first_choices();

    // Runs a program of this build with this host beneath it.
    run_result run_on_host(const std::vector<std::string> &argv, environment settings = {});

    std::vector<log_line> log_lines() const { return parse_log(host.log()); }
    std::vector<std::string> messages_of(const std::string &function) const;
    bool logged(const std::string &function, const std::string &part) const; // of a message

    veksim::host_tree host;
};
