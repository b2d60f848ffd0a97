// SPDX-License-Identifier: Apache-2.0
#include "support/sensor_host.h"

namespace {

using static_attributes_test = sensor_host;

TEST_F(static_attributes_test, texts)
{
    const std::tuple<vekml_return_t (*)(vekml_device_t, char *), const char *, std::size_t> getters[] = {
        {vekml_device_get_vendor, "vek_vendor", 64},
        {vekml_device_get_fw_ver, "vek_fw_ver", 20},
        {vekml_device_get_serial, "vek_chip_id", 20},
        {vekml_device_get_vbios_version, "vek_vbios", 50},
        {vekml_device_get_primary_id, "vek_gpu_primary_id", 20},
        {vekml_device_get_primary_core_id, "vek_gpu_primary_core_id", 20},
    };
    for (const auto &[get, name, capacity] : getters) {
        std::vector<char> text(capacity, '#'); // of exactly the size that callers keep
        host.write(node(name), std::string(100, 'x'));
        EXPECT_EQ(call(get, text.data()).first, VEKML_SUCCESS);
        EXPECT_EQ(text.data(), std::string(capacity - 1, 'x')) << name;
        host.remove(node(name));
        EXPECT_EQ(call(get, text.data()), done);
        EXPECT_STREQ(text.data(), "") << name;
    }
    char uuid[20];
    EXPECT_EQ(vekml_device_get_uuid(gpu, uuid), VEKML_ERROR_NOT_FOUND);
    host.write(node("vek_chip_id"), "0123456789abcdef012\n");
    EXPECT_EQ(vekml_device_get_uuid(gpu, uuid), VEKML_SUCCESS);
    EXPECT_EQ(std::string(uuid) + gpu->uuid, "0123456789abcdef0120123456789abcde");
}

TEST_F(static_attributes_test, memory)
{
    const std::string nodes[] = {node("vek_gddr_size"), node("vek_gddr_phys_speed"), node("vek_gddr_count")};
    std::uint32_t size = 7, count = 7;
    std::uint64_t speed = 7;
    const auto expect = [&](vekml_return_t result, std::uint32_t s, std::uint64_t v, std::uint32_t c) {
        EXPECT_EQ(vekml_device_get_gddr_size(gpu, &size), result);
        EXPECT_EQ(vekml_device_get_gddr_speed(gpu, &speed), result);
        EXPECT_EQ(vekml_device_get_gddr_count(gpu, &count), VEKML_SUCCESS);
        EXPECT_EQ(std::tie(size, speed, count), std::tie(s, v, c));
    };
    for (const auto &path : nodes)
        host.write(path, "020\n");
    expect(VEKML_SUCCESS, 20, 16, 20);
    for (const auto &path : nodes)
        host.remove(path);
    expect(VEKML_ERROR_NODE_IO, 20, 16, 0);
    for (const auto &path : nodes)
        host.make_directory(path); // there, but not to be read
    expect(VEKML_SUCCESS, 0, 0, 0);

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
    EXPECT_EQ(vekml_device_get_asic_type(gpu, &type), VEKML_ERROR_NODE_IO);
    EXPECT_EQ(vekml_device_get_chip_process(gpu, &process), VEKML_ERROR_NOT_FOUND);

    std::vector<char> name(4, '#'); // no terminator anywhere
    EXPECT_EQ(vekml_device_get_device_model(gpu, name.data(), 4), VEKML_SUCCESS);
    EXPECT_TRUE(logged("vekml_device_get_device_model", "device_model:unk#"));
    gpu->model_device_id = 0x4a1f; // known since the start
    EXPECT_EQ(vekml_device_get_chip_process(gpu, &process), VEKML_SUCCESS);
}

TEST_F(static_attributes_test, facts_from_the_static_node_and_the_identity_tables)
{
    const std::string info = host.card(0, "device/gpu_static_info");
    const outcome no_bounds{VEKML_ERROR_NOT_FOUND, "call vekml_device_id_to_gfx_bound to get bound of gfx failed.\n"};
    std::uint32_t width = 7, cores = 7;
    float texture = 7, pixel = 7;
    char decoder[9], encoder[9], vendor[8];
    host.write(info, "0 8 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 2");
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
    host.remove(info);
    EXPECT_EQ(vekml_device_get_num_gpu_cores(gpu, &cores), VEKML_ERROR_NOT_FOUND);
    EXPECT_EQ(vekml_device_get_pixel_fill_rate(gpu, &pixel), VEKML_ERROR_NOT_FOUND);
    EXPECT_EQ(vekml_device_get_gddr_vendor(gpu, vendor), VEKML_ERROR_NOT_FOUND);
    EXPECT_EQ(std::tie(texture, pixel, width, cores), std::make_tuple(0.0F, 0.0F, 0u, 0u));
}

} // namespace
