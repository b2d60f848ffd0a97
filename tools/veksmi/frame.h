// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "gpu.h"

#include <stdexcept>
#include <string>
#include <vector>

// What every command stands on: the options, the way out, the GPUs.

constexpr int exit_done = 0;
constexpr int exit_usage = 1;

// Told in one line on standard error; ends the client with exit_usage.
struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum class format { table, csv, json };

struct options {
    std::string gpu; // index or PCI bus id; empty: all of them
    bool out_of_band = false;
    format shape = format::table;
    std::string fields;
    bool list_fields = false;
    double interval = 1;
    long count = 0; // 0: without end
    std::vector<std::string> setting;
};

int exit_status(vekml_return_t result); // the result code where it fits
int status_of(const gpu_list &gpus);    // the first failure, after telling of each
const char *meaning(vekml_return_t result);

using command = int (*)(const options &, gpu_list &);

int show_summary(const options &, gpu_list &);
int list_gpus(const options &, gpu_list &);
int show_info(const options &, gpu_list &);
void check_fields(const options &); // throws usage_error
int query(const options &, gpu_list &);
int help_fields(const options &);
int monitor(const options &, gpu_list &);
int list_processes(const options &, gpu_list &);
int show_temperatures(const options &, gpu_list &);
int show_fan(const options &, gpu_list &);
int show_power(const options &, gpu_list &);
int show_clocks(const options &, gpu_list &);
int show_thermal_limits(const options &, gpu_list &);
int show_dvfs(const options &, gpu_list &);
int show_pcie(const options &, gpu_list &);
int show_video(const options &, gpu_list &);
int show_versions(const options &, gpu_list &);

void check_setting(const char *family, const options &); // throws usage_error
int change_setting(const char *family, const options &, gpu_list &);
std::string settings_help(const char *family); // empty where a family has none

// What a shell may offer for a word of the command line.
struct candidate {
    std::string word;
    std::string description;
};
using candidates = std::vector<candidate>;
candidates next_of_setting(const std::string &family, const std::vector<std::string> &words); // behind "FAMILY set"
