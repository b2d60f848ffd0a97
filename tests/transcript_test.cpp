// SPDX-License-Identifier: Apache-2.0
// What the library writes to its log and hands out in one long session, held against transcript.txt. Support staff search
// logs for these words, so each change of them is to be seen: `./dev transcript` shows it, `--update` records it.
#include "build_paths.h"
#include "support/calls.h"
#include "support/sim_host.h"

#include "vek_smi_utils.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

namespace {

constexpr char log_file[] = "/tmp/smi.log";

using lines = std::vector<std::string>;

// Without what differs from run to run and from machine to machine: time, process, source lines, addresses (no other
// number has more than 32 bits), descriptors, and what libva says of itself.
lines normalised(const std::string &log)
{
    static const std::pair<std::regex, const char *> replacements[] = {
        {std::regex(R"(\[DBG\]\[[^\]]*\]\[vekml\]([^(]*)\([0-9]+\))"), "$1"},
        {std::regex("0x[0-9a-f]{9,}"), "0xADDRESS"},
        {std::regex(R"(\(fd:[0-9]+)"), "(fd:OPEN"}};
    lines kept;
    std::istringstream stream(log);
    for (std::string line; std::getline(stream, line);) {
        for (const auto &[differing, replacement] : replacements)
            line = std::regex_replace(line, differing, replacement);
        if (line.find("libva-info:[") != std::string::npos) {
            while (!line.ends_with(']') && std::getline(stream, line))
                ;
            line = "(libva's own words)";
            if (kept.back() == line)
                continue;
        }
        kept.push_back(line);
    }
    return kept;
}

// The calls that need no node of their own or take more than a record, and some without the record they need.
void ask_for_texts(vekml_device_t gpu)
{
    char text[64] = {}, other[64] = {};
    std::uint32_t low = 0, high = 0;
    for (const std::uint32_t size : {64, 4}) {
        vekml_device_get_driver_release_version(text, size);
        vekml_device_get_gddr_type(gpu, text, size);
        vekml_device_get_device_model(gpu, text, size);
        device_id_to_model(0x4a1f, text, size);
        vekml::decimal_to_hex(0x12345678, text, static_cast<int>(size));
        vekml::version_to_str(0x01020304, text, static_cast<int>(size));
    }
    vekml_device_get_video_decoder_encoder(gpu, text, other);
    vekml_device_get_min_max_fan_speed(gpu, &low, &high);
    vekml_device_get_gddr_width(gpu, &low);
    device_id_to_model_with_size(0xffff, text, sizeof text);
    device_id_to_chip_process(0xffff, &low);
    model_to_device_id_and_chip_process("none", &low, &high);
    parse_device_model("nothing", text, sizeof text);
    for (const vekml_device_t device : {vekml_device_t{}, gpu}) {
        vekml_device_get_chip_process(device, nullptr);
        vekml_device_get_device_model(device, nullptr, 0);
        vekml_device_get_vpu_info(device, nullptr);
        vekml_device_get_vpu_utlz(device, nullptr, nullptr, nullptr, nullptr);
    }
}

class transcript_test : public sim_host {
protected:
    transcript_test()
    {
        setenv("LIBVA_DRIVER_NAME", "another", 1);
        unsetenv("LIBVA_DRIVERS_PATH");
        host.instant_pauses();
    }
    ~transcript_test() override { unsetenv("LIBVA_DRIVER_NAME"); }

    void add_gpus()
    {
        veksim::gpu_config with_pwm;
        with_pwm.fan = veksim::fan_kind::pwm;
        veksim::gpu_state busy;
        busy.processes = {{5000001, "first", 10, 30}, {5000002, "second", 20, 40}, {5000003, "ended", 30, 50}};
        host.add_gpu(with_pwm, busy);
        host.add_gpu();
        veksim::gpu_config distinct = veksim::distinct_gpu(2);
        distinct.fan = veksim::fan_kind::pwm;
        host.add_gpu(distinct, veksim::distinct_state(2));
        host.write(host.card(2, "device/gpu_static_info"),
                   "1 8 4 16 14000000000 7 2 2882400018 18975 1 16908291 65540 1 2 3 4 900000000 1 33\n");
        host.remove("/proc/5000003");
        host.write(host.hwmon(0, "fan1_target"), "50\n");
        host.set_packages("ii  vekgpu-dkms  2.1.0-3  arm64  driver\n");
        host.add_video_libraries();
        host.write("/usr/lib/aarch64-linux-gnu/dri/vekgpu_drv_video.conf",
                   "vendor engines\nprofile 40\nentrypoint 1\n"
                   "profile 6\nentrypoint 1\nattribute 0 0x200101\nentrypoint 6\nattribute 0 0x1\nattribute 5 0x16\n"
                   "profile 8\nentrypoint 1\nattribute 0 0x80000000\nentrypoint 6\nattribute 5 0x80000000\n"
                   "profile 13\nfail 12\nprofile 14\nfail 1\nprofile 15\nentrypoint 1\nfail 12\n"
                   "profile 16\nentrypoint 1\nfail 13\nprofile 17\nentrypoint 1\nfail 1\nentrypoint 7\nfail 1\n");
    }

    void section(const std::string &title, const std::function<void()> &session)
    {
        host.remove(log_file);
        const std::string printed = standard_output(session);
        transcript.push_back("==== " + title + " ====");
        std::ranges::move(normalised(host.log()), std::back_inserter(transcript));
        if (!printed.empty())
            transcript.push_back("---- on standard output ----");
        std::ranges::move(normalised(printed), std::back_inserter(transcript));
    }
    void each_of(const std::string &title, const std::vector<call> &calls)
    {
        lines answers{"---- handed out ----"};
        section(title, [&] {
            for (const call &one : calls)
                if (!std::string_view(one.name).starts_with("query")) // they have sections of their own
                    answers.push_back(answer(one, 0, &calls == &setters ? '\0' : '#'));
        });
        std::ranges::move(answers, std::back_inserter(transcript));
    }
    void ask(const std::string &title, vekml_return_t (*query)(vekml_device_t, vekml_device_query_t *))
    {
        section(title, [&] { query(&globals.devices[0], &record); });
    }

    // The call's result and its record, in which "#" is what it leaves as it was; of large ones the result alone.
    static std::string answer(const call &one, unsigned gpu, char before)
    {
        std::string filled(std::max<std::size_t>(one.size, 1), before);
        std::string line = one.name + (" = " + std::to_string(one.run(&globals.devices[gpu], filled.data()))) + ":";
        if (one.is_text)
            return line + " " + filled.substr(0, filled.find('\0'));
        for (std::size_t at = 0; at < one.size && one.size <= 200; at += 4) {
            std::int32_t number = 0;
            filled.copy(reinterpret_cast<char *>(&number), sizeof number, at);
            line += " " + (number == 0x23232323 ? "#" : std::to_string(number));
        }
        return line;
    }
    // What each call prints and answers for GPU 2.
    void answers(const std::string &title)
    {
        transcript.push_back("==== what is handed out " + title + " ====");
        for (const call &one : readers) {
            std::string line;
            const std::string printed = standard_output([&] { line = answer(one, 2, '#'); });
            std::ranges::move(normalised(printed + line), std::back_inserter(transcript));
        }
    }

    vekml_device_query_t record{};
    lines transcript;
};

TEST_F(transcript_test, the_log_says_what_is_recorded)
{
    add_gpus();
    section("start", [] { vekml_init(); });
    section("handles", [] {
        vekml_device_t gpu = nullptr;
        for (const char *address : {"0000:04:00.0", "0000:ff:00.0", "0000:04"})
            vekml_device_get_handle_by_pci_bus_id(&gpu, address);
    });
    ask("refresh", vekml_device_query_two_parts);
    each_of("readers", readers);
    section("readers without a node", [] { ask_for_texts(&globals.devices[0]); });
    ask("query", vekml_device_query);
    each_of("setters", setters);
    host.set_euid(1000);
    each_of("setters as another user", setters);
    host.set_euid(0);
    section("a fan with a target speed", [] { vekml_device_set_fan1_speed(&globals.devices[1], "60"); });

    record = {};
    section("refresh of another GPU", [&] { vekml_device_query_two_parts(&globals.devices[2], &record); });
    answers("of a healthy GPU");
    lines nodes;
    for (const auto &file : std::filesystem::recursive_directory_iterator(host.path(host.pci_device(2))))
        if (std::filesystem::is_regular_file(file.symlink_status()))
            nodes.push_back("/" + std::filesystem::relative(file, host.root()).string());
    const auto each_node = [&](auto put) { std::ranges::for_each(nodes, put); };
    each_node([&](const std::string &node) { host.write(node, "-0321x\n"); });
    answers("of -0321x");
    each_node([&](const std::string &node) { host.write(node, std::string(100, 'x')); });
    answers("of a hundred x");
    each_node([&](const std::string &node) { host.make_directory(node); });
    answers("where no node can be read");
    each_node([&](const std::string &node) { host.remove(node); });
    answers("where there is no node");

    globals.devices[0].device_id = globals.devices[0].model_device_id = 0xffff;
    section("a board that the tables do not know", [] { ask_for_texts(&globals.devices[0]); });
    remove_first_choices();
    record = {};
    ask("refresh by the fallback path", vekml_device_query_two_parts);
    each_of("readers without the first choices", readers);
    host.fail_request(0, veksim::utilisation_request, EIO);
    host.write("/sys/kernel/debug/vekgpu/status", "nothing of use\n");
    host.write(host.debug_dump(), "nothing of use\n");
    globals.devices[0].vpu_codec_info.valid = 0;
    host.write("/usr/lib/aarch64-linux-gnu/dri/vekgpu_drv_video.conf", "init 1\n");
    each_of("readers without the second choices", readers);
    host.remove("/dev/dri/card0");
    host.set_euid(1000);
    record = {};
    ask("refresh as another user without the card node", vekml_device_query_two_parts);
    host.set_euid(0);
    host.remove("/sys/kernel/debug");
    host.remove(host.card(0));
    each_of("readers of a GPU that has left", readers);
    each_of("setters of a GPU that has left", setters);
    section("end", [] { vekml_shutdown(); });

    host.remove("/sys/bus/pci");
    host.set_modules("");
    host.set_packages("");
    host.add_bare_gpu();
    section("start without the driver", [] { vekml_out_of_band_init(); });
    each_of("readers without the driver", readers_without_driver);
    ask("refresh without the driver", vekml_device_query_by_out_of_band);
    section("end without the driver", [] { vekml_shutdown(); });

    if (std::getenv("VEKML_RECORD_TRANSCRIPT") != nullptr) {
        std::ofstream file(TRANSCRIPT, std::ios::binary);
        std::ranges::copy(transcript, std::ostream_iterator<std::string>(file, "\n"));
        ASSERT_TRUE(file.flush());
    }
    lines recorded;
    std::ifstream file(TRANSCRIPT, std::ios::binary);
    for (std::string line; std::getline(file, line);)
        recorded.push_back(line);
    EXPECT_TRUE(transcript == recorded) << testing::internal::edit_distance::CreateUnifiedDiff(recorded, transcript);
}

} // namespace
