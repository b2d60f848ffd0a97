// SPDX-License-Identifier: Apache-2.0
#include "vek_smi_vpu_api.h"

#include "vekml.h"

#include "debug_log.h"
#include "raii.h"
#include "va_library.h"
#include "vek_smi_utils.h"
#include "vpu_counters.h"
#include "vpu_tables.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <span>
#include <sys/time.h>

using namespace vekml;

std::int32_t vekml::video_libraries_valid = video_libraries_unknown;

namespace {

// ---- The video libraries ----

constexpr const char *libva_files[] = {
    "/opt/vekgpu/lib/aarch64-linux-gnu/libva.so",
    "/usr/lib64/vekgpu/libva.so",
    "/usr/lib/aarch64-linux-gnu/vekgpu/libva.so",
};
constexpr const char *libva_drm_files[] = {
    "/opt/vekgpu/lib/aarch64-linux-gnu/libva-drm.so",
    "/usr/lib64/vekgpu/libva-drm.so",
    "/usr/lib/aarch64-linux-gnu/vekgpu/libva-drm.so",
};

// The files found; their loading is left to the first query that needs them.
library_sources libva{nullptr, "libva.so.2"};
library_sources libva_drm{nullptr, "libva-drm.so.2"};

constexpr char libraries_missing[] =
    "get vpu info failed, there is not libva.so or libva-drm.so, whitch means the vekgpu "
    "driver is not installed correctly!";

/** The first of the files that exists, or null. */
const char *find_library(const char *step, std::span<const char *const> files)
{
    for (const char *file : files) {
        const int result = access(file, F_OK);
        TRACE_AS(step, "looking for %s, result:%d", file, result);
        if (result == 0)
            return file;
    }
    return nullptr;
}

void isLibVaValid()
{
    TRACE("checking if there is libva.so...");
    libva.file = find_library(__func__, libva_files);
    TRACE("checking if there is libva-drm.so...");
    libva_drm.file = find_library(__func__, libva_drm_files);
    TRACE("looked for libva, the aarch is __aarch64__");
    video_libraries_valid = libva.file != nullptr && libva_drm.file != nullptr;
}

bool video_libraries_found()
{
    if (video_libraries_valid == video_libraries_unknown)
        isLibVaValid();
    return video_libraries_valid != 0;
}

// ---- Codec capabilities ----

/** Steps without a name of their own are in the log as the exported function that asks. */
constexpr char get_vpu_info[] = "vekml_device_get_vpu_info";

void myVaInfoCallback(void *, const char *message)
{
    TRACE("libva-info:[%s]", message);
}

void myVaErrCallback(void *, const char *message)
{
    TRACE("libva-error:[%s]", message);
}

/** Makes libva choose the GPU's own VA driver; the variables get their old values back in the end. */
class driver_choice {
public:
    driver_choice()
    {
        // Copies: what getenv hands out does not outlive a setenv.
        for (variable &each : variables_) {
            const char *old = getenv(each.name);
            if (old != nullptr)
                each.old.reset(strdup(old));
            restorable_ = restorable_ && (old == nullptr || each.old);
            TRACE_AS(get_vpu_info, "getting vpu info. %s %s", each.announced, text_of(each.old));
        }
    }
    ~driver_choice()
    {
        for (const variable &each : variables_) {
            if (each.old)
                setenv(each.name, each.old.get(), 1);
            else if (restorable_)
                unsetenv(each.name);
            TRACE_AS(get_vpu_info, "get vpu info over, then reset the env %s to %s", each.name, text_of(each.old));
        }
    }
    driver_choice(const driver_choice &) = delete;
    driver_choice &operator=(const driver_choice &) = delete;

    /** False when a variable cannot be set, or could not be given back its old value. */
    bool apply()
    {
        return restorable_ && std::all_of(variables_.begin(), variables_.end(), [](const variable &each) {
                   TRACE_AS(get_vpu_info, "getting vpu info.. now the env %s is %s, will be set to %s.", each.name,
                            text_of(each.old), each.chosen);
                   const int result = setenv(each.name, each.chosen, 1);
                   if (result != 0)
                       TRACE_AS(get_vpu_info, "get vpu info failed! can't set env %s, result=%d, errMsg:%s.", each.name,
                                result, strerror(errno));
                   return result == 0;
               });
    }

private:
    struct variable {
        const char *name;
        const char *chosen;
        const char *announced;
        unique_text old;
    };
    static const char *text_of(const unique_text &text) { return text ? text.get() : "(null)"; }

    bool restorable_ = true;
    std::array<variable, 2> variables_{{
        {"LIBVA_DRIVER_NAME", "vekgpu", "oldLibvaDriverNameis", nullptr},
        {"LIBVA_DRIVERS_PATH", "/usr/lib/aarch64-linux-gnu/dri", "oldLibvaDriverPath", nullptr},
    }};
};

struct display_terminator {
    const va_library *va;
    void operator()(VADisplay display) const { va->vaTerminate(display); }
};
using unique_display = std::unique_ptr<void, display_terminator>;

/** A list that libva fills with profiles or entrypoints. */
class number_list {
public:
    bool allocate(int capacity)
    {
        capacity_ = capacity;
        numbers_.reset(static_cast<std::int32_t *>(calloc(static_cast<std::size_t>(capacity), sizeof(std::int32_t))));
        return numbers_ != nullptr;
    }
    std::int32_t *data() { return numbers_.get(); }
    /** The first `count` numbers, however many the driver claims to have filled in. */
    std::span<const std::int32_t> first(int count) const
    {
        return {numbers_.get(), static_cast<std::size_t>(std::clamp(count, 0, capacity_))};
    }

private:
    int capacity_ = 0;
    std::unique_ptr<std::int32_t, memory_releaser> numbers_;
};

/** The attributes of one codec, by attribute type. */
struct codec_attributes {
    static constexpr int count = 56;

    VAStatus query(const va_library &va, VADisplay display, std::int32_t profile, std::int32_t entrypoint)
    {
        for (int type = 0; type < count; ++type)
            list[type] = {static_cast<VAConfigAttribType>(type), 0};
        return va.vaGetConfigAttributes(display, profile, entrypoint, list, count);
    }
    std::uint32_t operator[](VAConfigAttribType type) const { return list[type].value; }

    VAConfigAttrib list[count];
};

/** How the log speaks of one kind of codec. */
struct codec_kind {
    const char *step;
    const char *name;
    const char *formats; /**< the end of the line that opens the list of image formats */
};
constexpr codec_kind decoder_kind{get_vpu_info, "decoder", "so supported image formats are:"};
constexpr codec_kind encoder_kind{"getEncInfo", "encoder", "so the supported image formats are:"};

/** Mark the slots whose bit is set. Marks stay: a codec's entrypoints add up. */
template <std::size_t Slots>
void mark_supported(const char *step, vpu_cap_item (&slots)[Slots], std::span<const std::uint32_t, Slots> bits,
                    std::uint32_t value)
{
    for (std::size_t i = 0; i < Slots; ++i) {
        if ((value & bits[i]) == 0)
            continue;
        slots[i].supported = 1;
        TRACE_AS(step, "\t\t%s", slots[i].name);
    }
}

/** Confirm a codec and the image formats it takes; false when the driver does not tell. */
template <typename Codec>
bool confirm_codec(const va_library &va, VADisplay display, std::int32_t entrypoint, const codec_kind &kind,
                   Codec &codec, codec_attributes &attributes)
{
    TRACE_AS(kind.step, "it has %s:%s", kind.name, codec.name);
    const VAStatus status = attributes.query(va, display, static_cast<std::int32_t>(codec.profile), entrypoint);
    if (status == VA_STATUS_ERROR_UNSUPPORTED_PROFILE)
        TRACE_AS(kind.step, "but this %s's profile is not supported...", kind.name);
    else if (status == VA_STATUS_ERROR_UNSUPPORTED_ENTRYPOINT)
        TRACE_AS(kind.step, "but this %s's entrypoint is not supported...", kind.name);
    else if (status != VA_STATUS_SUCCESS)
        TRACE_AS(kind.step, "but failed to get this %s's attributes, err code:0x%08x, err msg:%s", kind.name, status,
                 va.vaStatusStr(status));
    if (status != VA_STATUS_SUCCESS)
        return false;

    codec.supported = 1;
    const std::uint32_t formats = attributes[VAConfigAttribRTFormat];
    if (formats == VA_ATTRIB_NOT_SUPPORTED) {
        TRACE_AS(kind.step, "there is not any supported image format in this %s!", kind.name);
        return true;
    }
    TRACE_AS(kind.step, "the VAConfigAttribRTFormat's value of this %s is 0x%08x, %s", kind.name, formats,
             kind.formats);
    mark_supported(kind.step, codec.image_formats, image_format_bits(), formats);
    return true;
}

void getEncInfo(const va_library &va, VADisplay display, std::int32_t entrypoint, vpu_encoder_item &encoder)
{
    codec_attributes attributes;
    if (!confirm_codec(va, display, entrypoint, encoder_kind, encoder, attributes) ||
        entrypoint != VAEntrypointEncSlice)
        return;
    const std::uint32_t controls = attributes[VAConfigAttribRateControl];
    if (controls == VA_ATTRIB_NOT_SUPPORTED) {
        TRACE("there is not any supported bitrate control method in this encoder!");
        return;
    }
    TRACE("the VAConfigAttribRateControl's value of this encoder is 0x%08x, so the supported bitrate control "
          "methods are:",
          controls);
    mark_supported(__func__, encoder.rate_controls, rate_control_bits(), controls);
}

void query_profile(const va_library &va, VADisplay display, std::int32_t profile, number_list &entrypoints,
                   Vpu_codec_info_st &codecs)
{
    const int slot = profile_slot(profile);
    if (slot < 0) {
        TRACE_AS(get_vpu_info, "the profile:%s is not in our profile list...", va.vaProfileStr(profile));
        return;
    }
    TRACE_AS(get_vpu_info, "find va profile:%s in our list.", va.vaProfileStr(profile));
    int count = 0;
    const VAStatus status = va.vaQueryConfigEntrypoints(display, profile, entrypoints.data(), &count);
    if (status == VA_STATUS_ERROR_UNSUPPORTED_PROFILE) {
        TRACE_AS(get_vpu_info, "but it is not supported by libva...");
        return;
    }
    if (status != VA_STATUS_SUCCESS) {
        TRACE_AS(get_vpu_info, "but failed to query, err code:0x%8x, err msg:%s", status, va.vaStatusStr(status));
        return;
    }
    codec_attributes attributes;
    for (const std::int32_t entrypoint : entrypoints.first(count)) {
        if (entrypoint == VAEntrypointVLD)
            confirm_codec(va, display, entrypoint, decoder_kind, codecs.decoders[slot], attributes);
        else if (entrypoint == VAEntrypointEncSlice || entrypoint == VAEntrypointEncPicture)
            getEncInfo(va, display, entrypoint, codecs.encoders[slot]);
    }
}

/** Ask an initialised display for everything it can do. */
vekml_return_t query_codecs(const va_library &va, VADisplay display, Vpu_codec_info_st &codecs)
{
    const int max_profiles = va.vaMaxNumProfiles(display);
    if (max_profiles <= 0) {
        TRACE_AS(get_vpu_info, "the specified vpu dose not support any profile!");
        return VEKML_ERROR_NOT_SUPPORTED;
    }
    TRACE_AS(get_vpu_info, "the vpu's max profile num is %d", max_profiles);
    number_list profiles;
    if (!profiles.allocate(max_profiles)) {
        TRACE_AS(get_vpu_info, "failed to allocate the profiles!");
        return VEKML_ERROR_UNKNOWN;
    }
    const int max_entrypoints = va.vaMaxNumEntrypoints(display);
    if (max_entrypoints <= 0) {
        TRACE_AS(get_vpu_info, "the vpu dose not support any entrypoint!");
        return VEKML_ERROR_NOT_SUPPORTED;
    }
    TRACE_AS(get_vpu_info, "the vpu's max entrypoint num is %d", max_entrypoints);
    number_list entrypoints;
    if (!entrypoints.allocate(max_entrypoints)) {
        TRACE_AS(get_vpu_info, "failed to allocate the entrypoints!");
        return VEKML_ERROR_UNKNOWN;
    }

    int count = 0;
    const VAStatus status = va.vaQueryConfigProfiles(display, profiles.data(), &count);
    if (status != VA_STATUS_SUCCESS) {
        TRACE_AS(get_vpu_info, "failed to query the profiles for the vpu, err code:0x%8x, err msg:%s", status,
                 va.vaStatusStr(status));
        return VEKML_ERROR_NOT_SUPPORTED;
    }
    codecs.valid = 1;
    snprintf(codecs.vendor, sizeof codecs.vendor, "%s", va.vaQueryVendorString(display));
    TRACE_AS(get_vpu_info, "the vpu vendor is [%s]", codecs.vendor);
    for (const std::int32_t profile : profiles.first(count))
        query_profile(va, display, profile, entrypoints, codecs);
    return VEKML_SUCCESS;
}

/** Start libva on the card's node and fill the codec record from it. */
vekml_return_t query_card(const va_library &va, std::uint32_t card_index, Vpu_codec_info_st &codecs)
{
    char path[64];
    snprintf(path, sizeof path, "/dev/dri/card%d", static_cast<int>(card_index));
    if (access(path, F_OK) != 0) {
        TRACE_AS(get_vpu_info, "vpu device node %s is not exist!", path);
        return VEKML_ERROR_NOT_FOUND;
    }
    const unique_fd node(open(path, O_RDWR | O_CLOEXEC));
    if (!node) {
        TRACE_AS(get_vpu_info, "open vpu device node %s failed! maybe this user is not root or in video group.", path);
        return VEKML_ERROR_NO_PERMISSION;
    }
    const unique_display display(va.vaGetDisplayDRM(node.get()), {&va});
    if (!display) {
        TRACE_AS(get_vpu_info, "failed to get the DRM display from libva!");
        return VEKML_ERROR_UNKNOWN;
    }
    va.vaSetInfoCallback(display.get(), myVaInfoCallback, nullptr);
    va.vaSetErrorCallback(display.get(), myVaErrCallback, nullptr);
    int major = 0, minor = 0;
    const VAStatus status = va.vaInitialize(display.get(), &major, &minor);
    if (status != VA_STATUS_SUCCESS) {
        TRACE_AS(get_vpu_info, "failed to initialize libva, err code:0x%8x, err msg:%s", status,
                 va.vaStatusStr(status));
        return VEKML_ERROR_UNKNOWN;
    }
    return query_codecs(va, display.get(), codecs);
}

vekml_return_t fill_cache(const va_library &va, vekml_device_record_t &gpu)
{
    driver_choice driver;
    if (!driver.apply())
        return VEKML_ERROR_UNKNOWN;
    init_vpu_codec_info(&gpu.vpu_codec_info);
    return query_card(va, gpu.card_index, gpu.vpu_codec_info);
}

// ---- Load of the video engines ----

constexpr char xmem[] = "/sys/kernel/debug/vpu/xmem";
constexpr int rates_line = 3, counters_line = 4;

int index_of(const vekml_device_record_t &gpu)
{
    return static_cast<int>(gpu.card_index);
}

/** The file that all GPUs share, line by line. */
class xmem_lines {
public:
    xmem_lines() : file_(read_as_stream(unique_fd(open(xmem, O_RDONLY | O_CLOEXEC)))) {}

    explicit operator bool() const { return file_ != nullptr; }
    bool next()
    {
        ++number_;
        return fgets(line_, sizeof line_, file_.get()) != nullptr;
    }
    bool skip_to(int number)
    {
        while (number_ < number) {
            if (!next())
                return false;
        }
        return true;
    }
    const char *line() const { return line_; }
    int number() const { return number_; }

private:
    unique_file file_;
    int number_ = 0;
    char line_[768];
};

/** Log why the file could not be opened, and say it as a result. */
vekml_return_t open_failure(const char *step, const char *action, int gpu_index, int error)
{
    switch (error) {
    case EACCES:
        TRACE_AS(step,
                 "%s gpu(idx:%d)'s vpu ultilization failed, no permission to access the node(%s)! maybe not in "
                 "root or not in video group!",
                 action, gpu_index, xmem);
        return VEKML_ERROR_NO_PERMISSION;
    case ENOENT:
        TRACE_AS(step, "%s gpu(idx:%d)'s vpu ultilization failed, the node(%s) is nonexistent!", action, gpu_index,
                 xmem);
        return VEKML_ERROR_NOT_FOUND;
    default:
        TRACE_AS(step, "%s gpu(idx:%d)'s vpu ultilization failed, can not access the node(%s)! errno:%d, errMsg:%s",
                 action, gpu_index, xmem, error, strerror(error));
        return VEKML_ERROR_UNKNOWN;
    }
}

struct executed_commands {
    std::uint64_t encoder;
    std::uint64_t decoder;
};

void keep_sample(vekml_device_record_t &gpu, const executed_commands &executed, const timeval &taken)
{
    gpu.last_enc_vcmd_num = executed.encoder;
    gpu.last_dec_vcmd_num = executed.decoder;
    gpu.last_sample_sec = static_cast<std::uint64_t>(taken.tv_sec);
    gpu.last_sample_usec = static_cast<std::uint64_t>(taken.tv_usec);
}

bool find_first_counter(const char *step, const char *line, const char *name, int gpu_index, std::uint64_t *value)
{
    char key[32];
    snprintf(key, sizeof key, "%s:", name);
    const number_search search = find_number(line, key, value);
    if (search == number_search::no_key)
        TRACE_AS(step, "initing gpu(idx:%d)'s vpu ultilization from the node(%s), can not find %s!", gpu_index, xmem,
                 name);
    else if (search == number_search::no_number)
        TRACE_AS(step, "initing gpu(idx:%d)'s vpu ultilization from the node(%s), sscanf %s failed!", gpu_index, xmem,
                 name);
    return search == number_search::found;
}

/** Take a GPU's first sample. What comes of it decides for good whether its load is to be had. */
vekml_return_t initVpuUtlz(vekml_device_record_t &gpu)
{
    const int index = index_of(gpu);
    xmem_lines lines;
    if (!lines)
        return open_failure(__func__, "init", index, errno);
    if (!lines.skip_to(counters_line)) {
        TRACE("initing gpu(idx:%d)'s vpu ultilization from the node(%s), but do not get useful infomation!", index,
              xmem);
        return VEKML_ERROR_NOT_SUPPORTED;
    }
    executed_commands executed{};
    if (!find_first_counter(__func__, lines.line(), "vcmd_enc_stat", index, &executed.encoder) ||
        !find_first_counter(__func__, lines.line(), "vcmd_dec_stat", index, &executed.decoder))
        return VEKML_ERROR_NOT_SUPPORTED;
    timeval now{};
    gettimeofday(&now, nullptr);
    keep_sample(gpu, executed, now);
    TRACE("init gpu(idx:%d)'s vpu ultilization from the node(%s): enc_vcmd_num(%llu), dec_vcmd_num(%llu)", index, xmem,
          static_cast<unsigned long long>(executed.encoder), static_cast<unsigned long long>(executed.decoder));
    return VEKML_SUCCESS;
}

constexpr char get_vpu_utlz[] = "vekml_device_get_vpu_utlz";

bool find_counter(const char *line, const char *key, const char *what, int gpu_index, std::uint64_t *value)
{
    const number_search search = find_number(line, key, value);
    if (search == number_search::no_key)
        TRACE_AS(get_vpu_utlz, "can not find vpu %s commands number from the gpu(idx:%d)'s node(%s)!", what, gpu_index,
                 xmem);
    else if (search == number_search::no_number)
        TRACE_AS(get_vpu_utlz, "sscanf vpu %s commands number from the gpu(idx:%d)'s node(%s) failed!", what, gpu_index,
                 xmem);
    return search == number_search::found;
}

struct vpu_sample {
    // All bits set, wherever it comes from, means that the driver reserved nothing to report.
    static constexpr std::uint64_t no_rate = UINT64_MAX;

    std::uint64_t decoder_reserved = no_rate;
    std::uint64_t encoder_reserved = no_rate;
    executed_commands executed{};
    bool counters_found = false;
    timeval taken{};

    bool complete() const { return decoder_reserved != no_rate && encoder_reserved != no_rate && counters_found; }
};

vekml_return_t read_sample(int gpu_index, vpu_sample &sample)
{
    xmem_lines lines;
    if (!lines)
        return open_failure(get_vpu_utlz, "get", gpu_index, errno);
    while (lines.number() < counters_line && lines.next()) {
        const char *line = lines.line();
        if (lines.number() == rates_line) {
            find_counter(line, "dec:", "decoder reserved", gpu_index, &sample.decoder_reserved);
            find_counter(line, "enc:", "encoder reserved", gpu_index, &sample.encoder_reserved);
        } else if (lines.number() == counters_line) {
            const bool encoder =
                find_counter(line, "vcmd_enc_stat:", "encoder excuted", gpu_index, &sample.executed.encoder);
            const bool decoder =
                find_counter(line, "vcmd_dec_stat:", "decoder excuted", gpu_index, &sample.executed.decoder);
            sample.counters_found = encoder && decoder;
        }
    }
    gettimeofday(&sample.taken, nullptr);
    return sample.complete() ? VEKML_SUCCESS : VEKML_ERROR_NOT_SUPPORTED;
}

} // namespace

void vekml::scan_vpus_when_smi_inited()
{
    TRACE("checing libva on smi initing..");
    if (!video_libraries_found())
        TRACE("our libva.so or libva-drm.so is not fount, so the vpu query funcitons will not be valid!");
    TRACE("init vpus ultilization on smi initing..");
    for (std::uint32_t i = 0; i < std::min<std::uint32_t>(globals.count, VEKML_MAX_DEVICES); ++i)
        globals.devices[i].vpu_utlz_status = static_cast<std::uint32_t>(initVpuUtlz(globals.devices[i]));
}

vekml_return_t vekml_get_vpu_functions_valid(uint32_t *valid)
{
    if (valid == nullptr)
        return VEKML_ERROR_INVALID_ARGUMENT;
    *valid = video_libraries_found();
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_vpu_info(vekml_device_t handle, Vpu_codec_info_st *info)
{
    TRACE("entering");
    if (handle == nullptr) {
        TRACE("get vpu info failed, the device is invalid!");
        return VEKML_ERROR_INVALID_ARGUMENT;
    }
    if (info == nullptr) {
        TRACE("get vpu info failed, the Vpu_codec_info_st* is NULL!");
        return VEKML_ERROR_INVALID_ARGUMENT;
    }
    const bool found = video_libraries_found();
    if (found && handle->vpu_codec_info.valid == 1) {
        *info = handle->vpu_codec_info;
        return VEKML_SUCCESS;
    }
    va_library va;
    if (!found || !va.load(libva, libva_drm)) {
        TRACE("%s", libraries_missing);
        init_vpu_codec_info(info);
        return VEKML_ERROR_LIBRARY_NOT_FOUND;
    }
    const vekml_return_t result = fill_cache(va, *handle);
    if (result != VEKML_SUCCESS)
        return result;
    *info = handle->vpu_codec_info;
    TRACE("exit");
    return VEKML_SUCCESS;
}

vekml_return_t vekml_device_get_vpu_utlz(vekml_device_t handle, uint32_t *enc_reserved_fps, uint32_t *enc_executed_fps,
                                         uint32_t *dec_reserved_fps, uint32_t *dec_executed_fps)
{
    if (!video_libraries_found()) {
        TRACE("%s", libraries_missing);
        return VEKML_ERROR_LIBRARY_NOT_FOUND;
    }
    if (handle == nullptr) {
        TRACE("get vpu ultilization failed, the device is invalid!");
        return VEKML_ERROR_INVALID_ARGUMENT;
    }
    if (enc_reserved_fps == nullptr || enc_executed_fps == nullptr || dec_reserved_fps == nullptr ||
        dec_executed_fps == nullptr) {
        TRACE("get vpu ultilization failed, at least one of the int* params is NULL!");
        return VEKML_ERROR_INVALID_ARGUMENT;
    }
    if (handle->vpu_utlz_status != VEKML_SUCCESS)
        return static_cast<vekml_return_t>(handle->vpu_utlz_status);

    const int index = index_of(*handle);
    vpu_sample sample;
    const vekml_return_t result = read_sample(index, sample);
    if (result != VEKML_SUCCESS)
        return result;
    *enc_reserved_fps = static_cast<uint32_t>(sample.encoder_reserved);
    *dec_reserved_fps = static_cast<uint32_t>(sample.decoder_reserved);

    const float elapsed =
        elapsed_seconds(handle->last_sample_sec, handle->last_sample_usec, static_cast<uint64_t>(sample.taken.tv_sec),
                        static_cast<uint64_t>(sample.taken.tv_usec));
    const double encoder_rate = commands_per_second(handle->last_enc_vcmd_num, sample.executed.encoder, elapsed);
    const double decoder_rate = commands_per_second(handle->last_dec_vcmd_num, sample.executed.decoder, elapsed);
    keep_sample(*handle, sample.executed, sample.taken);
    *enc_executed_fps = static_cast<uint32_t>(whole_rate(encoder_rate));
    *dec_executed_fps = static_cast<uint32_t>(whole_rate(decoder_rate));
    TRACE("get gpu(idx:%d)'s vpu ultilization: enc_vcmd_reserved_fps[%d], enc_vcmd_excuted_fps[%.0lf] , "
          "dec_vcmd_reserved_fps[%d], dec_vcmd_excuted_fps[%.0lf]",
          index, static_cast<int>(*enc_reserved_fps), encoder_rate, static_cast<int>(*dec_reserved_fps), decoder_rate);
    return VEKML_SUCCESS;
}
