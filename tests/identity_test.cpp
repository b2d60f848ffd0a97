// SPDX-License-Identifier: Apache-2.0
#include "sim_host.h"

#include <cstring>

namespace {

using identity_test = sim_host;

constexpr std::uint32_t unknown_id = 0xffff;

TEST_F(identity_test, model_names)
{
    const auto &row = idModelArray[1];
    char model[16] = "###############";
    EXPECT_EQ(device_id_to_model(row.device_id, model, 7), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_STREQ(model, "###############");
    EXPECT_EQ(device_id_to_model(row.device_id, model, 8), VEKML_SUCCESS);
    EXPECT_EQ(std::string(model), std::string(row.model).substr(0, 7) + "########") << "no terminator at size - 1";
    EXPECT_EQ(device_id_to_model(unknown_id, model, 7), VEKML_ERROR_NOT_FOUND);
    EXPECT_EQ(std::string(model).substr(0, 6), "unknow");

    std::memset(model, 0, sizeof model);
    EXPECT_EQ(device_id_to_model_with_size(row.device_id, model, 4), VEKML_SUCCESS);
    EXPECT_STREQ(model, "VEK");
    EXPECT_EQ(device_id_to_model_with_size(unknown_id, model, sizeof model), VEKML_ERROR_NOT_FOUND);
    EXPECT_STREQ(model, "unknown");
    EXPECT_EQ(device_id_to_model_with_size(unknown_id, model, 0), VEKML_ERROR_NOT_FOUND);
}

TEST_F(identity_test, every_model_is_found_by_id_and_by_name)
{
    for (const auto &row : idModelArray) {
        std::uint32_t id = 0, process = 0, width = 0, lower = 0, upper = 0;
        char decoder[9], encoder[9];
        EXPECT_EQ(is_right_device_id(row.device_id), VEKML_SUCCESS);
        EXPECT_EQ(model_to_device_id_and_chip_process(row.model, &id, &process), VEKML_SUCCESS);
        EXPECT_EQ(vekml_device_id_to_gddr_width(row.device_id, &width), VEKML_SUCCESS);
        EXPECT_EQ(vekml_device_id_to_gfx_bound(row.device_id, &lower, &upper), VEKML_SUCCESS);
        EXPECT_EQ(device_id_to_video_decoder_encoder(row.device_id, decoder, encoder), VEKML_SUCCESS);
        EXPECT_EQ(std::tie(id, process, width, lower, upper),
                  std::tie(row.device_id, row.chip_process, row.gddr_width, row.lower_bound, row.upper_bound));
        EXPECT_STREQ(decoder, row.decoder);
        EXPECT_STREQ(encoder, row.encoder);
    }
}

TEST_F(identity_test, unknown_ids_and_names)
{
    std::uint32_t id = 5, process = 6, width = 7, lower = 8, upper = 9;
    char decoder[9], encoder[9];
    EXPECT_EQ(is_right_device_id(unknown_id), VEKML_ERROR_NOT_FOUND);
    for (const char *name : {"VEK E100 ", "vek E100", "", "VEK E100\n"})
        EXPECT_EQ(model_to_device_id_and_chip_process(name, &id, &process), VEKML_ERROR_NOT_FOUND) << name;
    EXPECT_EQ(model_to_device_id_and_chip_process(nullptr, &id, &process), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(model_to_device_id_and_chip_process("VEK E100", nullptr, &process), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(device_id_to_chip_process(unknown_id, &process), VEKML_ERROR_NOT_FOUND);
    EXPECT_EQ(device_id_to_chip_process(unknown_id, nullptr), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(std::tie(id, process), std::make_tuple(5u, 6u));
    EXPECT_EQ(vekml_device_id_to_gddr_width(unknown_id, &width), VEKML_ERROR_NOT_FOUND);
    EXPECT_EQ(vekml_device_id_to_gfx_bound(unknown_id, &lower, &upper), VEKML_ERROR_NOT_FOUND);
    EXPECT_EQ(std::tie(width, lower, upper), std::make_tuple(0u, 50u, 1000u));
    EXPECT_EQ(device_id_to_video_decoder_encoder(unknown_id, decoder, encoder), VEKML_ERROR_NOT_FOUND);
    EXPECT_STREQ(decoder, "unknown");
    EXPECT_STREQ(encoder, "unknown");
}

TEST_F(identity_test, the_model_is_cut_out_of_the_node_text)
{
    const struct {
        const char *text, *model;
        std::uint32_t size;
    } cases[] = {
        {"VEK E100 1", "VEK E100", 64},
        {"VEK G500 PRO 1", "VEK G500 PRO", 64},
        {"VEK", "unknown", 64},
        {"other 1", "unknown", 64},
        {"", "unknown", 64},
        {"VEK E100 1", "VEK", 4},
        {"my VEK ", "my VEK", 64},
        {"VEK E100 1", "", 1},
    };
    for (const auto &c : cases) {
        char model[64] = "####";
        parse_device_model(c.text, model, c.size);
        EXPECT_STREQ(model, c.model) << c.text;
    }
    char untouched = '#';
    parse_device_model("VEK E100 1", &untouched, 0);
    EXPECT_EQ(untouched, '#');
}

} // namespace
