// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

namespace {

using static_attributes_test = sensor_host;

TEST_F(static_attributes_test, uuid)
{
    char uuid[20];
    host.write(node("vek_chip_id"), "0123456789abcdef012\n");
    EXPECT_EQ(vekml_device_get_uuid(gpu, uuid), VEKML_SUCCESS);
    EXPECT_EQ(std::string(uuid) + gpu->uuid, "0123456789abcdef0120123456789abcde");
}

TEST_F(static_attributes_test, memory_type)
{
    char type[6] = "#";
    EXPECT_EQ(vekml_device_get_gddr_type(gpu, type, 4), VEKML_ERROR_INSUFFICIENT_SIZE);
    EXPECT_EQ(vekml_device_get_gddr_type(gpu, type, 5), VEKML_SUCCESS);
    EXPECT_STREQ(type, "GDDR6");
}

TEST_F(static_attributes_test, model)
{
    std::uint32_t type = 7, process = 7;
    gpu->model_device_id = 65535;
    gpu->device_id = 1;
    const auto expect = [&](const char *text, std::uint32_t expected_type, vekml_return_t expected_result) {
        host.write(node("vek_device_model"), text);
        EXPECT_EQ(vekml_device_get_asic_type(gpu, &type), VEKML_SUCCESS);
        EXPECT_EQ(type, expected_type) << text;
        EXPECT_EQ(vekml_device_get_chip_process(gpu, &process), expected_result) << text;
    };
    expect("\n", 2, VEKML_ERROR_NOT_FOUND);
    expect(" VEK  M310  9 \n", 9, VEKML_ERROR_NOT_FOUND);
    EXPECT_EQ(process, 7u);
    expect("VEK M385 PRO 0\n", 0, VEKML_SUCCESS);
    EXPECT_EQ(process, 12u);
    host.remove(node("vek_device_model"));
    std::vector<char> name(4, '#'); // no terminator anywhere
    EXPECT_EQ(vekml_device_get_device_model(gpu, name.data(), 4), VEKML_SUCCESS);
    EXPECT_TRUE(logged("vekml_device_get_device_model", "device_model:unk#"));
    gpu->model_device_id = 0x4a1f; // known since the start
    EXPECT_EQ(vekml_device_get_chip_process(gpu, &process), VEKML_SUCCESS);
}

TEST_F(static_attributes_test, facts_from_the_static_node_and_the_identity_tables)
{
    const outcome no_bounds{VEKML_ERROR_NOT_FOUND, "call vekml_device_id_to_gfx_bound to get bound of gfx failed.\n"};
    std::uint32_t width = 7;
    float texture = 7, pixel = 7;
    char decoder[9], encoder[9], vendor[8];
    host.write(host.card(0, "device/gpu_static_info"), "0 8 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 2");
    EXPECT_EQ(call(vekml_device_get_gddr_vendor, vendor), done);
    EXPECT_EQ(call(vekml_device_get_texture_fill_rate, &texture), done);
    EXPECT_EQ(call(vekml_device_get_pixel_fill_rate, &pixel), done);
    EXPECT_EQ(call(vekml_device_get_gddr_width, &width), done);
    EXPECT_EQ(call(vekml_device_get_video_decoder_encoder, decoder, encoder), done);
    EXPECT_EQ(std::tie(texture, pixel, width), std::make_tuple(256.0F, 128.0F, 128u));
    EXPECT_EQ(std::string(decoder) + encoder + vendor, "4K1204K60Micron");

    gpu->device_id = 1;
    EXPECT_EQ(call(vekml_device_get_texture_fill_rate, &texture), no_bounds);
    EXPECT_EQ(call(vekml_device_get_gddr_width, &width).first, VEKML_ERROR_NOT_FOUND);
    EXPECT_EQ(call(vekml_device_get_video_decoder_encoder, decoder, encoder).first, VEKML_ERROR_NODE_IO);
    EXPECT_EQ(std::tie(texture, width), std::make_tuple(0.0F, 0u));
}

} // namespace
