// SPDX-License-Identifier: Apache-2.0
#include "vpu_codecs.h"

#include "raii.h"
#include "vpu_tables.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <span>

namespace vekml {
namespace {

/** Makes libva choose the GPU's own VA driver; the variables get their old values back in the end. */
class driver_choice {
public:
    explicit driver_choice(const trace_site &site) : site_(site)
    {
        // Copies: what getenv hands out does not outlive a setenv.
        for (variable &each : variables_) {
            const char *old = getenv(each.name);
            if (old != nullptr)
                each.old.reset(strdup(old));
            restorable_ = restorable_ && (old == nullptr || each.old);
            TRACE_FOR(site_, "getting vpu info. %s %s", each.announced, text_of(each.old));
        }
    }
    ~driver_choice()
    {
        for (const variable &each : variables_) {
            if (each.old)
                setenv(each.name, each.old.get(), 1);
            else if (restorable_)
                unsetenv(each.name);
            TRACE_FOR(site_, "get vpu info over, then reset the env %s to %s", each.name, text_of(each.old));
        }
    }
    driver_choice(const driver_choice &) = delete;
    driver_choice &operator=(const driver_choice &) = delete;

    /** False when a variable cannot be set, or could not be given back its old value. */
    bool apply()
    {
        return restorable_ && std::all_of(variables_.begin(), variables_.end(), [this](const variable &each) {
                   TRACE_FOR(site_, "getting vpu info.. now the env %s is %s, will be set to %s.", each.name,
                             text_of(each.old), each.chosen);
                   const int result = setenv(each.name, each.chosen, 1);
                   if (result != 0)
                       TRACE_FOR(site_, "get vpu info failed! can't set env %s, result=%d, errMsg:%s.", each.name,
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

    const trace_site &site_;
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

/** One display of libva, with the call on whose behalf it is asked. */
struct va_session {
    const va_library &va;
    VADisplay display;
    const trace_site &site;
};

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

    VAStatus query(const va_session &on, std::int32_t profile, std::int32_t entrypoint)
    {
        for (int type = 0; type < count; ++type)
            list[type] = {static_cast<VAConfigAttribType>(type), 0};
        return on.va.vaGetConfigAttributes(on.display, profile, entrypoint, list, count);
    }
    std::uint32_t operator[](VAConfigAttribType type) const { return list[type].value; }

    VAConfigAttrib list[count];
};

/** How the log speaks of one kind of codec. */
struct codec_kind {
    trace_site site;
    const char *name;
    const char *formats; /**< the end of the line that opens the list of image formats */
};

/** Mark the slots whose bit is set. Marks stay: a codec's entrypoints add up. */
template <std::size_t Slots>
void mark_supported(const trace_site &site, vpu_cap_item (&slots)[Slots], std::span<const std::uint32_t, Slots> bits,
                    std::uint32_t value)
{
    for (std::size_t i = 0; i < Slots; ++i) {
        if ((value & bits[i]) == 0)
            continue;
        slots[i].supported = 1;
        TRACE_FOR(site, "\t\t%s", slots[i].name);
    }
}

/** Confirm a codec and the image formats it takes; false when the driver does not tell. */
template <typename Codec>
bool confirm_codec(const va_session &on, std::int32_t entrypoint, const codec_kind &kind, Codec &codec,
                   codec_attributes &attributes)
{
    TRACE_FOR(kind.site, "it has %s:%s", kind.name, codec.name);
    const VAStatus status = attributes.query(on, static_cast<std::int32_t>(codec.profile), entrypoint);
    if (status == VA_STATUS_ERROR_UNSUPPORTED_PROFILE)
        TRACE_FOR(kind.site, "but this %s's profile is not supported...", kind.name);
    else if (status == VA_STATUS_ERROR_UNSUPPORTED_ENTRYPOINT)
        TRACE_FOR(kind.site, "but this %s's entrypoint is not supported...", kind.name);
    else if (status != VA_STATUS_SUCCESS)
        TRACE_FOR(kind.site, "but failed to get this %s's attributes, err code:0x%08x, err msg:%s", kind.name, status,
                  on.va.vaStatusStr(status));
    if (status != VA_STATUS_SUCCESS)
        return false;

    codec.supported = 1;
    const std::uint32_t formats = attributes[VAConfigAttribRTFormat];
    if (formats == VA_ATTRIB_NOT_SUPPORTED) {
        TRACE_FOR(kind.site, "there is not any supported image format in this %s!", kind.name);
        return true;
    }
    TRACE_FOR(kind.site, "the VAConfigAttribRTFormat's value of this %s is 0x%08x, %s", kind.name, formats,
              kind.formats);
    mark_supported(kind.site, codec.image_formats, image_format_bits(), formats);
    return true;
}

void confirm_decoder(const va_session &on, std::int32_t entrypoint, vpu_decoder_item &decoder)
{
    codec_attributes attributes;
    confirm_codec(on, entrypoint, {on.site, "decoder", "so supported image formats are:"}, decoder, attributes);
}

void confirm_encoder(const va_session &on, std::int32_t entrypoint, vpu_encoder_item &encoder)
{
    const trace_site site = on.site.step("getEncInfo");
    codec_attributes attributes;
    if (!confirm_codec(on, entrypoint, {site, "encoder", "so the supported image formats are:"}, encoder, attributes) ||
        entrypoint != VAEntrypointEncSlice)
        return;
    const std::uint32_t controls = attributes[VAConfigAttribRateControl];
    if (controls == VA_ATTRIB_NOT_SUPPORTED) {
        TRACE_FOR(site, "there is not any supported bitrate control method in this encoder!");
        return;
    }
    TRACE_FOR(site,
              "the VAConfigAttribRateControl's value of this encoder is 0x%08x, so the supported bitrate control "
              "methods are:",
              controls);
    mark_supported(site, encoder.rate_controls, rate_control_bits(), controls);
}

void query_profile(const va_session &on, std::int32_t profile, number_list &entrypoints, Vpu_codec_info_st &codecs)
{
    const auto &[va, display, site] = on;
    const int slot = profile_slot(profile);
    if (slot < 0) {
        TRACE_FOR(site, "the profile:%s is not in our profile list...", va.vaProfileStr(profile));
        return;
    }
    TRACE_FOR(site, "find va profile:%s in our list.", va.vaProfileStr(profile));
    int count = 0;
    const VAStatus status = va.vaQueryConfigEntrypoints(display, profile, entrypoints.data(), &count);
    if (status == VA_STATUS_ERROR_UNSUPPORTED_PROFILE) {
        TRACE_FOR(site, "but it is not supported by libva...");
        return;
    }
    if (status != VA_STATUS_SUCCESS) {
        TRACE_FOR(site, "but failed to query, err code:0x%8x, err msg:%s", status, va.vaStatusStr(status));
        return;
    }
    for (const std::int32_t entrypoint : entrypoints.first(count)) {
        if (entrypoint == VAEntrypointVLD)
            confirm_decoder(on, entrypoint, codecs.decoders[slot]);
        else if (entrypoint == VAEntrypointEncSlice || entrypoint == VAEntrypointEncPicture)
            confirm_encoder(on, entrypoint, codecs.encoders[slot]);
    }
}

/** Ask an initialised display for everything it can do. */
vekml_return_t query_display(const va_session &on, Vpu_codec_info_st &codecs)
{
    const auto &[va, display, site] = on;
    const int max_profiles = va.vaMaxNumProfiles(display);
    if (max_profiles <= 0) {
        TRACE_FOR(site, "the specified vpu dose not support any profile!");
        return VEKML_ERROR_NOT_SUPPORTED;
    }
    TRACE_FOR(site, "the vpu's max profile num is %d", max_profiles);
    number_list profiles;
    if (!profiles.allocate(max_profiles)) {
        TRACE_FOR(site, "failed to allocate the profiles!");
        return VEKML_ERROR_UNKNOWN;
    }
    const int max_entrypoints = va.vaMaxNumEntrypoints(display);
    if (max_entrypoints <= 0) {
        TRACE_FOR(site, "the vpu dose not support any entrypoint!");
        return VEKML_ERROR_NOT_SUPPORTED;
    }
    TRACE_FOR(site, "the vpu's max entrypoint num is %d", max_entrypoints);
    number_list entrypoints;
    if (!entrypoints.allocate(max_entrypoints)) {
        TRACE_FOR(site, "failed to allocate the entrypoints!");
        return VEKML_ERROR_UNKNOWN;
    }

    int count = 0;
    const VAStatus status = va.vaQueryConfigProfiles(display, profiles.data(), &count);
    if (status != VA_STATUS_SUCCESS) {
        TRACE_FOR(site, "failed to query the profiles for the vpu, err code:0x%8x, err msg:%s", status,
                  va.vaStatusStr(status));
        return VEKML_ERROR_NOT_SUPPORTED;
    }
    snprintf(codecs.vendor, sizeof codecs.vendor, "%s", va.vaQueryVendorString(display));
    TRACE_FOR(site, "the vpu vendor is [%s]", codecs.vendor);
    for (const std::int32_t profile : profiles.first(count))
        query_profile(on, profile, entrypoints, codecs);
    codecs.valid = 1;
    return VEKML_SUCCESS;
}

/** Start libva on the card's node and fill the codec record from it. */
vekml_return_t query_card(const trace_site &site, const va_library &va, const va_listeners &listeners,
                          std::uint32_t card_index, Vpu_codec_info_st &codecs)
{
    char path[64];
    snprintf(path, sizeof path, "/dev/dri/card%d", static_cast<int>(card_index));
    if (access(path, F_OK) != 0) {
        TRACE_FOR(site, "vpu device node %s is not exist!", path);
        return VEKML_ERROR_NOT_FOUND;
    }
    const unique_fd node(open(path, O_RDWR | O_CLOEXEC));
    if (!node) {
        TRACE_FOR(site, "open vpu device node %s failed! maybe this user is not root or in video group.", path);
        return VEKML_ERROR_NO_PERMISSION;
    }
    const unique_display display(va.vaGetDisplayDRM(node.get()), {&va});
    if (!display) {
        TRACE_FOR(site, "failed to get the DRM display from libva!");
        return VEKML_ERROR_UNKNOWN;
    }
    va.vaSetInfoCallback(display.get(), listeners.info, nullptr);
    va.vaSetErrorCallback(display.get(), listeners.error, nullptr);
    int major = 0, minor = 0;
    const VAStatus status = va.vaInitialize(display.get(), &major, &minor);
    if (status != VA_STATUS_SUCCESS) {
        TRACE_FOR(site, "failed to initialize libva, err code:0x%8x, err msg:%s", status, va.vaStatusStr(status));
        return VEKML_ERROR_UNKNOWN;
    }
    return query_display({va, display.get(), site}, codecs);
}

/** Copy a record, its mark last: whoever sees that sees the rest. */
void publish(const Vpu_codec_info_st &from, Vpu_codec_info_st &to)
{
    std::memcpy(to.vendor, from.vendor, sizeof to.vendor);
    std::memcpy(to.encoders, from.encoders, sizeof to.encoders);
    std::memcpy(to.decoders, from.decoders, sizeof to.decoders);
    std::atomic_ref(to.valid).store(from.valid, std::memory_order_release);
}

} // namespace

vekml_return_t query_codecs(const trace_site &site, const va_library &va, const va_listeners &listeners,
                            std::uint32_t card_index, Vpu_codec_info_st *codecs)
{
    driver_choice driver(site);
    if (!driver.apply())
        return VEKML_ERROR_UNKNOWN;
    const std::unique_ptr<Vpu_codec_info_st, memory_releaser> found(
        static_cast<Vpu_codec_info_st *>(malloc(sizeof(Vpu_codec_info_st))));
    if (!found)
        return VEKML_ERROR_UNKNOWN;
    init_vpu_codec_info(found.get());
    const vekml_return_t result = query_card(site, va, listeners, card_index, *found);
    if (!is_filled(*codecs))
        publish(*found, *codecs);
    return result;
}

bool is_filled(Vpu_codec_info_st &codecs)
{
    return std::atomic_ref(codecs.valid).load(std::memory_order_acquire) == 1;
}

} // namespace vekml
