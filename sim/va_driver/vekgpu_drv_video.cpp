// SPDX-License-Identifier: Apache-2.0
// The VA driver of a simulated host: it tells libva what the video engines can do and decodes nothing.
//
// What it tells is the text of "/usr/lib/aarch64-linux-gnu/dri/vekgpu_drv_video.conf" in the tree, read when libva
// starts the driver; a tree without that file has the engines of `ordinary_engines` below. One statement a line,
// numbers as in C, '#' opens a comment:
//
//     vendor TEXT          the vendor string
//     max_profiles N       the numbers libva asks for first; the defaults are roomy
//     max_entrypoints N
//     init STATUS          starting the driver fails with this VA status
//     query STATUS         asking for the list of profiles fails
//     claim N              the number of profiles that it says it gave, whatever it gave
//     profile N            a VA profile; what follows, up to the next one, is about it
//     fail STATUS          asking for its entrypoints fails
//     claim N              the number of entrypoints that it says it gave, whatever it gave
//     entrypoint N         one of its entrypoints; what follows, up to the next one, is about it
//     fail STATUS          asking for the entrypoint's attributes fails
//     attribute TYPE VALUE an attribute; those not named are not supported
#include <va/va.h>
#include <va/va_backend.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char description_file[] = "/usr/lib/aarch64-linux-gnu/dri/vekgpu_drv_video.conf";
constexpr std::size_t description_limit = 64 * 1024;

constexpr char ordinary_engines[] = R"(
vendor VEKGPU video engines, simulated
profile 1             # MPEG-2 main
  entrypoint 1        # decoder
    attribute 0 0x1   # image formats: yuv420
profile 6             # H.264 main
  entrypoint 1
    attribute 0 0x1
  entrypoint 6        # encoder
    attribute 0 0x1
    attribute 5 0x16  # rate control: cbr, vbr, cqp
profile 7             # H.264 high
  entrypoint 1
    attribute 0 0x101
  entrypoint 6
    attribute 0 0x1
    attribute 5 0x16
profile 12            # JPEG baseline
  entrypoint 1
    attribute 0 0x7
  entrypoint 7        # encoder of single pictures
    attribute 0 0x3
profile 17            # HEVC main
  entrypoint 1
    attribute 0 0x1
  entrypoint 6
    attribute 0 0x1
    attribute 5 0x16
profile 18            # HEVC main, 10 bits
  entrypoint 1
    attribute 0 0x101
profile 19            # VP9 profile 0
  entrypoint 1
    attribute 0 0x1
profile 32            # AV1 profile 0
  entrypoint 1
    attribute 0 0x101
profile 35            # AVS2 main
  entrypoint 1
    attribute 0 0x101
)";

// One for all displays of the process: libva drops a driver that it refuses after its start without ending it.
char vendor[256];
char description[description_limit];

void read_description()
{
    std::FILE *file = std::fopen(description_file, "re");
    if (file == nullptr) {
        std::memcpy(description, ordinary_engines, sizeof ordinary_engines);
        return;
    }
    description[std::fread(description, 1, description_limit - 1, file)] = '\0';
    std::fclose(file);
}

// Walks through a description statement by statement.
class statements {
public:
    bool advance()
    {
        while (*next_ != '\0') {
            const char *line = next_;
            const std::size_t length = std::strcspn(line, "\n");
            next_ += length + (line[length] == '\n' ? 1 : 0);
            if (take(line, std::min(length, std::strcspn(line, "#"))))
                return true;
        }
        return false;
    }
    bool is(const char *keyword) const { return std::strcmp(keyword_, keyword) == 0; }
    const char *text() const { return argument_; }
    int number() const { return static_cast<int>(std::strtol(argument_, nullptr, 0)); }
    unsigned second_number() const
    {
        char *rest = nullptr;
        std::strtol(argument_, &rest, 0);
        return static_cast<unsigned>(std::strtoul(rest, nullptr, 0));
    }
    // Which profile and entrypoint the statement is about; -1: none.
    bool about(int profile, int entrypoint = -1) const { return profile_ == profile && entrypoint_ == entrypoint; }

private:
    bool take(const char *line, std::size_t length)
    {
        char words[256];
        std::snprintf(words, sizeof words, "%.*s", static_cast<int>(length), line);
        argument_[0] = '\0';
        if (std::sscanf(words, "%31s %223[^\n]", keyword_, argument_) < 1)
            return false;
        if (is("profile")) {
            profile_ = number();
            entrypoint_ = -1;
        } else if (is("entrypoint")) {
            entrypoint_ = number();
        }
        return true;
    }

    const char *next_ = description;
    char keyword_[32] = {};
    char argument_[224] = {};
    int profile_ = -1;
    int entrypoint_ = -1;
};

VAStatus terminate(VADriverContextP)
{
    return VA_STATUS_SUCCESS;
}

// Puts the count that the description has for a profile's list, or for that of the profiles, in place of the true one.
void claim(int profile, int *count)
{
    for (statements statement; statement.advance();) {
        if (statement.is("claim") && statement.about(profile))
            *count = statement.number();
    }
}

VAStatus query_profiles(VADriverContextP context, VAProfile *list, int *count)
{
    *count = 0;
    for (statements statement; statement.advance();) {
        if (statement.is("query"))
            return statement.number();
        if (statement.is("profile") && *count < context->max_profiles)
            list[(*count)++] = static_cast<VAProfile>(statement.number());
    }
    claim(-1, count);
    return VA_STATUS_SUCCESS;
}

VAStatus query_entrypoints(VADriverContextP context, VAProfile profile, VAEntrypoint *list, int *count)
{
    *count = 0;
    for (statements statement; statement.advance();) {
        if (statement.is("fail") && statement.about(profile))
            return statement.number();
        if (statement.is("entrypoint") && statement.about(profile, statement.number()) &&
            *count < context->max_entrypoints)
            list[(*count)++] = static_cast<VAEntrypoint>(statement.number());
    }
    claim(profile, count);
    return VA_STATUS_SUCCESS;
}

VAStatus get_attributes(VADriverContextP, VAProfile profile, VAEntrypoint entrypoint, VAConfigAttrib *list, int count)
{
    std::for_each(list, list + count, [](VAConfigAttrib &each) { each.value = VA_ATTRIB_NOT_SUPPORTED; });
    for (statements statement; statement.advance();) {
        if (!statement.about(profile, entrypoint))
            continue;
        if (statement.is("fail"))
            return statement.number();
        if (statement.is("attribute")) {
            std::for_each(list, list + count, [&](VAConfigAttrib &each) {
                if (static_cast<int>(each.type) == statement.number())
                    each.value = statement.second_number();
            });
        }
    }
    return VA_STATUS_SUCCESS;
}

template <typename... Arguments>
VAStatus unimplemented(Arguments...)
{
    return VA_STATUS_ERROR_UNIMPLEMENTED;
}

void fill_table(VADriverVTable &table)
{
    table.vaTerminate = terminate;
    table.vaQueryConfigProfiles = query_profiles;
    table.vaQueryConfigEntrypoints = query_entrypoints;
    table.vaGetConfigAttributes = get_attributes;
    // libva starts no driver that lacks one of these.
    table.vaCreateConfig = unimplemented;
    table.vaDestroyConfig = unimplemented;
    table.vaQueryConfigAttributes = unimplemented;
    table.vaCreateSurfaces = unimplemented;
    table.vaDestroySurfaces = unimplemented;
    table.vaCreateContext = unimplemented;
    table.vaDestroyContext = unimplemented;
    table.vaCreateBuffer = unimplemented;
    table.vaBufferSetNumElements = unimplemented;
    table.vaMapBuffer = unimplemented;
    table.vaUnmapBuffer = unimplemented;
    table.vaDestroyBuffer = unimplemented;
    table.vaBeginPicture = unimplemented;
    table.vaRenderPicture = unimplemented;
    table.vaEndPicture = unimplemented;
    table.vaSyncSurface = unimplemented;
    table.vaQuerySurfaceStatus = unimplemented;
    table.vaPutSurface = unimplemented;
    table.vaQueryImageFormats = unimplemented;
    table.vaCreateImage = unimplemented;
    table.vaDeriveImage = unimplemented;
    table.vaDestroyImage = unimplemented;
    table.vaSetImagePalette = unimplemented;
    table.vaGetImage = unimplemented;
    table.vaPutImage = unimplemented;
    table.vaQuerySubpictureFormats = unimplemented;
    table.vaCreateSubpicture = unimplemented;
    table.vaDestroySubpicture = unimplemented;
    table.vaSetSubpictureImage = unimplemented;
    table.vaSetSubpictureChromakey = unimplemented;
    table.vaSetSubpictureGlobalAlpha = unimplemented;
    table.vaAssociateSubpicture = unimplemented;
    table.vaDeassociateSubpicture = unimplemented;
    table.vaQueryDisplayAttributes = unimplemented;
    table.vaGetDisplayAttributes = unimplemented;
    table.vaSetDisplayAttributes = unimplemented;
}

// What must be known before libva asks anything; the status with which to start.
VAStatus prepare(VADriverContextP context)
{
    context->version_major = VA_MAJOR_VERSION;
    context->version_minor = VA_MINOR_VERSION;
    context->max_profiles = 64;
    context->max_entrypoints = 16;
    context->max_attributes = 56;
    context->max_image_formats = 1;
    context->max_subpic_formats = 1;
    context->max_display_attributes = 1;
    context->str_vendor = vendor;
    vendor[0] = '\0';
    for (statements statement; statement.advance();) {
        if (statement.is("vendor"))
            std::snprintf(vendor, sizeof vendor, "%s", statement.text());
        else if (statement.is("max_profiles"))
            context->max_profiles = statement.number();
        else if (statement.is("max_entrypoints"))
            context->max_entrypoints = statement.number();
        else if (statement.is("init"))
            return statement.number();
    }
    return VA_STATUS_SUCCESS;
}

} // namespace

// libva looks for an entry point that carries its own version in its name.
#define INIT_OF_VERSION(major, minor) __vaDriverInit_##major##_##minor
#define INIT_OF(major, minor) INIT_OF_VERSION(major, minor)

extern "C" __attribute__((visibility("default"))) VAStatus INIT_OF(VA_MAJOR_VERSION,
                                                                   VA_MINOR_VERSION)(VADriverContextP context)
{
    read_description();
    fill_table(*context->vtable);
    return prepare(context);
}
