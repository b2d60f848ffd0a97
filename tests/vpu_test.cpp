// SPDX-License-Identifier: Apache-2.0
#include "build_paths.h"
#include "support/sim_host.h"

#include "va_library.h"
#include "veksim.h"
#include "vpu_counters.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using namespace std::string_literals;

// Reserved and executed commands: the encoder's, then the decoder's.
using load_figures = std::array<std::uint32_t, 4>;

constexpr char xmem[] = "/sys/kernel/debug/vpu/xmem";
constexpr char get_info[] = "vekml_device_get_vpu_info";
constexpr char get_utlz[] = "vekml_device_get_vpu_utlz";

std::string supported_slots(const vpu_cap_item *slots, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += slots[i].supported == 1 ? std::string(" ") + slots[i].name : "";
    return text;
}

// One line for each codec that is there, with all it can do.
std::string supported_codecs(const Vpu_codec_info_st &info)
{
    std::string text;
    const auto add = [&](const auto &codec, const std::string &rates) {
        const std::string formats = supported_slots(codec.image_formats, VEKML_VPU_IMAGE_FORMATS);
        if (codec.supported != 0 || !(formats + rates).empty())
            text += std::string(codec.name) + ":" + formats + (rates.empty() ? "" : " |" + rates) + "\n";
    };
    for (const vpu_decoder_item &codec : info.decoders)
        add(codec, "");
    for (const vpu_encoder_item &codec : info.encoders)
        add(codec, supported_slots(codec.rate_controls, VEKML_VPU_RATE_CONTROLS));
    return text;
}

class vpu_test : public sim_host {
protected:
    vpu_test()
    {
        setenv("LIBVA_DRIVER_NAME", "another", 1);
        unsetenv("LIBVA_DRIVERS_PATH");
    }
    ~vpu_test() override { unsetenv("LIBVA_DRIVER_NAME"); }
    vekml_device_t start_with_video()
    {
        veksim::gpu_config config;
        config.card = 2;
        host.add_gpu(config);
        host.add_video_libraries();
        return start();
    }
    void describe(std::string engines)
    {
        std::replace(engines.begin(), engines.end(), ';', '\n');
        host.write("/usr/lib/aarch64-linux-gnu/dri/vekgpu_drv_video.conf", engines);
    }
    // A capability query leaves the process as it found it, whatever comes of it.
    int query(vekml_device_t gpu)
    {
        const int descriptor = dup(0);
        close(descriptor);
        testing::internal::CaptureStderr();
        const int result = vekml_device_get_vpu_info(gpu, info.get());
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_STREQ(getenv("LIBVA_DRIVER_NAME"), "another");
        EXPECT_EQ(getenv("LIBVA_DRIVERS_PATH"), nullptr);
        EXPECT_EQ(dup(0), descriptor);
        close(descriptor);
        return result;
    }
    int load(vekml_device_t gpu) { return vekml_device_get_vpu_utlz(gpu, &rates[0], &rates[1], &rates[2], &rates[3]); }
    void write_counters(const std::string &encoder, const std::string &decoder)
    {
        host.write(xmem, "\n\ndec: 30 enc:60\nvcmd_enc_stat:" + encoder + " vcmd_dec_stat:" + decoder + "\n");
    }
    const std::unique_ptr<Vpu_codec_info_st> info = std::make_unique<Vpu_codec_info_st>();
    load_figures measure(vekml_device_t gpu, int seconds, const std::string &encoder, const std::string &decoder)
    {
        veksim_advance(seconds * std::int64_t{1'000'000});
        write_counters(encoder, decoder);
        EXPECT_EQ(load(gpu), VEKML_SUCCESS);
        return rates;
    }
    load_figures rates{7, 7, 7, 7};
};

} // namespace

TEST_F(vpu_test, without_the_libraries)
{
    host.add_gpu();
    vekml_device_t gpu = start();
    EXPECT_TRUE(logged("scan_vpus_when_smi_inited", "our libva.so or libva-drm.so is not fount"));
    std::uint32_t valid = 7;
    EXPECT_EQ(vekml_get_vpu_functions_valid(&valid), VEKML_SUCCESS);
    EXPECT_EQ(valid, 0u);
    std::memset(info.get(), 0xff, sizeof *info);
    EXPECT_EQ(query(gpu), VEKML_ERROR_LIBRARY_NOT_FOUND);
    EXPECT_STREQ(info->vendor, "UNKOWN");
    EXPECT_EQ(supported_codecs(*info), "");
    EXPECT_STREQ(info->decoders[24].name, "hevc main yuv422 10it decoder");
    EXPECT_EQ(info->encoders[36].profile, 36u);
    EXPECT_EQ(info->encoders[36].rate_controls[11].index, 11u);

    EXPECT_EQ(vekml_device_get_vpu_info(nullptr, info.get()), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(vekml_device_get_vpu_info(gpu, nullptr), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(load(nullptr), VEKML_ERROR_LIBRARY_NOT_FOUND) << "before any argument is looked at";

    host.add_video_libraries();
    EXPECT_EQ(load(gpu), VEKML_ERROR_LIBRARY_NOT_FOUND) << "looked for once a process";
    EXPECT_EQ(vekml_get_vpu_functions_valid(nullptr), VEKML_ERROR_INVALID_ARGUMENT);
}

TEST_F(vpu_test, libraries_are_looked_for_in_order)
{
    host.write("/usr/lib64/vekgpu/libva.so", "");
    host.write("/usr/lib/aarch64-linux-gnu/vekgpu/libva-drm.so", "");
    std::uint32_t valid = 7;
    EXPECT_EQ(vekml_get_vpu_functions_valid(&valid), VEKML_SUCCESS);
    EXPECT_EQ(valid, 1u) << "there, as far as anyone looked";
    EXPECT_EQ(messages_of("isLibVaValid").size(), 8u) << "no path after the one found";
    EXPECT_TRUE(logged("isLibVaValid", "looking for /usr/lib64/vekgpu/libva-drm.so, result:-1"));
}

TEST_F(vpu_test, files_that_are_no_libraries)
{
    vekml_device_t gpu = start_with_video();
    for (const char *name : {"libva.so", "libva-drm.so"})
        host.write(std::string("/opt/vekgpu/lib/aarch64-linux-gnu/") + name, "no library");
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none); // the installed ones cannot be opened either
    const int result = vekml_device_get_vpu_info(gpu, info.get());
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(result, VEKML_ERROR_LIBRARY_NOT_FOUND);
    EXPECT_STREQ(getenv("LIBVA_DRIVER_NAME"), "another");

    EXPECT_EQ(query(gpu), VEKML_SUCCESS) << "the installed ones serve";
    EXPECT_EQ(dlopen("libva.so.2", RTLD_LAZY | RTLD_NOLOAD), nullptr) << "and leave the process again";

    // libva that the process has itself is used without a file; libva-drm alone does not do.
    const vekml::library_sources nowhere{nullptr, "libvekgpu-none.so.9"}, drm{nullptr, "libva-drm.so.2"};
    EXPECT_FALSE(vekml::va_library().load(nowhere, drm));
    const auto with_its_own = [&] {
        return dlopen("libva.so.2", RTLD_LAZY | RTLD_GLOBAL) != nullptr && vekml::va_library().load(nowhere, drm);
    };
    EXPECT_EXIT(_exit(with_its_own()), testing::ExitedWithCode(true),
                ""); // it would stay, once used like that
}

TEST_F(vpu_test, codecs)
{
    vekml_device_t gpu = start_with_video();
    describe("vendor " + std::string(100, 'v') +
             ";profile 37; entrypoint 1; attribute 0 0x1"
             ";profile 6; entrypoint 1; attribute 0 0x200101; entrypoint 6; attribute 0 0x1; attribute 5 0x1016"
             ";profile 12; entrypoint 7; attribute 0 0x2; attribute 5 0x2"
             ";profile 7; entrypoint 7; attribute 0 0x10; entrypoint 6; attribute 0 0x4; attribute 5 0x80"
             ";profile 8; entrypoint 1; attribute 0 0x80000000; entrypoint 6; attribute 5 0x4"
             ";profile 36; entrypoint 10; attribute 0 0x1; entrypoint 1; attribute 0 0x100"
             ";profile 13; fail 12;profile 14; fail 1"
             ";profile 15; entrypoint 1; fail 12;profile 16; entrypoint 1; fail 13"
             ";profile 17; entrypoint 1; fail 1; entrypoint 7; fail 1");
    EXPECT_EQ(query(gpu), VEKML_SUCCESS);
    EXPECT_EQ(std::string(info->vendor), std::string(63, 'v'));
    EXPECT_EQ(supported_codecs(*info), "h264 main decoder: yuv420 yuv420-10b rgb32-10b\n"
                                       "vc1 simple decoder:\n"
                                       "h264 high 10bit decoder: yuv420-10b\n"
                                       "h264 main encoder: yuv420 | cbr vbr cqp tcbrc\n"
                                       "h264 high encoder: yuv444 greyscale | mb\n"
                                       "vc1 simple encoder: | vbr\n"
                                       "jpeg baseline encoder: yuv422\n");

    // From now on the answer is remembered.
    host.remove("/dev/dri/card2");
    describe("init 1");
    const auto first = std::make_unique<Vpu_codec_info_st>(*info);
    std::memset(info.get(), 0, sizeof *info);
    EXPECT_EQ(query(gpu), VEKML_SUCCESS);
    EXPECT_EQ(std::memcmp(info.get(), first.get(), sizeof *info), 0);
}

TEST_F(vpu_test, a_driver_s_counts_go_no_further_than_the_room_it_was_given)
{
    vekml_device_t gpu = start_with_video();
    for (const char *claim : {"100000", "-1"}) {
        describe("max_profiles 2; max_entrypoints 1; claim "s + claim +
                 ";profile 6; claim 100000; entrypoint 1; attribute 0 0x1;profile 7; claim -1; entrypoint 1");
        gpu->vpu_codec_info.valid = 0;
        EXPECT_EQ(query(gpu), VEKML_SUCCESS);
        EXPECT_EQ(supported_codecs(*info), *claim == '-' ? "" : "h264 main decoder: yuv420\n");
    }
}

TEST_F(vpu_test, failed_capability_queries)
{
    vekml_device_t gpu = start_with_video();
    const std::tuple<const char *, int, const char *> failures[] = {
        {"init 1", 999, "failed to initialize libva, err code:0x"},
        {"max_profiles 0", 999, "failed to initialize libva, err code:0x"},
        {"max_profiles -1", 3, "the specified vpu dose not support any profile!"},
        {"max_entrypoints -1", 3, "the vpu dose not support any entrypoint!"},
        {"query 1", 3, "failed to query the profiles for the vpu, err code:0x       1"}};
    for (const auto &[engines, result, message] : failures) {
        describe(engines);
        EXPECT_EQ(query(gpu), result) << engines;
        EXPECT_TRUE(logged(get_info, message)) << engines;
        host.remove("/tmp/smi.log");
    }
    host.remove("/sys/dev/char/226:2"); // no DRM node then, for all libva can tell
    EXPECT_EQ(query(gpu), VEKML_ERROR_UNKNOWN);
    host.make_directory("/dev/dri/card2");
    EXPECT_EQ(query(gpu), VEKML_ERROR_NO_PERMISSION);
    host.remove("/dev/dri/card2");
    EXPECT_EQ(query(gpu), VEKML_ERROR_NOT_FOUND);
    for (const char *message : {"failed to get the DRM display from libva!", "/dev/dri/card2 failed! maybe",
                                "vpu device node /dev/dri/card2 is not exist!"})
        EXPECT_TRUE(logged(get_info, message)) << message;
    EXPECT_EQ(info->vendor[0], '\0') << "untouched by all of them";
}

TEST_F(vpu_test, the_first_sample_decides)
{
    start_with_video();
    const std::tuple<std::string, std::uint32_t, std::string> nodes[] = {
        {"a\nb\ndec:1 enc:1\n", 3, "but do not get useful infomation!"},
        {std::string(800, 'a') + "\nb\nvcmd_enc_stat:1 vcmd_dec_stat:1\n", 0, "dec_vcmd_num(1)"},
        {"\n\n\nvcmd_dec_stat:1\n", 3, "can not find vcmd_enc_stat!"},
        {"\n\n\nvcmd_enc_stat:x vcmd_dec_stat:1\n", 3, "sscanf vcmd_enc_stat failed!"},
        {"\n\n\nvcmd_enc_stat:1 vcmd_dec_stat:", 3, "sscanf vcmd_dec_stat failed!"},
        {"\n\n\nvcmd_enc_stat: 99999999999999999999 vcmd_dec_stat:12", 0,
         "init gpu(idx:2)'s vpu ultilization from the node(/sys/kernel/debug/vpu/xmem): "
         "enc_vcmd_num(18446744073709551615), dec_vcmd_num(12)"}};
    for (const auto &[text, status, message] : nodes) {
        host.write(xmem, text);
        EXPECT_EQ(start()->vpu_utlz_status, status) << text;
        EXPECT_TRUE(logged("initVpuUtlz", message)) << text;
        host.remove("/tmp/smi.log");
    }
    for (const auto &[error, status] : {std::pair{EACCES, 4u}, {EIO, 999u}, {ENOENT, 6u}}) {
        host.fail(xmem, error);
        EXPECT_EQ(start()->vpu_utlz_status, status);
    }
    EXPECT_TRUE(logged("initVpuUtlz", "can not access the node(/sys/kernel/debug/vpu/xmem)! errno:5, "));
    host.remove(xmem);
    write_counters("1", "1");
    EXPECT_EQ(load(&globals.devices[0]), VEKML_ERROR_NOT_FOUND) << "for good";
}

TEST_F(vpu_test, load_since_the_previous_sample)
{
    host.add_video_libraries(false);
    host.add_gpu();
    write_counters("1000", "500");
    vekml_device_t gpu = start();
    EXPECT_EQ(measure(gpu, 1000, "61500", "500"), (load_figures{60, 60, 30, 0}));
    EXPECT_TRUE(logged(get_utlz, "enc_vcmd_excuted_fps[60] , dec_vcmd_reserved_fps[30], "));

    // Nothing to go by: the previous sample and the outputs stay.
    const std::pair<std::string, std::string> texts[] = {
        {"a\nb\ndec:1 \nvcmd_enc_stat:5 vcmd_dec_stat:5\n", "can not find vpu encoder reserved "},
        {"a\nb\ndec: enc:1\nvcmd_enc_stat:5 vcmd_dec_stat:5\n", "sscanf vpu decoder reserved commands "},
        {"a\nb\ndec:-1 enc:1\nvcmd_enc_stat:5 vcmd_dec_stat:5\n", ""},
        {"a\nb\ndec:1 enc:1\nvcmd_dec_stat:5\n", "can not find vpu encoder excuted commands number"},
        {"a\nb\ndec:1 enc:1\nvcmd_enc_stat:5 vcmd_dec_stat:-\n", "sscanf vpu decoder excuted commands "},
        {"a\nb\ndec:1 enc:1\n", ""}};
    for (const auto &[text, message] : texts) {
        host.write(xmem, text);
        EXPECT_EQ(load(gpu), VEKML_ERROR_NOT_SUPPORTED) << text;
        EXPECT_TRUE(logged(get_utlz, message)) << text;
    }
    host.fail(xmem, EACCES);
    EXPECT_EQ(load(gpu), VEKML_ERROR_NO_PERMISSION);
    EXPECT_EQ(load(nullptr), VEKML_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(vekml_device_get_vpu_utlz(gpu, &rates[0], &rates[1], &rates[2], nullptr), 2);
    EXPECT_EQ(rates, (load_figures{60, 60, 30, 0}));

    host.remove(xmem);
    EXPECT_EQ(measure(gpu, 2000, "61500", "11500"), (load_figures{60, 0, 30, 5}));
    EXPECT_EQ(measure(gpu, -1000, "99999", "99999"), (load_figures{60, 0, 30, 0})) << "clock set back";
    EXPECT_EQ(measure(gpu, 1000, "10", "102499"), (load_figures{60, INT32_MAX, 30, 2})) << "reset";
}

TEST(vpu_counters, rates)
{
    EXPECT_EQ(vekml::elapsed_seconds(100, 900'000, 101, 400'000), 0.5F);
    EXPECT_EQ(vekml::commands_per_second(1000, 1030, 0.5F), 60);
    EXPECT_EQ(vekml::commands_per_second(0, 16'777'217, 1.0F), 16'777'216) << "counted in single precision";
    EXPECT_EQ(vekml::commands_per_second(UINT64_MAX, 5, 1.0F), 5) << "one short of the wrap-around";
}
