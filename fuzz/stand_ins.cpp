// SPDX-License-Identifier: Apache-2.0
#include "stand_ins.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <unistd.h>

std::string command_output;

// The linker gives the calls of the library's own to this one: every text is formatted, so none may lack its end.
[[gnu::format(printf, 4, 5)]] void only_format(const char *file, int line, const char *function, const char *format,
                                               ...) __asm__("__wrap__ZN5vekml15vekml_debug_logEPKciS1_S1_z");
void only_format(const char *, int, const char *, const char *format, ...)
{
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
}

extern "C" {

FILE *popen(const char *, const char *)
{
    return fmemopen(command_output.data(), command_output.size(), "r");
}

int pclose(FILE *stream)
{
    return fclose(stream);
}

// libFuzzer has a thread that pauses as well.
unsigned sleep(unsigned seconds)
{
    const timespec pause{seconds, 0};
    return gettid() == getpid() ? 0 : static_cast<unsigned>(nanosleep(&pause, nullptr));
}

int usleep(useconds_t)
{
    return 0;
}

} // extern "C"
