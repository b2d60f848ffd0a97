// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "fields.h"
#include "gpu.h"

#include <charconv>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
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
    field_list fields; // empty: the usual ones
    bool list_fields = false;
    bool version = false; // asked for as an option
    double interval = 1;
    long count = 0; // 0: without end
    std::vector<std::string> setting;
};

// The number that TEXT is from its first character to its last.
template <typename Number>
std::optional<Number> to_number(std::string_view text)
{
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

int exit_status(vekml_return_t result); // the result code where it fits
int status_of(const gpu_list &gpus);    // the first failure, after telling of each
const char *meaning(vekml_return_t result);
const char *hint_without_gpu(const options &); // goes on from "no GPU found"

using action = int (*)(const options &, gpu_list &);

int show_summary(const options &, gpu_list &);
int list_gpus(const options &, gpu_list &);
int show_info(const options &, gpu_list &);
int query(const options &, gpu_list &);
int help_fields();
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
bool has_settings(std::string_view family);
// All that FAMILY sets, or only WHAT; a usage_error where there is no such thing.
std::string settings_help(const std::string &family, const std::string &what);

// What a shell may offer for a word of the command line.
struct candidate {
    std::string word;
    std::string description;
};
using candidates = std::vector<candidate>;
candidates next_of_setting(const std::string &family, const std::vector<std::string> &words); // behind "FAMILY set"
