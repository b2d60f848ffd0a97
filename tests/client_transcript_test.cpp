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
    {"two GPUs", add_two_gpus},
    {"two GPUs without equal readings", add_distinct_gpus},
    {"two GPUs without equal readings and without the driver", add_bare_gpus},
};
const std::map<std::string, void (*)(host_tree &, const std::string &)> changes = {
    {"remove", [](host_tree &host, const std::string &path) { host.remove(path); }},
    {"hang", [](host_tree &host, const std::string &node) { host.stick(node); }},
    {"user", [](host_tree &host, const std::string &id) { host.set_euid(std::stoi(id)); }},
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
        const bool begins = line.starts_with("==== "), changing = line.starts_with("% "), asks = line.starts_with("$ ");
        if (begins || changing || asks)
            session += line + "\n";
        if (begins) {
            on = std::make_unique<host_tree>();
            on->set_euid(0);
            hosts.at(line.substr(5))(*on);
        } else if (changing) {
            changes.at(words(line)[1])(*on, words(line)[2]);
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
