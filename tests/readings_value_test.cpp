// SPDX-License-Identifier: Apache-2.0
#include "readings/message.h"
#include "readings/pci_address.h"
#include "readings/units.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace readings;
using std::chrono::milliseconds;

TEST(readings_value_test, nothing_that_a_terminal_obeys_is_printed)
{
    const std::pair<std::string, const char *> cases[] = {
        {"VEK M310", "VEK M310"},
        {"Prüfstück 5 °C 日本 😀", "Prüfstück 5 °C 日本 😀"},
        {std::string("a\0b", 3) + "\t\n\r\x1b[31m", "a?b????[31m"},
        {"a\x7f"
         "b",
         "a?b"},
        {"\xc2\x80\xc2\x9b\xc2\x9f\xc2\xa0", "???\xc2\xa0"}, // C1 as UTF-8 writes it, and the first that is none
        {"\x9b"
         "31m\x80",
         "?31m?"},                                                                        // raw
        {"\u061c\u200e\u200f\u202a\u202e\u2066\u2069|\u2028\u2029\ufeff", "???????|???"}, // direction, lines
        {"\u200d\u202f\u2065\u206a", "\u200d\u202f\u2065\u206a"},                         // their neighbours
        {"\xc0\xaf \xe0\x80\xaf \xf0\x80\x80\xaf", "?? ??? ????"},                        // overlong
        {"\xed\xa0\x80 \xf4\x90\x80\x80 \xf8\xff", "??? ???? ??"},                        // surrogate, beyond Unicode
        {"\xe2\x82", "??"},                                                               // cut off
        {"\xe2(\xf0\x9f\x98", "?(???"}};
    for (const auto &[text, shown] : cases)
        EXPECT_EQ(printable(text), shown) << testing::PrintToString(text);
}

TEST(readings_value_test, pci_addresses_and_nothing_else)
{
    for (const char *whole : {"0000:03:00.0", "10000:e1:1f.7"})
        EXPECT_TRUE(is_bus_id(whole)) << whole;
    EXPECT_EQ(pci_address_from("03:00.1"), (pci_address{0, 3, 0, 1}));
    for (const char *no : {"03:00.0", "", " 0000:03:00.0", "0000:03:00.0\x1b", "0x00:03:00.0", "-1:03:00.0",
                           "0:103:00.0", ":03:00.0", "0000:03:00"})
        EXPECT_FALSE(is_bus_id(no)) << no;
}

TEST(readings_value_test, a_text_says_something_or_is_missing)
{
    const std::pair<std::string_view, value> cases[] = {{" VEK M310 \n", "VEK M310"},
                                                        {"", missing{reason::malformed}},
                                                        {" \t\r\n", missing{reason::malformed}},
                                                        {"N/A\n", missing{reason::unsupported}},
                                                        {"unknown", missing{reason::unsupported}},
                                                        {"unknown 2", "unknown 2"}};
    for (const auto &[text, expected] : cases)
        EXPECT_EQ(text_value(text), expected) << text;
    EXPECT_EQ(text_value({'a', 'b', '\0', 'c'}), value("ab"));
    EXPECT_EQ(text_value({'a', 'b'}), value("ab"));
}

TEST(readings_value_test, as_plain_text_and_for_people)
{
    const std::uint64_t gib = 1024 * 1024 * 1024;
    const struct {
        value held;
        unit in;
        const char *plain;
        const char *shown;
    } cases[] = {
        {std::uint64_t{48}, unit::celsius, "48", "48 °C"},
        {std::int64_t{-5}, unit::celsius, "-5", "-5 °C"},
        {48.25, unit::celsius, "48.25", "48.2 °C"},
        {0.1, unit::watt, "0.1", "0.1 W"},
        {std::uint64_t{0}, unit::rpm, "0", "0 RPM"},
        {std::uint64_t{14000000000}, unit::none, "14000000000", "14000000000"},
        {std::uint64_t{37}, unit::percent, "37", "37 %"},
        {std::uint64_t{30}, unit::per_second, "30", "30/s"},
        {std::uint64_t{1288490188}, unit::byte, "1288490188", "1.2 GiB"},
        {std::uint64_t{gib - 1}, unit::byte, "1073741823", "1.0 GiB"},
        {std::uint64_t{1023 * 1024 * 1024}, unit::byte, "1072693248", "1023 MiB"},
        {std::uint64_t{1023}, unit::byte, "1023", "1023 B"},
        {std::uint64_t{5000 * gib}, unit::byte, "5368709120000", "4.9 TiB"},
        {std::numeric_limits<std::uint64_t>::max(), unit::byte, "18446744073709551615", "16777216.0 TiB"},
        {std::string("a\x1b[2J"), unit::none, "a\x1b[2J", "a?[2J"},
        {true, unit::none, "yes", "yes"},
        {std::vector<std::uint64_t>{1, 0, 3}, unit::none, "1 0 3", "1 0 3"},
        {missing{reason::absent}, unit::watt, "", "N/A"},
        {missing{reason::driverless}, unit::watt, "", "N/A"},
        {missing{reason::asleep}, unit::watt, "", "asleep"},
        {missing{reason::stuck}, unit::watt, "", "stuck"},
        {missing{reason::lost}, unit::watt, "", "lost"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(text_of(c.held), c.plain);
        EXPECT_EQ(human(c.held, c.in), c.shown);
    }
}

// ---- units

TEST(readings_units_test, a_host_says_what_its_driver_counts_in)
{
    units table;
    EXPECT_EQ(table.override_with("# this host\n\n  temperature=millicelsius # as hwmon has it\r\npower = microwatt\n"
                                  "memory = kibibyte\nclock = hertz\nmemory_size = mebibyte\nvoltage = volt"),
              "");
    const std::pair<value, value> cases[] = {
        {table.scaled(quantity::temperature, std::int64_t{48123}), 48.123},
        {table.scaled(quantity::temperature, std::int64_t{-500}), -0.5},
        {table.scaled(quantity::power, std::int64_t{21000000}), 21.0},
        {table.scaled(quantity::memory, std::uint64_t{3}), std::uint64_t{3072}},
        {table.scaled(quantity::memory, std::uint64_t{1} << 60), static_cast<double>(std::uint64_t{1} << 60) * 1024},
        {table.scaled(quantity::clock, std::int64_t{900000000}), 900.0},
        {table.scaled(quantity::memory_size, std::uint64_t{8192}), 8.0},
        {table.scaled(quantity::voltage, std::int64_t{1}), std::int64_t{1000}},
        {table.scaled(quantity::fan_speed, std::int64_t{2400}), std::int64_t{2400}},
    };
    for (const auto &[scaled, expected] : cases)
        EXPECT_EQ(scaled, expected) << text_of(scaled);
}

TEST(readings_units_test, a_line_that_means_nothing_changes_nothing)
{
    const std::pair<std::string, const char *> cases[] = {
        {"temperature", "line 2: it takes QUANTITY = UNIT"},
        {"power_limit = watt", "line 2: unknown quantity \"power_limit\"; there are temperature fan_speed power "
                               "power_total voltage current memory memory_size clock"},
        {"current = watt", "line 2: unknown unit \"watt\"; current takes ampere milliampere microampere"},
        {"current =", "line 2: unknown unit \"\"; current takes ampere milliampere microampere"},
        {std::string("cur\0rent\x1b = ampere", 19),
         "line 2: unknown quantity \"cur?rent?\"; there are temperature "
         "fan_speed power power_total voltage current memory memory_size clock"},
        {"current = " + std::string(60000, 'x'), "line 2: unknown unit \"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\"; "
                                                 "current takes ampere milliampere microampere"},
    };
    for (const auto &[line, fault] : cases) {
        units table;
        EXPECT_EQ(table.override_with("power = milliwatt\n" + line + "\n"), fault);
        EXPECT_EQ(table.scale(quantity::power), 1);
    }
}

TEST(readings_units_test, from_a_file)
{
    const std::filesystem::path folder = std::filesystem::temp_directory_path() / ("units-" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    const std::string file = folder / "units.conf";
    const auto holding = [&](const std::string &text) {
        std::ofstream(file, std::ios::binary) << text;
        units table;
        const std::string fault = table.read(file);
        return std::pair(fault, table.scale(quantity::power));
    };
    EXPECT_EQ(units().read(file), "");
    EXPECT_EQ(holding("power = milliwatt\n"), std::pair(std::string(), 1e-3));
    EXPECT_EQ(holding(""), std::pair(std::string(), 1.0));
    EXPECT_EQ(holding("power\n").first, file + ": line 1: it takes QUANTITY = UNIT");
    EXPECT_EQ(holding("power = milliwatt\n" + std::string(65517, '#')), std::pair(std::string(), 1e-3));
    EXPECT_EQ(holding("power = milliwatt\n" + std::string(65518, '#')),
              std::pair(file + ": longer than 65535 bytes", 1.0));
    EXPECT_EQ(units().read(folder), folder.string() + ": Is a directory");
    std::filesystem::remove_all(folder);
}

// ---- messages

assembly::outcome put_together(assembly &whole, const std::vector<packet> &packets)
{
    auto outcome = assembly::outcome::more;
    for (const packet &part : packets) {
        EXPECT_EQ(outcome, assembly::outcome::more);
        outcome = whole.add(part.data(), part.size());
    }
    return outcome;
}

TEST(readings_message_test, an_answer_comes_as_it_was_said)
{
    answer said;
    const field_list all =
        pick<"temperature", "voltage", "power_cap", "uuid", "display_connected", "crc_read_errors", "power">();
    const value values[] = {std::int64_t{-5},
                            std::uint64_t{1} << 63,
                            0.1,
                            "\xff\x1b[2J",
                            true,
                            std::vector<std::uint64_t>{1, UINT64_MAX},
                            missing{reason::denied, 13, "/sys/\xff"}};
    for (std::size_t i = 0; i < all.size(); ++i)
        said.values[index_of(*all[i])] = values[i];
    said.bus_id = "0000:03:00.0";
    said.driverless = true;
    said.result = 7;
    said.printed = std::string(200000, 'p'); // more than a packet takes
    said.processes = json::array({{{"pid", 5}, {"name", "\xff"}}});
    said.more["set"] = 4;

    assembly whole;
    ASSERT_EQ(put_together(whole, packets_of(answer_document(said, {.fields = all}, 42))), assembly::outcome::whole);
    answer taken;
    ASSERT_TRUE(take_answer(whole.document(), taken));
    EXPECT_EQ(number_of(whole.document()), 42);
    EXPECT_EQ(taken.values, said.values);
    EXPECT_EQ(std::tie(taken.bus_id, taken.driverless, taken.result, taken.printed, taken.processes, taken.more),
              std::tie(said.bus_id, said.driverless, said.result, said.printed, said.processes, said.more));
    EXPECT_EQ(taken.state, gpu_state::ok);
    EXPECT_TRUE(taken.codecs.is_null());

    said.state = gpu_state::lost;
    ASSERT_TRUE(take_answer(answer_document(said, {}, 1), taken));
    EXPECT_EQ(taken.state, gpu_state::lost);
}

TEST(readings_message_test, a_request_comes_as_it_was_made)
{
    const request made{.fields = pick<"power", "index">(), .processes = true, .more = {{"set", {{"fan", 60}}}}};
    const auto taken = request_from(request_document(made, 3));
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->fields, made.fields);
    EXPECT_EQ(std::tuple(taken->processes, taken->codecs, taken->more), std::tuple(true, false, made.more));
}

TEST(readings_message_test, what_is_no_message_is_told_from_one)
{
    packet deep = {0};
    deep.insert(deep.end(), 200000, 0x81); // an array in an array in an array
    packet objects = {0};
    for (int i = 0; i < 20000; ++i)
        objects.insert(objects.end(), {0xa1, 0x61, 'a'});
    const std::vector<packet> garbage[] = {
        {packet{}},
        {packet({0})},
        {packet({2, 0xa0})},                                                            // no such kind of packet
        {packet({0, 0xff})},                                                            // not CBOR
        {packet({0, 0x80})},                                                            // no object
        {packet({0, 0xa0, 0xa0})},                                                      // more than one
        {packet({0, 0xa1, 0x61, 'a'})},                                                 // cut short
        {packet({0, 0x9b, 0x7f, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff})},            // a list without end
        {packet({0, 0xbb, 0x0f, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff})},            // an object without end
        {packet({0, 0xa1, 0x61, 'a', 0x7b, 0, 0, 0x7f, 0xff, 0xff, 0xff, 0xff, 0xff})}, // a text without end
        {packet({1, 0xa1}), packet({0, 0x61})},
        {deep},
        {objects}};
    for (const auto &packets : garbage) {
        assembly whole;
        EXPECT_EQ(put_together(whole, packets), assembly::outcome::garbage) << testing::PrintToString(
            packet(packets[0].begin(), packets[0].begin() + std::min<long>(packets[0].size(), 12)));
        EXPECT_EQ(put_together(whole, {packet({0, 0xa0})}), assembly::outcome::whole); // nothing stays behind
    }

    const auto with = [](const char *key, json held) {
        json document{{"values", json::array()}, {"result", 0}, {"more", json::object()}};
        document[key] = std::move(held);
        return document;
    };
    const auto field = [&](json item) { return with("values", json::array({std::move(item)})); };
    const json senseless[] = {json::object(),
                              with("values", 1),
                              with("result", "0"),
                              with("more", 1),
                              with("codecs", 1),
                              with("processes", 1),
                              field(1u),
                              field({0u}),
                              field({field_count, 1u}),
                              field({-1, 1u}),
                              field({0u, nullptr}),
                              field({0u, {1u, "a"}}),
                              field({0u, {{"why", 0u}}}),
                              field({0u, {{"why", 99u}, {"errno", 0}, {"node", ""}}}),
                              field({0u, {{"why", 0u}, {"errno", 0}, {"node", 1}}})};
    for (const json &document : senseless) {
        answer said;
        EXPECT_FALSE(take_answer(document, said)) << document;
        EXPECT_FALSE(request_from(document)) << document;
    }
    answer said;
    EXPECT_TRUE(take_answer(field({0u, 1u}), said));
    EXPECT_FALSE(number_of({{"number", -1}}));
    EXPECT_FALSE(request_from({{"fields", {field_count}}, {"more", json::object()}}));
    EXPECT_FALSE(request_from({{"fields", json::array()}, {"more", 1}}));
}

} // namespace
