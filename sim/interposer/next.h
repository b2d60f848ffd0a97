// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <dlfcn.h>

// Gives a hook the name of the libc function it stands before. Hooks have names of their own, so that no libc
// header's declaration (with its attributes and 64-bit renamings) stands in the way.
#define VEKSIM_PUBLISH(symbol, hook) \
    extern "C" decltype(hook) published_##symbol __asm__(#symbol) __attribute__((alias(#hook), visibility("default")))

namespace veksim {

// The function behind ours, looked up at its first call: hooks run before constructors do.
template <typename Function>
class next {
public:
    constexpr explicit next(const char *name) : name_(name) {}

    template <typename... Arguments>
    auto operator()(Arguments... arguments)
    {
        Function *function = found_.load(std::memory_order_acquire);
        if (function == nullptr) {
            function = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name_));
            found_.store(function, std::memory_order_release);
        }
        return function(arguments...);
    }

private:
    const char *name_;
    std::atomic<Function *> found_{nullptr};
};

} // namespace veksim
