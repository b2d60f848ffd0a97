// SPDX-License-Identifier: Apache-2.0
// Programs that nobody here wrote read the simulated host, and see what the client sees.
#include "client_host.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <regex>
#include <set>

namespace {

class agreement_test : public client_host {
protected:
    // What an installed program prints on this host; nothing when there is none for the machine we are built for.
    std::string printed_by(const std::string &command, environment settings = {})
    {
        if (*EMULATOR != '\0' ||
            std::system(("command -v " + command.substr(0, command.find(' ')) + " >/dev/null").c_str()) != 0)
            return "";
        return run_on_host({"sh", "-c", command}, std::move(settings)).out;
    }
};

// "LnkSta: Speed 2.5GT/s (downgraded), Width x4 (downgraded)" is 2.5 and 4.
std::pair<json, json> link_of(const std::string &function, const std::string &line)
{
    std::smatch part;
    if (!std::regex_search(function, part, std::regex(line + "[^\n]*Speed ([0-9.]+)GT/s[^\n]*Width x([0-9]+)")))
        return {};
    return {std::stod(part[1]), std::stoi(part[2])};
}

TEST_F(agreement_test, lspci_sees_the_path_that_topology_shows)
{
    host.add_gpu(veksim::distinct_gpu(0));
    veksim::gpu_config other = veksim::distinct_gpu(3);
    other.pci_address = "0001:a3:00.0";
    host.add_gpu(other);
    const std::string out = printed_by("lspci -D -nn -vv");
    if (out.empty())
        GTEST_SKIP() << "no lspci";
    const auto function = [&](const std::string &bus_id) {
        const std::size_t at = out.find(bus_id + " ");
        return at == out.npos ? "" : out.substr(at, out.find("\n\n", at) - at);
    };
    const json gpus = document("topology --format json")["gpus"];
    for (const json &gpu : gpus) {
        const json path = gpu["topology"]["path"];
        ASSERT_EQ(path.size(), 2U) << gpu;
        const std::string node = "NUMA node: " + gpu["topology"]["numa_node"].dump() + "\n";
        EXPECT_NE(function(gpu["bus_id"]).find(node), std::string::npos) << function(gpu["bus_id"]);
        for (const json &step : path) {
            const std::string seen = function(step["bus_id"]);
            EXPECT_EQ(link_of(seen, "LnkSta:"), std::pair(step["speed_gts"], step["width"])) << seen;
            EXPECT_EQ(link_of(seen, "LnkCap:"), std::pair(step["speed_max_gts"], step["width_max"])) << seen;
        }
        const std::string bus = gpu["bus_id"].get<std::string>().substr(5, 2);
        for (const std::string &said : {std::string("PCI bridge [0604]"), "secondary=" + bus + ", "})
            EXPECT_NE(function(path[0]["bus_id"]).find(said), std::string::npos) << function(path[0]["bus_id"]);
    }
    const std::string gpu = function("0001:a3:00.0");
    for (const char *words : {"VGA compatible controller [0300]", "[7665:4a03]", "[5103:5203]", "[size=32M]",
                              "Kernel driver in use: vekgpu", "Advanced Error Reporting"})
        EXPECT_NE(gpu.find(words), std::string::npos) << words << gpu;
}

// "VAProfileHEVCMain10" and "hevc main-10bit" are "hevcmain10".
std::string profile_name(const std::string &text)
{
    std::string name = std::regex_replace(text, std::regex("^VAProfile|bit$|[^A-Za-z0-9]"), "");
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
    return name;
}

TEST_F(agreement_test, vainfo_sees_the_engines_that_vpu_shows)
{
    host.add_gpu();
    host.add_video_libraries();
    const std::string out = printed_by("vainfo --display drm --device /dev/dri/card0",
                                       {{"LIBVA_DRIVERS_PATH", "/usr/lib/aarch64-linux-gnu/dri"}});
    if (out.empty())
        GTEST_SKIP() << "no vainfo";
    std::set<std::string> theirs, ours;
    for (const std::string &line : lines(out)) {
        const std::vector<std::string> word = words(line);
        if (word.size() == 3 && word[0].rfind("VAProfile", 0) == 0)
            theirs.insert(profile_name(word[0]) + (word[2] == "VAEntrypointVLD" ? " decodes" : " encodes"));
    }
    const json gpu = document("vpu --format json")["gpus"][0];
    for (const json &codec : gpu["codecs"]) {
        for (const auto &[key, verb] : {std::pair("decoder", " decodes"), std::pair("encoder", " encodes")}) {
            if (!codec[key].is_null())
                ours.insert(profile_name(codec["profile"]) + verb);
        }
    }
    if (theirs.erase("protected decodes") == 1) // libva has no name for this one of the driver's
        theirs.insert("avs2main decodes");
    EXPECT_GE(ours.size(), 12U);
    EXPECT_EQ(theirs, ours) << out;
    EXPECT_NE(out.find("Driver version: VEKGPU video engines, simulated"), std::string::npos) << out;
}

} // namespace
