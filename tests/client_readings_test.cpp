// SPDX-License-Identifier: Apache-2.0
// Every value that the client shows is that of its own field and of its own GPU, in every format.
#include "client_host.h"

#include <array>
#include <atomic>
#include <map>
#include <pwd.h>
#include <set>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

// The second GPU of a host on which no two readings are equal: each field as JSON, then what a table says where that is
// not the same text, then as JSON out of band where the firmware tells it.
constexpr const char *fields_of_second_gpu = R"(
index|1||1
card|1||null
state|"ok"||"ok"
bus_id|"0000:04:00.0"||"0000:04:00.0"
model|"VEK E105 LP"||"VEK E105 LP"
name|"TALON-D01"|
uuid|"5e0a1c01"|
vendor|"BITLAND"||"BITLAND"
device_id|"0x4a01"||"0x4a01"
vendor_id|"0x7665"||"0x7665"
subsystem_device_id|"0x5201"||"0x5201"
subsystem_vendor_id|"0x5101"||"0x5101"
chip_type|null|
chip_process_nm|null||12
card_type|"Compute Card"|
cores|701|
firmware_version|"v11.21.31"||"v11.21.31"
vbios_version|"v41.51.61"||"v41.51.61"
driver_ddk|"5.6.7"|
driver_kmd|"3.4"|
driver_umd|"1.2"|
primary_id|"501"|
primary_core_id|"601"|
memory_type|"GDDR6"||"GDDR6"
memory_vendor|"Micron"|
memory_devices|34|
memory_size|18|18 GiB
firmware_memory_size_mib|null||18432
memory_speed|12000000000|
memory_width_bits|32|32 bits|32
gfx_clock_max_mhz|1000|1000 MHz|1000
gfx_clock_default|900000000|
texture_fill_rate_gtexels|22432.0|22432 Gtexel/s
pixel_fill_rate_gpixels|11216.0|11216 Gpixel/s
video_decoding|"4K60"||"4K60"
video_encoding|"1080p60"||"1080p60"
pcie_speed_gts|5|5 GT/s
pcie_speed_max_gts|8|8 GT/s
pcie_width|3|3 lanes
pcie_width_max|19|19 lanes
pcie_generation|2|
pcie_generation_max|3|
pcie_link|"5.0 GT/s PCIe"|
pcie_memory_bar|"64-bit prefetch"|
pcie_corrected_errors|2001|
pcie_nonfatal_errors|2201|
pcie_fatal_errors|2101|
pcie_event|2301|
pcie_event_flags|[1,0,1,1,1,1]|1 0 1 1 1 1
numa_node|1|
power_state|"D0"|
display_connected|null|
temperature|114|114 °C|114
temperature_highest|146|146 °C
memory_temperature|130|130 °C|130
temperature_mode|1|
temperature_min|98|98 °C
temperature_max|162|162 °C
temperature_critical|194|194 °C
thermal_slowdown|178|178 °C
thermal_shutdown|210|210 °C
thermal_slowdown_enabled|1|
thermal_shutdown_enabled|0|
dvfs_enabled|1|
fan_speed|2402|2402 RPM|2402
fan_speed_min|1202|1202 RPM
fan_speed_max|4802|4802 RPM
fan_mode|1|
fan_pwm|3202|
fan_pwm_min|1954|
fan_pwm_max|5922|
power|226|226 W|226
power_total|242|242 W|242
power_cap|258|258 W
voltage|882|882 mV|882
current|24002|24002 mA|24002
gfx_clock_mhz|1010|1010 MHz|900
memory_clock_mhz|1746|1746 MHz
cmcu_clock_mhz|610|610 MHz
acpu_clock_mhz|802|802 MHz
ndf_clock_mhz|514|514 MHz
gpu_util_percent|18|18 %
tdm_util_percent|34|34 %
geom_util_percent|50|50 %
3d_util_percent|66|66 %
cdm_util_percent|82|82 %
memory_used|5705306112|5.3 GiB
memory_free|17783848960|16.6 GiB
memory_total|23489155072|21.9 GiB
memory_util_percent|24|24 %
system_memory_used|3859812352|3.6 GiB
system_memory_total|15100547072|14.1 GiB
process_count|3|
crc_write_errors|[3001,3065,3129,3193]|3001 3065 3129 3193
crc_read_errors|[3017,3081,3145,3209]|3017 3081 3145 3209
crc_write_retries|[3033,3097,3161,3225]|3033 3097 3161 3225
crc_read_retries|[3049,3113,3177,3241]|3049 3113 3177 3241
video_encoder_rate|0|0/s
video_encoder_reserved|62|62/s
video_decoder_rate|0|0/s
video_decoder_reserved|61|61/s
)";

struct expected_field {
    std::string key;
    json in_band, out_of_band;
    std::string text; // in a table

    // As CSV has it: without unit.
    std::string cell() const
    {
        std::string held = in_band.is_string() ? in_band.get<std::string>() : in_band.is_null() ? "" : in_band.dump();
        if (in_band.is_array())
            held = text;
        else if (held.ends_with(".0") && in_band.is_number())
            held.resize(held.size() - 2);
        return held;
    }
};

std::vector<expected_field> expected_fields()
{
    std::vector<expected_field> list;
    for (const std::string &row : lines(fields_of_second_gpu + 1)) {
        std::vector<std::string> part = lines(row, '|');
        part.resize(4);
        expected_field f{part[0], json::parse(part[1]), json::parse(part[3].empty() ? "null" : part[3]), part[2]};
        if (f.text.empty())
            f.text = f.in_band.is_null() ? "N/A" : f.cell();
        list.push_back(std::move(f));
    }
    return list;
}

class client_readings_test : public client_host {
protected:
    client_readings_test()
    {
        for (const expected_field &f : expected)
            keys += (keys.empty() ? "" : ",") + f.key;
    }
    void add_distinct_gpus()
    {
        for (int position : {0, 1})
            host.add_gpu(veksim::distinct_gpu(position), veksim::distinct_state(position));
        host.add_video_libraries();
        host.set_video_state(veksim::distinct_video());
        host.write(host.card(1, "version"), "1 2 3 4 5 6 7\n");
        host.write(host.hwmon(1, "vek_enable_thm_shutdown"), "0\n");
    }

    const std::vector<expected_field> expected = expected_fields();
    std::string keys;
};

TEST_F(client_readings_test, every_field_is_its_own)
{
    add_distinct_gpus();
    std::string listed;
    for (const std::string &line : lines(veksmi("query --help-fields --format csv").out))
        listed += (listed.empty() ? "" : ",") + line.substr(0, line.find(','));
    ASSERT_EQ("field," + keys, listed);
    const json gpus = document("query --format json --fields " + keys)["gpus"];
    const std::vector<std::string> table = lines(veksmi("query -i 1 --fields " + keys).out);
    std::string row;
    std::set<json> numbers;
    ASSERT_TRUE(gpus.size() == 2 && table.size() == expected.size() + 1) << table.size();
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const auto &[key, in_band, out_of_band, text] = expected[i];
        EXPECT_EQ(gpus[1].value(key, json("nothing")), in_band) << key;
        EXPECT_TRUE(table[i + 1].ends_with("  " + text)) << key << ": " << table[i + 1];
        if (in_band.is_number() && in_band > 82) {
            EXPECT_TRUE(numbers.insert(in_band).second) << key << " tells nothing apart";
        }
        row += (row.empty() ? "" : ",") + expected[i].cell();
    }
    EXPECT_EQ(lines(veksmi("query --format csv --fields " + keys).out).at(2), row);
}

TEST_F(client_readings_test, every_field_is_its_own_out_of_band)
{
    for (int position : {0, 1})
        host.add_bare_gpu(veksim::distinct_gpu(position), veksim::distinct_state(position));
    const json gpu = document("query --out-of-band --format json --fields " + keys)["gpus"][1];
    for (const expected_field &f : expected)
        EXPECT_EQ(gpu.value(f.key, json("nothing")), f.out_of_band) << f.key;
    EXPECT_EQ(gpu["missing"]["gpu_util_percent"], "driverless");
    EXPECT_EQ(veksmi("--out-of-band dvfs set 1 -i 0").status, 1);
    host.set_euid(1000);
    EXPECT_EQ(document("temp --out-of-band --format json", 4)["gpus"][0]["temperature"], nullptr);
}

// What the other commands choose, and the lines that are laid out by hand.
TEST_F(client_readings_test, commands_show_these_fields)
{
    add_distinct_gpus();
    std::map<std::string, std::string> cell_of;
    for (const expected_field &f : expected)
        cell_of[f.key] = f.cell();
    for (const auto &[command, shown] : std::vector<std::array<std::string, 2>>{
             {"list", "index,card,model,name,bus_id,uuid,state"},
             {"temp", "index,model,bus_id,temperature,temperature_highest,memory_temperature,temperature_mode,"
                      "temperature_min,temperature_max,temperature_critical"},
             {"fan",
              "index,model,bus_id,fan_speed,fan_speed_min,fan_speed_max,fan_mode,fan_pwm,fan_pwm_min,fan_pwm_max"},
             {"power", "index,model,bus_id,power,power_total,power_cap,voltage,current"},
             {"clock", "index,model,bus_id,gfx_clock_mhz,gfx_clock_max_mhz,memory_clock_mhz,acpu_clock_mhz,"
                       "cmcu_clock_mhz,ndf_clock_mhz"},
             {"thermal", "index,model,bus_id,thermal_slowdown,thermal_shutdown,thermal_slowdown_enabled,"
                         "thermal_shutdown_enabled"},
             {"dvfs", "index,model,bus_id,dvfs_enabled"}}) {
        std::string row;
        for (const std::string &key : lines(shown, ','))
            row += (row.empty() ? "" : ",") + cell_of.at(key);
        EXPECT_EQ(veksmi(command + " --format csv -i 1").out, shown + "\n" + row + "\n");
    }
    for (const auto &[command, second] : std::vector<std::array<std::string, 2>>{
             {"query", "model "}, {"info", "model "}, {"query --fields index,model", "index "}})
        EXPECT_TRUE(lines(veksmi(command).out).at(1).starts_with(second)) << command;
    EXPECT_EQ(veksmi("info").out.find("firmware memory"), std::string::npos);
    EXPECT_EQ(veksmi("why").out.find("firmware_memory"), std::string::npos);
    EXPECT_NE(veksmi("why firmware_memory_size_mib").out.find("--out-of-band asks it"), std::string::npos);
    const std::string summary = veksmi("").out, monitored = veksmi("monitor -c 1").out;
    for (const char *line : {"\nGPU 1  VEK E105 LP  TALON-D01                                     0000:04:00.0\n",
                             "\n  temp 114 °C  fan 2402 RPM  power 226 W   graphics 1010 MHz  memory 1746 MHz\n",
                             "\n  memory [#####               ]  24 %  5.3 / 21.9 GiB\n",
                             "\n  load   [####                ]  18 %  tdm 34 %, geom 50 %, 3d 66 %, cdm 82 %\n"})
        EXPECT_NE(summary.find(line), std::string::npos) << line << summary;
    EXPECT_NE(monitored.find("gpu  °C fan RPM    W gfx MHz load % mem % mem MHz\n"), std::string::npos) << monitored;
    EXPECT_TRUE(monitored.ends_with("   1 114    2402  226    1010     18    24    1746\n")) << monitored;
    EXPECT_EQ(veksmi("topology --format csv -i 1").out,
              "index,numa_node,cpu_affinity,bus_id,speed_gts,speed_max_gts,width,width_max\n"
              "1,1,8-15,0000:00:02.0,5,8,3,19\n1,1,8-15,0000:04:00.0,5,8,3,19\n");
}

// The decoder's counter runs twice as fast as the encoder's.
TEST_F(client_readings_test, rates_are_of_their_own_engine)
{
    host.add_gpu();
    host.add_video_libraries();
    std::atomic<bool> over = false;
    std::thread driver([&] {
        for (veksim::video_state state{61, 62, 1000, 1000}; !over; state.decoder_commands += 2000) {
            host.set_video_state(state);
            state.encoder_commands += 1000;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    const json gpu = document("query --format json --fields video_encoder_rate,video_decoder_rate")["gpus"][0];
    over = true;
    driver.join();
    ASSERT_TRUE(gpu["video_encoder_rate"].is_number()) << gpu;
    const double encoder = gpu["video_encoder_rate"], decoder = gpu["video_decoder_rate"];
    EXPECT_GT(encoder, 0);
    EXPECT_NEAR(decoder, 2 * encoder, 2);
}

// What a driver's texts may hold, and none of it may reach a terminal or a cell.
TEST_F(client_readings_test, texts_of_the_driver_are_harmless)
{
    const std::vector<std::string> names = {"a,b\"c", "\x1b[2J\x07", "d,\x7f",
                                            "\xc2\x9b"
                                            "31m\xe2\x80\xae",
                                            "\x9b\xff\xe2\x81\xa6"};
    host.add_gpu();
    std::vector<veksim::process_entry> entries;
    for (const std::string &name : names)
        entries.push_back({static_cast<std::uint32_t>(4100000 + entries.size()), name,
                           static_cast<std::int64_t>(1000 - entries.size()), 2000});
    host.set_processes(0, entries);
    host.write("/proc/4100000/cmdline", std::string("x,\"y\"\0\n\x1b]0;z\xe2\x81\xa6\x85", 17));
    host.write(host.card(0, "vek_product_name"), names[1] + names[2] + names[3] + "\n");
    host.write(host.card(0, "device/local_cpulist"), "0\x1b[2J,\xc2\x9b\n");
    for (const char *command : {"", "list", "info", "ps", "why name", "topology", "health", "query --fields name,uuid",
                                "monitor -c 1 --fields name", "top --once"})
        for (const char *shape : {"", " --format csv"}) {
            const std::string out = veksmi(std::string(command) + shape).out;
            const auto is_bad = [](unsigned char c) { return (c < ' ' && c != '\n') || c == 0x7f || c == 0xff; };
            EXPECT_EQ(std::count_if(out.begin(), out.end(), is_bad), 0) << command << shape << "\n" << out;
            for (const char *sequence : {"\xc2\x9b", "\xe2\x80\xae", "\xe2\x81\xa6", "\x9b?", "?\x85"})
                EXPECT_EQ(out.find(sequence), out.npos) << command << shape << "\n" << out;
        }
    const std::string me = getpwuid(static_cast<uid_t>(syscall(SYS_geteuid)))->pw_name; // whose the tree is
    const std::vector<std::string> csv = lines(veksmi("ps --format csv").out);
    ASSERT_EQ(csv.size(), names.size() + 1);
    EXPECT_EQ(csv[1], "0,4100000,\"a,b\"\"c\",1000,2000," + me + ",\"x,\"\"y\"\" ??]0;z??\",");
    EXPECT_EQ(csv[3], "0,4100002,\"d,?\",998,2000," + me + ",,");
    const json found = document("ps --format json")["gpus"][0]["processes"];
    ASSERT_EQ(found.size(), names.size());
    for (std::size_t i = 1; i < 4; ++i)
        EXPECT_EQ(found[i]["name"], names[i]) << i;
}

} // namespace
