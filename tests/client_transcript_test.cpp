// SPDX-License-Identifier: Apache-2.0
// What a person sees of the client, held against client_transcript.txt. There "==== HOST: SUBJECT" begins a session on a
// new host, "% " changes or shows a file of it, "# " remarks; and each command is followed by what it prints, on standard
// error behind "! ", and its exit status in brackets where it is not 0. FIELDS stands for all fields. A new case is a new
// line "$ veksmi ..."; `./dev transcript` shows what has changed, `--update` records it.
#include "client_host.h"
#include "host_files.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <pwd.h>
#include <regex>
#include <sys/syscall.h>
#include <unistd.h>

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

void add_two_fans(host_tree &host)
{
    for (const int position : {1, 0}) // the first has PWM
        host.add_gpu(veksim::sample_gpu(position));
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
    {"a GPU with a PWM fan", [](host_tree &host) { host.add_gpu(veksim::sample_gpu(1)); }},
    {"two GPUs", add_two_gpus},
    {"two fans", add_two_fans},
    {"two GPUs without equal readings", add_distinct_gpus},
    {"two GPUs without equal readings and without the driver", add_bare_gpus},
};
// What "% " does to a path, and what is to be seen then.
using change = std::string (*)(host_tree &, const std::string &path, const std::string &text);
const std::map<std::string, change> changes = {
    {"full", [](auto &host, auto &path, auto &) { return host.fail_writes(path), std::string(); }},
    {"hang", [](auto &host, auto &path, auto &) { return host.stick(path), std::string(); }},
    {"remove", [](auto &host, auto &path, auto &) { return host.remove(path), std::string(); }},
    {"show", [](auto &host, auto &path, auto &) { return host.read(path); }},
    {"write", [](auto &host, auto &path, auto &text) { return host.write(path, text), std::string(); }},
};

// JSON with a line for each key, and neither times nor who runs it.
std::string readable(const std::string &text)
{
    static const std::string me = getpwuid(static_cast<uid_t>(syscall(SYS_geteuid)))->pw_name; // whose the tree is
    static const std::regex key(",(?=[\"{])"), user("([,\"])" + me + "(?=[,\"])"), since("since \\d\\d:\\d\\d:\\d\\d"),
        time(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d)");
    const std::string split = text.starts_with('{') ? std::regex_replace(text, key, ",\n") : text;
    const std::string for_anybody = std::regex_replace(split, user, "$1USER");
    return std::regex_replace(std::regex_replace(for_anybody, time, "TIME"), since, "since TIME");
}

const std::string heading = "==== ";

// Each session of the transcript with its heading.
std::vector<std::string> sessions()
{
    std::vector<std::string> found;
    for (const std::string &line : lines(slurp(CLIENT_TRANSCRIPT))) {
        if (line.starts_with(heading))
            found.emplace_back();
        found.back() += line + "\n";
    }
    return found;
}

// Some seconds under sanitizers: the client is started for each command.
class client_transcript_test : public client_host, public testing::WithParamInterface<std::string> {
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
    std::string played(const std::string &recorded)
    {
        std::string session;
        host_tree on;
        on.set_euid(0);
        for (const std::string &line : lines(recorded)) {
            const bool begins = line.starts_with(heading), asks = line.starts_with("$ "), acts = line.starts_with("% ");
            if (begins || asks || acts || line.starts_with("# "))
                session += line + "\n";
            if (begins) {
                hosts.at(line.substr(heading.size(), line.find(':') - heading.size()))(on);
            } else if (asks) {
                session += said(line.substr(std::strlen("$ veksmi")), on);
            } else if (acts) {
                const std::vector<std::string> word = lines(line + "  ", ' '); // the last may be empty
                for (const std::string &shown : lines(changes.at(word[1])(on, word[2], word[3])))
                    session += shown + "\n";
            }
        }
        return session;
    }

    const std::string fields = all_fields();
};

TEST_P(client_transcript_test, is_recorded)
{
    const std::string session = played(GetParam());
    if (std::getenv("VEKML_RECORD_TRANSCRIPT") != nullptr) {
        std::string all = slurp(CLIENT_TRANSCRIPT);
        std::ofstream(CLIENT_TRANSCRIPT) << all.replace(all.find(GetParam()), GetParam().size(), session);
    } else {
        EXPECT_EQ(session, GetParam());
    }
}

INSTANTIATE_TEST_SUITE_P(on, client_transcript_test, testing::ValuesIn(sessions()), [](const auto &session) {
    const std::string title = session.param.substr(heading.size(), session.param.find('\n') - heading.size());
    return std::regex_replace(title, std::regex("[^A-Za-z0-9]+"), "_");
});

} // namespace
