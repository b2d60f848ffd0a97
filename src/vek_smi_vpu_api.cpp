// SPDX-License-Identifier: Apache-2.0
#include "vek_smi_vpu_api.h"

#include "vekml.h"

#include "debug_log.h"
#include "raii.h"
#include "va_library.h"
#include "vek_smi_utils.h"
#include "vpu_codecs.h"
#include "vpu_counters.h"
#include "vpu_tables.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>
#include <sys/time.h>
#include <unistd.h>

using namespace vekml;

pthread_once_t vekml::video_libraries_lookup = PTHREAD_ONCE_INIT;

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
bool libraries_found = false;

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
    libraries_found = libva.file != nullptr && libva_drm.file != nullptr;
}

bool video_libraries_found()
{
    pthread_once(&video_libraries_lookup, isLibVaValid);
    return libraries_found;
}

// ---- Codec capabilities ----

void myVaInfoCallback(void *, const char *message)
{
    TRACE("libva-info:[%s]", message);
}

void myVaErrCallback(void *, const char *message)
{
    TRACE("libva-error:[%s]", message);
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
    if (found && is_filled(handle->vpu_codec_info)) {
        *info = handle->vpu_codec_info;
        return VEKML_SUCCESS;
    }
    const closed_descriptors_taken for_others;
    va_library va;
    if (!found || !va.load(libva, libva_drm)) {
        TRACE("%s", libraries_missing);
        init_vpu_codec_info(info);
        return VEKML_ERROR_LIBRARY_NOT_FOUND;
    }
    const vekml_return_t result = query_codecs(TRACE_SITE(__func__), va, {myVaInfoCallback, myVaErrCallback},
                                               handle->card_index, &handle->vpu_codec_info);
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
