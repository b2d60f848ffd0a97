// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "debug_log.h"
#include "vekml.h"

namespace vekml {

/** Take the driver's versions out of the text of its version node. */
void parse_version_node(const char *text, vekml_driver_version_t *version);

/** Take them from the debugfs dump, on behalf of `site`; "N/A" for those that it does not name. */
vekml_return_t read_version_dump(const trace_site &site, vekml_driver_version_t *version);

} // namespace vekml
