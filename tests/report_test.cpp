// SPDX-License-Identifier: Apache-2.0
// A report goes out, and its host comes back.
#include "client_host.h"
#include "host_files.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// The files below DIRECTORY that hold TEXT, in their names and links' targets as well.
std::vector<std::string> holders_of(const std::string &text, const fs::path &directory)
{
    std::vector<std::string> found;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(directory)) {
        std::string held = fs::relative(entry.path(), directory).string();
        if (entry.is_symlink())
            held += "\n" + fs::read_symlink(entry.path()).string();
        else if (entry.is_regular_file())
            held += "\n" + slurp(entry.path());
        if (held.find(text) != std::string::npos)
            found.push_back(entry.path());
    }
    return found;
}

// A report taken apart: a tree to play back.
struct report {
    fs::path tree;
    std::string told; // by the client that made it

    fs::path path(const std::string &real) const { return tree / fs::path(real).relative_path(); }
    std::string read(const std::string &real) const { return slurp(path(real)); }
    bool has(const std::string &real) const { return fs::exists(path(real)); }
    json gpus() const { return json::parse(read("report.json"))["gpus"]; }
};

// Some seconds under sanitizers: each fault starts the launcher and the client, to write and to play back.
class report_test : public client_host {
protected:
    report_test()
    {
        char name[] = "/tmp/report-test-XXXXXX";
        scratch = mkdtemp(name);
    }
    ~report_test() override { fs::remove_all(scratch); }

    run_result played_back(const report &made, const std::string &arguments)
    {
        return veksmi(arguments, {{"VEKSIM_TREE", made.tree}});
    }
    report reported(const std::string &options = "")
    {
        const fs::path file = scratch / "report.tar.gz", where = scratch / std::to_string(++reports);
        const run_result made = veksmi("report -o " + file.string() + " " + options);
        EXPECT_EQ(made.status, 0) << made.err;
        fs::create_directory(where);
        EXPECT_EQ(std::system(("tar -C " + where.string() + " -xf " + file.string()).c_str()), 0);
        return {where / "veksmi-report", made.out};
    }
    // One that says again what the host said.
    report replayable(const std::string &options = "", const std::string &playing = "")
    {
        report made = reported(options);
        const std::string again = played_back(made, "query --format json " + playing).out;
        EXPECT_EQ(again, made.read("report.json"));
        EXPECT_TRUE(json::accept(again));
        return made;
    }

    fs::path scratch;
    int reports = 0;
};

TEST_F(report_test, the_host_plays_back_with_its_faults)
{
    host.add_gpu(veksim::sample_gpu(0));
    host.add_gpu(veksim::sample_gpu(1));
    host.set_processes(0, {{5000001, "first", 1000, 3000}, {5000002, "second", 2000, 4000}});
    host.write("/proc/5000001/cmdline", std::string("first\0--of=all", 14));
    const report whole = replayable("--full");
    for (const char *command : {"list", "info", "query", "ps", "temp", "fan", "power", "clock", "thermal", "dvfs",
                                "pcie", "version", "topology", "health"}) {
        const std::string asked = std::string(command) + " --format json";
        EXPECT_EQ(played_back(whole, asked).out, veksmi(asked).out);
    }
    EXPECT_NE(played_back(whole, "ps --format json").out.find("--of=all"), std::string::npos);
    replayable();

    host.remove(host.card(0, "device/gpu_mem_util_info")); // the processes are asked for by request
    const std::string processes = veksmi("ps --format json").out;
    EXPECT_NE(processes.find("5000002"), std::string::npos);
    EXPECT_EQ(played_back(replayable("--full"), "ps --format json").out, processes);

    host.write("/etc/vekgpu/units.conf", "power = milliwatt # of wombat\nclock=hertz\nvoltage = millivolt\n");
    const report scaled = replayable();
    EXPECT_EQ(scaled.read("/etc/vekgpu/units.conf"), "power = milliwatt \nclock=hertz\nvoltage = millivolt\n");
    EXPECT_EQ(scaled.gpus()[0]["power"], 0.021);
    host.write("/etc/vekgpu/units.conf", "wombat = milliwatt\n");
    EXPECT_FALSE(reported().has("/etc")) << "it was not understood, and so not used";
    host.remove("/etc");

    const std::string read_only = host.hwmon(1, "power1_cap");
    host.fail(host.hwmon(0, "temp1_input"), EACCES);
    host.fail_reads(host.hwmon(0, "fan1_input"), EIO);
    host.remove(host.card(0, "device/gpu_util_info"));
    host.fail_request(0, veksim::utilisation_request, EBUSY);
    host.write(host.hwmon(1, "in0_input"), "garbage\n");
    host.remove(host.hwmon(1, "power1_average"));
    host.set_mode(read_only, 0444);
    host.set_euid(1000);
    const report broken = replayable();
    EXPECT_EQ(played_back(broken, "why --format json").out, veksmi("why --format json").out);
    EXPECT_NE(broken.read("report.txt").find("hwmon1/fan1_input: Input/output error\n"), std::string::npos);
    EXPECT_EQ(fs::status(broken.path(read_only)).permissions() & fs::perms(0222), fs::perms::none);
}

TEST_F(report_test, a_masked_report_names_neither_chip_nor_person)
{
    for (const unsigned chip_id : {0x9b7f3a52, 0x1c0ffee5u})
        host.add_gpu({.chip_id = chip_id, .static_text = "SN-PLANTED-7"});
    char name[256] = {};
    gethostname(name, sizeof name - 1);
    const std::string computer = std::strlen(name) < 6 ? "planted-computer" : name;
    host.set_processes(0, {{5000001, "quokka", 1000, 3000}});
    host.write("/proc/5000001/cmdline", std::string("quokka\0--token=hunter2", 22));
    host.write("/proc/5000001/cgroup", "0::/user.slice/wombat.service\n");
    const auto append = [&](const std::string &file, const std::string &text) {
        host.write(file, host.read(file) + text);
    };
    append("/proc/5000001/status", "Cpus_allowed:\twombat\n");
    append(host.debug_dump(0),
           "KM info: 1.10 build by wombat@" + computer + "\nchip 9b7f3a52 serial 2608806482\nprocess quokka\n");
    host.write("/tmp/smi.log", "wombat@" + computer +
                                   " --token=hunter2\n[DBG][2026-01-01 00:00:00.000001,pid:1][vekml]" +
                                   "src/vek_smi.cpp(1)-<f>: enter wombat\n9b7f3a52\n");
    append("/sys/kernel/debug/vpu/xmem", "chip 9b7f3a52\n");
    append("/host/packages", "ii  wombat-tools 1.0 all tools of wombat\n");
    std::string space = host.read(host.card(0, "device/config"));
    space[0x103] = 0x20; // the next capability is at 0x200: a serial number
    space.replace(0x200, 12, std::string("\x03\0\x01\0SERIALNO", 12));
    host.write(host.card(0, "device/config"), space);

    const report whole = reported("--full");
    for (const char *secret : {"9b7f3a52", "quokka", "hunter2", "wombat", "SERIALNO", "534e2d504c41"})
        EXPECT_FALSE(holders_of(secret, whole.tree).empty()) << secret << " would not be found";
    for (const std::string &text : {whole.told, whole.read("report.txt")})
        EXPECT_NE(text.find("Nothing is masked"), std::string::npos) << text;

    host.write("/tmp/smi.log", "wombat@" + computer + " --token=hunter2\n9b7f3a52\n");
    const report masked = replayable();
    const std::vector<std::string> planted = {
        "9b7f3a52", "9B7F3A52", "2608806482", "-1686160814", "1c0ffee5",     "470810341",        "quokka",
        "hunter2",  "wombat",   "SERIALNO",   "SN-PLANTED",  "534e2d504c41", "\x52\x3a\x7f\x9b", computer};
    for (const std::string &secret : planted)
        EXPECT_EQ(holders_of(secret, masked.tree), std::vector<std::string>{}) << secret;

    // What the driver tells twice stays the same, and what differed differs.
    const std::string asked = "query --fields uuid,firmware_version,process_count --format json";
    const json gpus = json::parse(played_back(masked, asked).out)["gpus"];
    EXPECT_NE(gpus[0]["uuid"], gpus[1]["uuid"]);
    EXPECT_EQ(gpus[0]["firmware_version"], "v1.2.3");
    EXPECT_EQ(gpus[0]["process_count"], 1);
    EXPECT_NE(masked.read(host.debug_dump(1)).find("GPU_LOCAL, Free Size: 7301444404, Total Size: 8589934592\n"),
              std::string::npos);
    for (int i = 0; i < 2; ++i) {
        const std::string number = std::to_string(std::stoul(gpus[i]["uuid"].get<std::string>(), nullptr, 16));
        for (const std::string &place :
             {host.card(i, "device/gpu_static_info"), host.request(i, veksim::first_static_request),
              host.request(i, veksim::second_static_request)})
            EXPECT_NE(masked.read(place).find(" " + number + " "), std::string::npos) << place;
    }
}

TEST_F(report_test, gpus_that_hang_cost_one_deadline)
{
    add_gpus(3);
    for (int i = 0; i < 2; ++i)
        for (const char *node : {"temp1_input", "fan1_input", "vek_fw_ver"})
            host.write("/host/stuck" + host.hwmon(i, node), "");
    const std::string request = host.request(0, veksim::process_request), power = host.hwmon(1, "power1_average");
    host.link(request, "stuck");
    host.link(power, "stuck:open");
    const auto begin = std::chrono::steady_clock::now();
    const report made = replayable("--deadline 3", "--deadline 1");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15)) << "eight hang";
    EXPECT_EQ(made.gpus()[0]["state"], "stuck");
    EXPECT_EQ(made.gpus()[2]["temperature"], 48);
    // What stands behind the hanging ones was read, and they hang again.
    EXPECT_EQ(made.read(host.hwmon(0, "vek_ndf_freq_mhz")), "500\n");
    EXPECT_TRUE(made.has("/host/stuck" + host.hwmon(0, "vek_fw_ver")));
    EXPECT_EQ(fs::read_symlink(made.path(request)), "stuck");
    EXPECT_EQ(fs::read_symlink(made.path(power)), "stuck:open");
}

TEST_F(report_test, sleeping_gpus_are_not_woken)
{
    host.add_gpu();
    host.write(host.card(0, "device/power/runtime_status"), "suspended\n");
    const report made = replayable();
    EXPECT_EQ(made.gpus()[0]["state"], "asleep");
    EXPECT_FALSE(made.has(host.hwmon(0, "temp1_input")));
    EXPECT_FALSE(made.has("/host/requests/card0"));
    EXPECT_TRUE(reported("--wake").has(host.hwmon(0, "temp1_input")));
}

TEST_F(report_test, without_the_driver_it_tells_of_the_bus)
{
    replayable(); // without a GPU
    host.add_bare_gpu();
    const report bare = reported();
    for (const std::string &file : {std::string("/host/modules"), host.pci_device(0) + "/config"})
        EXPECT_EQ(bare.read(file), host.read(file)) << file;
    EXPECT_TRUE(bare.has(host.pci_bridge(0) + "/max_link_speed"));
    const run_result streamed = veksmi("report -o -");
    EXPECT_EQ(streamed.status, 0);
    EXPECT_EQ(streamed.out.substr(0, 2), "\x1f\x8b");
    EXPECT_EQ(streamed.err.rfind("Report: 0 GPUs", 0), 0U) << streamed.err;
}

} // namespace
