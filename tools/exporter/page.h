// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collection.h"

namespace exporter {

// The page for people: every GPU at a glance, in HTML that needs nothing else.
std::string overview_page(const snapshot &seen);

// What a browser may do with it: lay it out.
inline constexpr const char *page_policy =
    "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

} // namespace exporter
