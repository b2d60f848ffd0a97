// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "collection.h"
#include "exposition.h"

namespace exporter {

// The page for Prometheus, with up to PROCESSES processes of each GPU.
std::string metrics_page(const snapshot &seen, unsigned processes, dialect d);

} // namespace exporter
