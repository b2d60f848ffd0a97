// SPDX-License-Identifier: Apache-2.0
#include "va_library.h"

namespace vekml {
namespace {

template <typename Function>
bool find(void *library, const char *name, Function *&function)
{
    function = reinterpret_cast<Function *>(dlsym(library, name));
    return function != nullptr;
}

} // namespace

template <typename Resolve>
bool va_library::load_one(unique_library &library, const library_sources &sources, Resolve resolve)
{
    if (resolve(RTLD_DEFAULT))
        return true;
    for (const char *name : {sources.file, sources.soname}) {
        library.reset(name != nullptr ? dlopen(name, RTLD_NOW | RTLD_LOCAL) : nullptr);
        if (library && resolve(library.get()))
            return true;
    }
    library.reset();
    return false;
}

bool va_library::load(const library_sources &va, const library_sources &va_drm)
{
    // libva first: libva-drm then binds to it, not to another copy of its own choice.
    return load_one(va_, va, [this](void *library) { return resolve_va(library); }) &&
           load_one(va_drm_, va_drm, [this](void *library) { return resolve_va_drm(library); });
}

bool va_library::resolve_va(void *library)
{
    return find(library, "vaSetInfoCallback", vaSetInfoCallback) &&
           find(library, "vaSetErrorCallback", vaSetErrorCallback) && find(library, "vaInitialize", vaInitialize) &&
           find(library, "vaTerminate", vaTerminate) && find(library, "vaStatusStr", vaStatusStr) &&
           find(library, "vaProfileStr", vaProfileStr) && find(library, "vaMaxNumProfiles", vaMaxNumProfiles) &&
           find(library, "vaMaxNumEntrypoints", vaMaxNumEntrypoints) &&
           find(library, "vaQueryVendorString", vaQueryVendorString) &&
           find(library, "vaQueryConfigProfiles", vaQueryConfigProfiles) &&
           find(library, "vaQueryConfigEntrypoints", vaQueryConfigEntrypoints) &&
           find(library, "vaGetConfigAttributes", vaGetConfigAttributes);
}

bool va_library::resolve_va_drm(void *library)
{
    return find(library, "vaGetDisplayDRM", vaGetDisplayDRM);
}

} // namespace vekml
