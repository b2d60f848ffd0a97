// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <initializer_list>
#include <memory>
#include <microhttpd.h>
#include <string_view>
#include <utility>

namespace exporter {

struct response_deleter {
    void operator()(MHD_Response *r) const { MHD_destroy_response(r); }
};
// Lives on while a connection still sends it.
using response = std::unique_ptr<MHD_Response, response_deleter>;

// Throws std::bad_alloc where there is no memory for it.
response make_response(std::string_view content, const char *content_type,
                       std::initializer_list<std::pair<const char *, const char *>> headers = {});

} // namespace exporter
