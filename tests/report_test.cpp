// SPDX-License-Identifier: Apache-2.0
// A report goes out, and its host comes back.
#include "build_paths.h"
#include "sim_host.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::string content_of(const fs::path &file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// The files below DIRECTORY that hold TEXT, in their names and links' targets as well.
std::vector<std::string> holders_of(const std::string &text, const fs::path &directory)
{
    std::vector<std::string> found;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(directory)) {
        std::string held = fs::relative(entry.path(), directory).string();
        if (entry.is_symlink())
            held += "\n" + fs::read_symlink(entry.path()).string();
        else if (entry.is_regular_file())
            held += "\n" + content_of(entry.path());
        if (held.find(text) != std::string::npos)
            found.push_back(entry.path());
    }
    return found;
}

// Some seconds under sanitizers: each fault starts the launcher and the client, to write and to play back.
class report_test : public sim_host {
protected:
    report_test()
    {
        char name[] = "/tmp/report-test-XXXXXX";
        scratch = mkdtemp(name);
    }
    ~report_test() override { fs::remove_all(scratch); }

    run_result veksmi(const std::string &arguments, const fs::path &tree = {})
    {
        std::istringstream words(arguments);
        std::vector<std::string> command(std::istream_iterator<std::string>(words), {});
        command.insert(command.begin(), VEKSMI_PATH);
        return run_on_host(command, {{"VEKSIM_TREE", tree.empty() ? host.root().string() : tree.string()}});
    }
    // The tree of a report that is made with OPTIONS.
    fs::path unpacked(const std::string &options = "")
    {
        const fs::path file = scratch / "report.tar.gz", where = scratch / ("tree" + std::to_string(++trees));
        const run_result made = veksmi("report -o " + file.string() + " " + options);
        EXPECT_EQ(made.status, 0) << made.err;
        told = made.out;
        fs::create_directory(where);
        EXPECT_EQ(std::system(("tar -C " + where.string() + " -xf " + file.string()).c_str()), 0);
        return where / "veksmi-report";
    }
    void expect_play_back(const fs::path &tree, const std::string &options = "")
    {
        const std::string replayed = veksmi("query --format json " + options, tree).out;
        EXPECT_EQ(replayed, content_of(tree / "report.json"));
        EXPECT_TRUE(json::accept(replayed));
    }

    fs::path scratch;
    std::string told;
    int trees = 0;
};

TEST_F(report_test, the_host_plays_back_with_its_faults)
{
    host.add_gpu(veksim::sample_gpu(0));
    host.add_gpu(veksim::sample_gpu(1));
    host.set_processes(0, {{5000001, "first", 1000, 3000}, {5000002, "second", 2000, 4000}});
    host.write("/proc/5000001/cmdline", std::string("first\0--of=all", 14));
    const fs::path whole = unpacked("--full");
    expect_play_back(whole);
    for (const char *command : {"list", "info", "query", "ps", "temp", "fan", "power", "clock", "thermal", "dvfs",
                                "pcie", "version", "topology", "health"}) {
        const std::string asked = std::string(command) + " --format json";
        EXPECT_EQ(veksmi(asked, whole).out, veksmi(asked).out);
    }
    EXPECT_NE(veksmi("ps --format json", whole).out.find("--of=all"), std::string::npos);
    expect_play_back(unpacked());

    host.write("/etc/vekgpu/units.conf", "power = milliwatt # of wombat\nclock=hertz\nvoltage = millivolt\n");
    const fs::path scaled = unpacked();
    expect_play_back(scaled);
    EXPECT_EQ(content_of(scaled / "etc/vekgpu/units.conf"), "power = milliwatt \nclock=hertz\nvoltage = millivolt\n");
    EXPECT_EQ(json::parse(content_of(scaled / "report.json"))["gpus"][0]["power"], 0.021);
    host.write("/etc/vekgpu/units.conf", "wombat = milliwatt\n");
    EXPECT_FALSE(fs::exists(unpacked() / "etc")) << "it was not understood, and so not used";
    host.remove("/etc");

    host.fail(host.hwmon(0, "temp1_input"), EACCES);
    host.fail_reads(host.hwmon(0, "fan1_input"), EIO);
    host.remove(host.card(0, "device/gpu_util_info"));
    host.fail_request(0, veksim::utilisation_request, EBUSY);
    host.write(host.hwmon(1, "in0_input"), "garbage\n");
    host.remove(host.hwmon(1, "power1_average"));
    host.set_mode(host.hwmon(1, "power1_cap"), 0444);
    host.set_euid(1000);
    const fs::path broken = unpacked();
    expect_play_back(broken);
    EXPECT_EQ(veksmi("why --format json", broken).out, veksmi("why --format json").out);
    const std::string about = content_of(broken / "report.txt");
    EXPECT_NE(about.find("hwmon1/fan1_input: Input/output error\n"), std::string::npos) << about;
    EXPECT_EQ(access((broken / host.hwmon(1, "power1_cap").substr(1)).c_str(), F_OK), 0);
    EXPECT_EQ(fs::status(broken / host.hwmon(1, "power1_cap").substr(1)).permissions() & fs::perms::owner_write,
              fs::perms::none);
}

TEST_F(report_test, a_masked_report_names_neither_chip_nor_person)
{
    veksim::gpu_config config;
    config.chip_id = 0x9b7f3a52;
    config.static_text = "SN-PLANTED-7";
    host.add_gpu(config);
    config.chip_id = 0x1c0ffee5;
    host.add_gpu(config);
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    const std::string computer = std::strlen(name) < 6 ? "planted-computer" : name;
    host.set_processes(0, {{5000001, "quokka", 1000, 3000}});
    host.write("/proc/5000001/cmdline", std::string("quokka\0--token=hunter2", 22));
    host.write("/proc/5000001/cgroup", "0::/user.slice/wombat.service\n");
    host.write("/proc/5000001/status", host.read("/proc/5000001/status") + "Cpus_allowed:\twombat\n");
    host.write(host.debug_dump(0), host.read(host.debug_dump(0)) + "KM info: 1.10 build by wombat@" + computer +
                                       "\nchip 9b7f3a52 serial 2608806482\nprocess quokka\n");
    host.write("/tmp/smi.log", "wombat@" + computer +
                                   " --token=hunter2\n[DBG][2026-01-01 00:00:00.000001,pid:1][vekml]" +
                                   "src/vek_smi.cpp(1)-<f>: enter wombat\n9b7f3a52\n");
    host.write("/sys/kernel/debug/vpu/xmem", host.read("/sys/kernel/debug/vpu/xmem") + "chip 9b7f3a52\n");
    host.write("/host/packages", host.read("/host/packages") + "ii  wombat-tools 1.0 all tools of wombat\n");
    std::string space = host.read(host.card(0, "device/config"));
    space[0x103] = 0x20; // the next capability is at 0x200: a serial number
    space.replace(0x200, 12, std::string("\x03\0\x01\0SERIALNO", 12));
    host.write(host.card(0, "device/config"), space);

    std::vector<std::string> planted = {"9b7f3a52", "9B7F3A52",   "2608806482",       "-1686160814",
                                        "1c0ffee5", "470810341",  "quokka",           "hunter2",
                                        "SERIALNO", "SN-PLANTED", "\x52\x3a\x7f\x9b", computer};
    const fs::path whole = unpacked("--full");
    for (const char *secret : {"9b7f3a52", "quokka", "hunter2", "wombat", "SERIALNO"})
        EXPECT_FALSE(holders_of(secret, whole).empty()) << secret << " would not be found";
    EXPECT_NE(told.find("Nothing is masked"), std::string::npos);
    EXPECT_NE(content_of(whole / "report.txt").find("Nothing is masked"), std::string::npos);

    host.write("/tmp/smi.log", "wombat@" + computer + " --token=hunter2\n9b7f3a52\n");
    planted.emplace_back("wombat");
    const fs::path tree = unpacked();
    for (const std::string &secret : planted)
        EXPECT_EQ(holders_of(secret, tree), std::vector<std::string>{}) << secret;
    expect_play_back(tree);

    // What the driver tells twice stays the same, and what differed differs.
    const json gpus =
        json::parse(veksmi("query --fields uuid,firmware_version,name,process_count --format json", tree).out)["gpus"];
    EXPECT_NE(gpus[0]["uuid"], gpus[1]["uuid"]);
    EXPECT_EQ(gpus[0]["firmware_version"], "v1.2.3");
    EXPECT_EQ(gpus[0]["process_count"], 1);
    for (unsigned i = 0; i < 2; ++i) {
        const std::string number = std::to_string(std::stoul(gpus[i]["uuid"].get<std::string>(), nullptr, 16));
        const std::string card = "card" + std::to_string(i);
        for (const std::string &place :
             {"sys/class/drm/" + card + "/device/gpu_static_info", "host/requests/" + card + "/C010644B.0",
              "host/requests/" + card + "/C010644C.3"})
            EXPECT_NE(content_of(tree / place).find(" " + number + " "), std::string::npos) << place;
    }
}

TEST_F(report_test, gpus_that_hang_cost_one_deadline)
{
    host.add_gpu();
    host.add_gpu();
    host.add_gpu();
    for (int i = 0; i < 2; ++i) {
        for (const char *node : {"temp1_input", "fan1_input", "vek_fw_ver"})
            host.write("/host/stuck" + host.hwmon(i, node), "");
    }
    host.link(host.request(0, veksim::process_request), "stuck");
    host.link(host.hwmon(1, "power1_average"), "stuck:open");
    const auto begin = std::chrono::steady_clock::now();
    const fs::path tree = unpacked("--deadline 3");
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    EXPECT_LT(taken.count(), 9) << "eight hang";
    expect_play_back(tree, "--deadline 1");
    const json gpus = json::parse(content_of(tree / "report.json"))["gpus"];
    EXPECT_EQ(gpus[0]["state"], "stuck");
    EXPECT_EQ(gpus[2]["temperature"], 48);
    // What stands behind the hanging ones was read, and they hang again.
    EXPECT_EQ(content_of(tree / host.hwmon(0, "vek_ndf_freq_mhz").substr(1)), "500\n");
    EXPECT_TRUE(fs::exists(tree / ("host/stuck" + host.hwmon(0, "vek_fw_ver"))));
    EXPECT_EQ(fs::read_symlink(tree / host.request(0, veksim::process_request).substr(1)), "stuck");
    EXPECT_EQ(fs::read_symlink(tree / host.hwmon(1, "power1_average").substr(1)), "stuck:open");
}

TEST_F(report_test, sleeping_gpus_are_not_woken)
{
    host.add_gpu();
    host.write(host.card(0, "device/power/runtime_status"), "suspended\n");
    const fs::path tree = unpacked();
    expect_play_back(tree);
    EXPECT_EQ(json::parse(content_of(tree / "report.json"))["gpus"][0]["state"], "asleep");
    EXPECT_FALSE(fs::exists(tree / host.hwmon(0, "temp1_input").substr(1)));
    EXPECT_FALSE(fs::exists(tree / "host/requests/card0"));
    EXPECT_TRUE(fs::exists(unpacked("--wake") / host.hwmon(0, "temp1_input").substr(1)));
}

TEST_F(report_test, it_goes_where_it_is_told_or_says_why_not)
{
    const fs::path nothing = unpacked(); // without a GPU
    expect_play_back(nothing);
    host.add_bare_gpu();
    const fs::path bare = unpacked();
    EXPECT_EQ(content_of(bare / "host/modules"), host.read("/host/modules"));
    EXPECT_EQ(content_of(bare / host.pci_device(0).substr(1) / "config"), host.read(host.pci_device(0) + "/config"));
    EXPECT_TRUE(fs::exists(bare / host.pci_bridge(0).substr(1) / "max_link_speed"));
    for (const auto &[arguments, status, error] : std::vector<std::tuple<std::string, int, std::string>>{
             {"report -o " + (scratch / "none" / "r").string(), 255, "No such file or directory"},
             {"report -o " + scratch.string(), 255, "Is a directory"},
             {"report -o /dev/full", 255, "No space left on device"},
             {"report --format json", 1, "a report has no --format"},
             {"report -i 0", 1, ""},
             {"report more", 1, "report takes no \"more\""},
             {"report -o", 1, "needs a value"}}) {
        const run_result result = veksmi(arguments);
        EXPECT_EQ(result.status, status) << arguments;
        EXPECT_NE(result.err.find(error), std::string::npos) << arguments << "\n" << result.err;
    }
    const run_result streamed = veksmi("report -o -");
    EXPECT_EQ(streamed.status, 0);
    EXPECT_EQ(streamed.out.substr(0, 2), "\x1f\x8b");
    EXPECT_EQ(streamed.err.rfind("Report: 0 GPUs", 0), 0U) << streamed.err;
}

} // namespace
