// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <dlfcn.h>
#include <memory>
#include <va/va.h>
#include <va/va_drm.h>

namespace vekml {

/** Where one of the video libraries may be had from, when the process does not have it already. */
struct library_sources {
    const char *file;
    const char *soname;
};

/** libva and libva-drm, in the process for as long as this object lives. */
class va_library {
public:
    /** False when either cannot be had; nothing may be called then. */
    bool load(const library_sources &va, const library_sources &va_drm);

    decltype(&::vaGetDisplayDRM) vaGetDisplayDRM = nullptr;
    decltype(&::vaSetInfoCallback) vaSetInfoCallback = nullptr;
    decltype(&::vaSetErrorCallback) vaSetErrorCallback = nullptr;
    decltype(&::vaInitialize) vaInitialize = nullptr;
    decltype(&::vaTerminate) vaTerminate = nullptr;
    decltype(&::vaMaxNumProfiles) vaMaxNumProfiles = nullptr;
    decltype(&::vaMaxNumEntrypoints) vaMaxNumEntrypoints = nullptr;
    decltype(&::vaQueryVendorString) vaQueryVendorString = nullptr;
    const char *(*vaStatusStr)(VAStatus status) = nullptr;

    // Profiles and entrypoints are plain numbers here: drivers report some that libva's enumerations lack.
    VAStatus (*vaQueryConfigProfiles)(VADisplay display, std::int32_t *profiles, int *count) = nullptr;
    VAStatus (*vaQueryConfigEntrypoints)(VADisplay display, std::int32_t profile, std::int32_t *entrypoints,
                                         int *count) = nullptr;
    VAStatus (*vaGetConfigAttributes)(VADisplay display, std::int32_t profile, std::int32_t entrypoint,
                                      VAConfigAttrib *list, int count) = nullptr;
    const char *(*vaProfileStr)(std::int32_t profile) = nullptr;

private:
    struct library_closer {
        void operator()(void *library) const { dlclose(library); }
    };
    using unique_library = std::unique_ptr<void, library_closer>;

    bool resolve_va(void *library);
    bool resolve_va_drm(void *library);
    template <typename Resolve>
    static bool load_one(unique_library &library, const library_sources &sources, Resolve resolve);

    unique_library va_;
    unique_library va_drm_; // needs the other, so it goes first
};

} // namespace vekml
