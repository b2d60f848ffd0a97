// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

#include <cstring>

namespace {

constexpr char request_step[] = "vekml_device_query_static_info_helper";

class static_info_test : public sensor_host {
protected:
    static_info_test() { std::memset(&query, '#', sizeof query); }
    vekml_return_t ask() { return vekml_device_query_static_info(gpu, &query); }

    const std::string info = host.card(0, "device/gpu_static_info");
    vekml_device_query_t query;
};

TEST_F(static_info_test, the_node_fills_its_fields_and_no_other)
{
    host.write(info, "1 8 4 16 14000000000 7 2 2882400018 18975 1 16908291 65540 1 2 3 4 900000000 1 33\n");
    EXPECT_EQ(ask(), VEKML_SUCCESS);
    EXPECT_EQ(std::tie(query.device_id, query.gddr_package_model), std::make_tuple(18975u, 33u));
    for (const char other : {query.static_text[0], query.primary_core_id[0], query.name[0], query.serial[0]})
        EXPECT_EQ(other, '#');
}

TEST_F(static_info_test, numbers_become_texts)
{
    const std::pair<const char *, const char *> cases[] = {
        {"0 1 1 1 1 4294967295 0 0 0 0 65540 65540", "CHIP_TALON_A0 -1 VEK  Display Card v0.1.4 v0.1.4"},
        {"3 1 1 1 1 -2147483648 -1 10 0 2 -1 -1", " -21474836 OTHERS a  N/A vff.ff.ffff"}};
    for (const auto &[values, texts] : cases) {
        host.write(info, values);
        EXPECT_EQ(ask(), VEKML_SUCCESS);
        EXPECT_EQ(std::string(query.asic_type) + " " + query.primary_id + " " + query.vendor + " " + query.uuid + " " +
                      query.card_type + " " + query.fw_ver + " " + query.vbios_version,
                  texts);
        EXPECT_EQ(query.primary_core_id[0], '#');
    }
}

TEST_F(static_info_test, values_that_the_node_lacks_stay)
{
    const std::pair<std::string, std::uint32_t> cases[] = {
        {"", 7}, {"1 x 3", 7}, {std::string("1 2\0 3", 6), 2}, {"1 -1", UINT32_MAX}, {std::string(100000, '1'), 7}};
    vekml_gpu_static_info_t record;
    for (const auto &[text, cores] : cases) {
        host.write(info, text);
        record.core_num = record.gddr_count = 7;
        EXPECT_EQ(vekml_read_static_info_from_node(gpu->card_path, &record), VEKML_SUCCESS);
        EXPECT_EQ(std::tie(record.core_num, record.gddr_count), std::make_tuple(cores, 7u)) << text.size();
    }
}

TEST_F(static_info_test, the_driver_is_asked_when_there_is_no_node)
{
    const std::string head = "u32 0 8 4 16\nu64 5\nu32 6 0 171 18975 0\ntext 32 ";
    host.remove(info);
    host.fail("/dev/dri/card0", 13);
    EXPECT_EQ(ask(), VEKML_ERROR_NO_PERMISSION);
    EXPECT_TRUE(logged(request_step, "permission denied!"));
    host.write("/dev/dri/card0", "");
    host.fail_request(0, veksim::first_static_request, 5);
    host.fail_request(0, veksim::second_static_request, 5);
    EXPECT_EQ(ask(), VEKML_ERROR_NO_PERMISSION);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&query), sizeof query), std::string(sizeof query, '#'));

    host.write(host.request(0, veksim::second_static_request), head + "the second\n");
    EXPECT_EQ(ask(), VEKML_SUCCESS);
    EXPECT_STREQ(query.static_text, "the second");
    host.write(host.request(0, veksim::first_static_request), head + std::string(40, 'x') + "\n");
    EXPECT_EQ(ask(), VEKML_SUCCESS);
    EXPECT_EQ(query.static_text, std::string(31, 'x'));
    EXPECT_TRUE(logged(request_step, ", gddr_speed: 5\n    , primary_id: 6\n, vendor: VEK\n, uuid: ab\n"));
}

} // namespace
