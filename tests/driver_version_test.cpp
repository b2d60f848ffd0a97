// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

#include "debugfs_dump.h"

namespace {

class driver_version_test : public sensor_host {
protected:
    /** DDK, KMD and UMD version behind the result. */
    std::string ask()
    {
        vekml_driver_version_t version{"a", "b", "c"};
        const int result = vekml_device_get_driver_version(gpu, &version);
        return std::to_string(result) + " " + version.ddk + " " + version.kmd + " " + version.umd;
    }
};

TEST_F(driver_version_test, from_the_node)
{
    host.write(host.card(0, "version"), "1 2 3 4 5 6 7\n");
    EXPECT_EQ(ask(), "0 5.6.7 3.4 1.2");
    host.write(host.card(0, "version"), "-2147483648 -2147483648 1 x");
    EXPECT_EQ(ask(), "0 0.0.0 1.0 -2147483648.-214748");
}

TEST_F(driver_version_test, from_the_dump)
{
    const std::string filler(16383, 'x'), um_km = "\nUM info: 1.10 release\r\nKM info: 2.3 x\n",
                                          ddk = "\nddk info: vekgpu driver 1.4.0\n";
    const std::pair<std::string, const char *> cases[] = {
        {filler + um_km + ddk, "0 1.4.0 1.10 2.3"}, {um_km.substr(1), "0 N/A N/A N/A"}, {um_km, "0 N/A 1.10 2.3"}};
    host.remove(host.card(0, "version"));
    for (const auto &[text, expected] : cases) {
        host.write(host.debug_dump(), text);
        EXPECT_EQ(ask(), expected);
    }
    host.remove(host.debug_dump());
    EXPECT_EQ(ask(), "-1 a b c");
    host.set_euid(1000);
    EXPECT_EQ(ask(), "4 N/A N/A N/A");
}

TEST_F(driver_version_test, the_dump_buffer_doubles_while_it_is_filled)
{
    for (const auto &[bytes, size] :
         {std::pair{16383u, 16384u}, {16384, 32768}, {70000, 131072}, {1u << 21, 1u << 20}}) {
        host.write(host.debug_dump(), std::string(bytes, 'x'));
        const auto dump = vekml::read_debugfs_dump(host.debug_dump().c_str());
        EXPECT_EQ(dump.size, size);
        EXPECT_TRUE(dump.text.get() == std::string(std::min(bytes, size - 1), 'x'));
    }
}

} // namespace
