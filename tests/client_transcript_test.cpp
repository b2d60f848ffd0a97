// SPDX-License-Identifier: Apache-2.0
// What a person sees of the client on some hosts, held against client_transcript.txt. There each command is followed by
// what it prints, on standard error behind "! ", and its exit status in brackets where it is not 0; FIELDS stands for all
// fields, and "% " changes the host. A new case is a new line "$ veksmi ..."; `./dev transcript` shows what has changed,
// `--update` records it.
#include "client_host.h"
#include "host_files.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <set>

namespace {

using veksim::host_tree;

void add_distinct_gpus(host_tree &host)
{
    for (const int position : {0, 1})
        host.add_gpu(veksim::distinct_gpu(position), veksim::distinct_state(position));
    host.add_video_libraries();
    host.set_video_state(veksim::distinct_video());
    host.write(host.card(1, "version"), "1 2 3 4 5 6 7\n");
    host.write(host.hwmon(1, "vek_enable_thm_shutdown"), "0\n");
}

void add_bare_gpus(host_tree &host)
{
    for (const int position : {0, 1})
        host.add_bare_gpu(veksim::distinct_gpu(position), veksim::distinct_state(position));
}

void add_two_gpus(host_tree &host)
{
    for (const int position : {0, 1})
        host.add_gpu(veksim::sample_gpu(position));
    host.remove(host.hwmon(1, "vek_chip_id"));
}

void add_broken_gpu(host_tree &host)
{
    host.add_gpu({.fan_support = false, .power_support = false});
    host.remove(host.hwmon(0, "temp1_input"));
    host.make_directory(host.hwmon(0, "temp1_highest"));
    host.write(host.hwmon(0, "vek_gfx_freq_mhz"), "garbage\n");
    host.write(host.hwmon(0, "vek_ndf_freq_mhz"), "");
    host.remove(host.hwmon(0, "vek_slowdown_temp"));
    for (const char *node : {"device/gpu_util_info", "device/gpu_mem_util_info"})
        host.remove(host.card(0, node));
    for (const auto &request : {veksim::utilisation_request, veksim::process_request})
        host.fail_request(0, request, EBUSY);
    host.add_video_libraries();
    host.remove("/sys/dev/char/226:0"); // a failure that the library has no name for
}

// One for each finding of health, at its threshold and short of it.
void add_ailing_gpus(host_tree &host)
{
    using config = veksim::gpu_config;
    using state = veksim::gpu_state;
    void (*const ails[])(config &, state &) = {
        [](config &, state &s) { s.temperature = 89; },
        [](config &, state &s) { s.temperature = 90; },
        [](config &, state &s) { s.temperature = 95; },
        [](config &, state &s) { s.temperature = 59, s.fan_rpm = 0; },
        [](config &, state &s) { s.temperature = 60, s.fan_rpm = 99; },
        [](config &, state &s) { s.temperature = 60, s.fan_rpm = 100; },
        [](config &, state &s) { s.memory_errors[2][0] = 1, s.memory_errors[0][1] = 2; },
        [](config &, state &s) { s.memory_errors[1][2] = 1, s.aer_totals[0] = 1000; },
        [](config &, state &s) { s.aer_totals[0] = 1001; },
        [](config &, state &s) { s.aer_totals[1] = 1, s.aer_totals[2] = 3; },
        [](config &c, state &) { c.current_link_width = 4; },
        [](config &c, state &) { c.current_link_speed = "8.0 GT/s PCIe"; }, // it idles
        [](config &c, state &s) { c.current_link_speed = "8.0 GT/s PCIe", s.gpu.active = 500000; },
    };
    for (const auto ail : ails) {
        config c;
        state s;
        ail(c, s);
        host.add_gpu(c, s);
    }
}

void add_lost_gpu(host_tree &host)
{
    host.add_gpu();
    host.write(host.card(0, "device/config"), std::string(256, '\xff'));
}

// What "==== " begins with, and what "% " changes.
const std::map<std::string, void (*)(host_tree &)> hosts = {
    {"no GPU", [](host_tree &) {}},
    {"a GPU", [](host_tree &host) { host.add_gpu(); }},
    {"a lost GPU", add_lost_gpu},
    {"a broken GPU without a fan", add_broken_gpu},
    {"GPUs with or without a finding", add_ailing_gpus},
    {"two GPUs", add_two_gpus},
    {"two GPUs without equal readings", add_distinct_gpus},
    {"two GPUs without equal readings and without the driver", add_bare_gpus},
};
const std::map<std::string, void (*)(host_tree &, const std::string &path, const std::string &text)> changes = {
    {"hang", [](host_tree &host, const std::string &path, const std::string &) { host.stick(path); }},
    {"remove", [](host_tree &host, const std::string &path, const std::string &) { host.remove(path); }},
    {"write", [](host_tree &host, const std::string &path, const std::string &text) { host.write(path, text + "\n"); }},
};

// JSON with a line for each key, and no times.
std::string readable(const std::string &text)
{
    static const std::regex key(",(?=[\"{])"), since("since \\d\\d:\\d\\d:\\d\\d"),
        time(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d)");
    const std::string split = text.starts_with('{') ? std::regex_replace(text, key, ",\n") : text;
    return std::regex_replace(std::regex_replace(split, time, "TIME"), since, "since TIME");
}

// Half a minute under sanitizers: the client is started for each command.
class client_transcript_test : public client_host {
protected:
    std::string said(const std::string &command, const host_tree &on)
    {
        const run_result result =
            veksmi(std::regex_replace(command, std::regex("FIELDS"), fields), {{"VEKSIM_TREE", on.root()}});
        std::string text = readable(result.out);
        for (const std::string &line : lines(result.err))
            text += "! " + readable(line) + "\n";
        return result.status == 0 ? text : text + "[" + std::to_string(result.status) + "]\n";
    }

    const std::string fields = [this] {
        std::vector<std::string> keys = lines(veksmi("query --help-fields --format csv").out);
        for (std::string &key : keys)
            key.resize(key.find(','));
        return joined({keys.begin() + 1, keys.end()});
    }();
};

TEST_F(client_transcript_test, the_client_says_what_is_recorded)
{
    std::string session;
    std::unique_ptr<host_tree> on;
    for (const std::string &line : lines(slurp(CLIENT_TRANSCRIPT))) {
        const bool begins = line.starts_with("==== "), changes_it = line.starts_with("% "),
                   asks = line.starts_with("$ ");
        if (begins || changes_it || asks)
            session += line + "\n";
        if (begins) {
            on = std::make_unique<host_tree>();
            on->set_euid(0);
            hosts.at(line.substr(5))(*on);
        } else if (changes_it) {
            const std::vector<std::string> word = words(line + " -");
            changes.at(word[1])(*on, word[2], word[3]);
        } else if (asks) {
            session += said(line.substr(std::strlen("$ veksmi")), *on);
        }
    }
    if (std::getenv("VEKML_RECORD_TRANSCRIPT") != nullptr)
        std::ofstream(CLIENT_TRANSCRIPT) << session;
    EXPECT_EQ(session, slurp(CLIENT_TRANSCRIPT));
}

TEST_F(client_transcript_test, its_readings_tell_fields_apart)
{
    add_distinct_gpus(host);
    const json gpu = document("query -i 1 --format json --fields " + fields)["gpus"][0];
    std::set<json> numbers;
    for (const auto &[key, held] : gpu.items())
        EXPECT_TRUE(!held.is_number() || held < 83 || numbers.insert(held).second) << key;
}

} // namespace
