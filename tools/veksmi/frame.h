// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readings/answer.h"
#include "readings/number.h"
#include "vekml.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// What every command stands on: the options, the way out.

using namespace readings; // NOLINT(google-build-using-namespace): the client is one program, and this its vocabulary

constexpr int exit_done = 0;
constexpr int exit_usage = 1;
constexpr int exit_sick = 5; // a GPU was stuck, crashed or lost

// Told in one line on standard error; ends the client with exit_usage.
struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// There is nothing to show; ends the client with the library's code for it.
struct no_gpu_found {};

enum class format { table, csv, json };
enum class process_order { memory, pid, user };

struct options {
    std::string gpu; // a list of indexes, ranges, PCI addresses and UUIDs; empty: all of them
    bool out_of_band = false;
    bool wake = false;
    std::chrono::milliseconds deadline{5000};
    format shape = format::table;
    field_list fields; // empty: the usual ones
    bool list_fields = false;
    bool version = false; // asked for as an option
    double interval = 1;
    bool interval_given = false;
    long count = 0; // 0: without end
    bool until_lost = false;
    bool once = false;
    bool ascii = false;
    std::vector<std::string> setting;
    bool yes = false; // also a value outside the usual range
    process_order order = process_order::memory;
    std::vector<std::string> words; // behind the command
    std::string output;             // of a report
    bool full = false;              // nothing in it is masked
};

// Keys separated by commas. An unknown one is thrown as usage_error.
field_list parse_fields(std::string_view keys);
const field_list &query_fields();                                                    // those of a query that names none
inline constexpr const field &firmware_field = field_of("firmware_memory_size_mib"); // told out of band only

int exit_status(int result);                   // the result code where it fits
int status_of(const answers &gpus);            // the first failure, after telling of each; a sick GPU before all
std::string what_became_of(const answer &gpu); // "stuck since 12:00:01: reading fan_speed"
const char *meaning(int result);
std::string hint_without_gpu(const options &); // goes on from "no GPU found"

class session;
using action = int (*)(const options &, session &);

int show_summary(const options &, session &);
int list_gpus(const options &, session &);
int show_info(const options &, session &);
int query(const options &, session &);
int help_fields(const options &);
int monitor(const options &, session &);
int show_live(const options &, session &);
int list_processes(const options &, session &);
int show_temperatures(const options &, session &);
int show_fan(const options &, session &);
int show_power(const options &, session &);
int show_clocks(const options &, session &);
int show_thermal_limits(const options &, session &);
int show_dvfs(const options &, session &);
int show_pcie(const options &, session &);
int show_video(const options &, session &);
int show_versions(const options &, session &);
int explain_missing(const options &, session &);
int show_health(const options &, session &);
int show_topology(const options &, session &);
int write_report(const options &, session &);

void check_setting(const char *family, const options &); // throws usage_error
int change_setting(const char *family, const options &, session &);
// The value, and what it is set of, that hands FAMILY back to the driver's own control; null where there is none.
const char *reset_of(std::string_view family, const char *&what);
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
