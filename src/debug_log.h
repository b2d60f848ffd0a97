// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vekml {

/** Append one message, behind the prefix that names time, process and call site, to the debug log; a failure drops
 *  the message. */
[[gnu::format(printf, 4, 5)]] void vekml_debug_log(const char *file, int line, const char *function, const char *format,
                                                   ...);

/** The call that a step shared by several sources works for; the step's messages name it. */
struct trace_site {
    const char *file;
    int line;
    const char *function;

    /** Another step of the same call. */
    trace_site step(const char *name) const { return {file, line, name}; }
};

} // namespace vekml

/** One line of the debug log; the format is a literal without its final newline. Not for lambdas: the line names the
 *  enclosing function, which in a lambda would be operator(). */
#define TRACE(format, ...) TRACE_AS(__func__, format __VA_OPT__(, ) __VA_ARGS__)

/** A message that ends as its format does, without a newline of its own. */
#define TRACE_OPEN(format, ...) \
    ::vekml::vekml_debug_log(__FILE__, __LINE__, __func__, format __VA_OPT__(, ) __VA_ARGS__)

/** One line under the name of a step that is not the enclosing function. */
#define TRACE_AS(step, format, ...) \
    ::vekml::vekml_debug_log(__FILE__, __LINE__, step, format "\n" __VA_OPT__(, ) __VA_ARGS__)

#define TRACE_SITE(step) (::vekml::trace_site{__FILE__, __LINE__, step})

/** One line in the name of a site, its file included. */
#define TRACE_FOR(site, format, ...) \
    ::vekml::vekml_debug_log((site).file, (site).line, (site).function, format "\n" __VA_OPT__(, ) __VA_ARGS__)
