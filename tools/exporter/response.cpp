// SPDX-License-Identifier: Apache-2.0
#include "response.h"

#include <new>

namespace exporter {

response make_response(std::string_view content, const char *content_type,
                       std::initializer_list<std::pair<const char *, const char *>> headers)
{
    void *const bytes = const_cast<char *>(content.data()); // copied, not written to
    response made(MHD_create_response_from_buffer(content.size(), bytes, MHD_RESPMEM_MUST_COPY));
    if (!made)
        throw std::bad_alloc();
    MHD_add_response_header(made.get(), MHD_HTTP_HEADER_CONTENT_TYPE, content_type);
    MHD_add_response_header(made.get(), MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
    MHD_add_response_header(made.get(), "X-Content-Type-Options", "nosniff");
    for (const auto &[name, value] : headers)
        MHD_add_response_header(made.get(), name, value);
    return made;
}

} // namespace exporter
