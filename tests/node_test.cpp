// SPDX-License-Identifier: Apache-2.0
#include "sim_host.h"
#include "text_node.h"
#include "vek_smi_utils.h"

#include <cstring>

using namespace vekml;

namespace {

constexpr char node[] = "/sys/class/drm/node";

using node_test = sim_host;

TEST_F(node_test, a_node_is_read_less_its_last_byte_and_as_far_as_there_is_room)
{
    const std::string block(4096, 'x');
    const struct {
        std::string content, text;
        std::size_t size = 64;
        const char *printed = "";
    } cases[] = {
        {"0x1234\n", "0x1234"},
        {"no newline", "no newlin"},
        {"\n", ""},
        {"", "before"},
        {std::string("a\0b\n", 4), "a"},
        {block + "beyond", block.substr(0, 4095), 4096},
        {"123456789\n", "1234", 5, "ret size too small.ret_len is 5, read size is 10\n"},
    };
    for (const auto &c : cases) {
        host.write(node, c.content);
        std::vector<char> text(c.size, '#');
        std::snprintf(text.data(), c.size, "before");
        const auto read = [&] { EXPECT_EQ(read_from_node(node, text.data(), static_cast<std::uint32_t>(c.size)), 0); };
        EXPECT_EQ(standard_output(read), c.printed);
        EXPECT_EQ(text.data(), c.text);
    }
}

TEST_F(node_test, a_missing_or_unreadable_node_fails_and_is_logged)
{
    char text[8] = "before";
    std::uint64_t value = 7;
    EXPECT_EQ(standard_output([&] {
                  EXPECT_EQ(read_from_node(node, text, sizeof text), -1);
                  EXPECT_EQ(write_to_node(node, "1"), -1);
                  EXPECT_EQ(get_data_from_node(node, &value), -1);
              }),
              "");
    EXPECT_FALSE(host.exists(node));
    EXPECT_TRUE(logged("get_data_from_node", "fopen() /sys/class/drm/node failed."));

    host.make_directory(node);
    EXPECT_EQ(read_from_node(node, text, sizeof text), -1);
    EXPECT_TRUE(logged("read_from_node", "read /sys/class/drm/node error"));
    EXPECT_STREQ(text, "before");
    EXPECT_EQ(value, 7u);
}

TEST_F(node_test, a_node_of_no_directory_is_missing_whatever_its_name_means)
{
    const node_path<> nowhere("", node);
    const std::string log_line = std::string("-1, No such file or directory, ") + node;
    host.write(node, "5\n");
    std::uint64_t value = 7;
    text_node text;
    long_text_node long_text;
    node_text<> number;
    EXPECT_EQ(number.read("", node), -1);
    EXPECT_EQ(write_to_node(nowhere, "6"), -1);
    EXPECT_EQ(messages_of("read_from_node"), (std::vector<std::string>{"open error", log_line}));
    EXPECT_EQ(messages_of("write_to_node"), (std::vector<std::string>{"open error", log_line}));
    EXPECT_EQ(get_data_from_node(nowhere, &value), -1);
    EXPECT_TRUE(logged("get_data_from_node", "fopen() /sys/class/drm/node failed."));
    EXPECT_FALSE(text.read(nowhere) || long_text.read(nowhere) || node_ref(nowhere).allows(F_OK));
    EXPECT_TRUE(text.read(node) && long_text.read(node) && node_ref(node).allows(F_OK));
    EXPECT_EQ(host.read(node), "5\n");
}

TEST_F(node_test, a_write_goes_out_unchanged_and_its_failure_is_logged)
{
    host.write(node, "100\n");
    EXPECT_EQ(write_to_node(node, "01"), 0);
    EXPECT_EQ(host.read(node), "01");
    host.fail_writes(node);
    EXPECT_EQ(write_to_node(node, "1"), -1);
    EXPECT_TRUE(logged("write_to_node", "write /sys/class/drm/node errno = No space left on device"));
}

TEST_F(node_test, a_file_that_is_no_attribute_is_not_truncated)
{
    host.write("/plain", "0123456789");
    EXPECT_EQ(write_to_node(host.path("/plain").c_str(), "ab"), 0);
    EXPECT_EQ(host.read("/plain"), "ab23456789");
}

TEST_F(node_test, hexadecimal_numbers)
{
    const struct {
        const char *content;
        std::uint64_t value;
    } cases[] = {{"0x1234\n", 4660}, {"abc\n", 2748}, {"none", 7}, {"", 7}, {"0xffffffffffffffffffff\n", UINT64_MAX}};
    for (const auto &c : cases) {
        host.write(node, c.content);
        std::uint64_t value = 7;
        EXPECT_EQ(get_data_from_node(node, &value), 0);
        EXPECT_EQ(value, c.value) << c.content;
    }
}

using text_test = sim_host;

// What patterns find is tried with the texts that they are for.
TEST_F(text_test, a_pattern_that_does_not_match_whole)
{
    unique_text out[3];
    EXPECT_EQ(pick_regex("xyz", "a(b)", 1, out), -1);
    EXPECT_EQ(pick_regex("abc", "(a)|(x)", 2, out), -1) << "a group that took no part";
    const std::string printed = standard_output([&] { EXPECT_EQ(pick_regex("abc", "(", 1, out), -1); });
    EXPECT_EQ(printed.substr(0, 4), "err:");
    EXPECT_EQ(printed.back(), '\n');
}

TEST_F(text_test, versions_are_measured_in_decimal_and_written_in_hexadecimal)
{
    const struct {
        std::uint32_t version;
        int size;
        const char *text;
    } cases[] = {
        {0x01020003, 10, "v1.2.3"},   {0x0a0b0c0d, 10, "before"}, // 2 + 2 + 4 + 3 is more than 10
        {0xffff0001, 10, "vff.ff.1"}, {0x01020003, 5, "before"},  {0, 10, "v0.0.0"},
    };
    for (const auto &c : cases) {
        char text[20] = "before";
        version_to_str(c.version, text, c.size);
        EXPECT_STREQ(text, c.text) << std::hex << c.version;
    }
    char text[20] = "before";
    version_to_str(0x0a0b0c0d, text, 20);
    EXPECT_STREQ(text, "va.b.c0d");
}

TEST_F(text_test, hexadecimal_digits_come_without_a_terminator)
{
    char text[10] = "#########";
    decimal_to_hex(0xABCDEF12, text, 7);
    EXPECT_STREQ(text, "#########");
    decimal_to_hex(0, text, 10);
    EXPECT_STREQ(text, "#########");
    decimal_to_hex(0xABCDEF12, text, 10);
    EXPECT_STREQ(text, "abcdef12#");
    EXPECT_NE(host.log().find("-<decimal_to_hex>: a[DBG]"), std::string::npos);
}

TEST_F(text_test, decimal_digits)
{
    for (const auto &[value, digits] : {std::pair{0, 0u}, {9, 1u}, {10, 2u}, {65535, 5u}, {-1, 10u}})
        EXPECT_EQ(bits_of_integer(value), digits) << value;
}

TEST_F(text_test, pci_addresses_are_stored_as_far_as_they_are_accepted)
{
    using address = std::array<std::uint64_t, 4>;
    const struct {
        const char *text;
        int result;
        address expected;
    } cases[] = {
        {"0001:0a:1f.7", 0, {1, 10, 31, 7}}, {"ABCD:EF:1f.0", 0, {0xabcd, 0xef, 31, 0}},
        {"0000:03:00.00", -1, {9, 9, 9, 9}}, {"", -1, {9, 9, 9, 9}},
        {"0002-03:00.0", -1, {9, 9, 9, 9}},  {"0002:3:000.0", -1, {2, 9, 9, 9}},
        {"0002:03:00:0", -1, {2, 3, 9, 9}},  {"0002:03:04.g", -1, {2, 3, 4, 9}},
        {"  +2: 3: 4.5", 0, {2, 3, 4, 5}},
    };
    for (const auto &c : cases) {
        address found{9, 9, 9, 9};
        EXPECT_EQ(parse_dbdf(c.text, &found[0], &found[1], &found[2], &found[3]), c.result) << c.text;
        EXPECT_EQ(found, c.expected) << c.text;
    }
}

} // namespace
