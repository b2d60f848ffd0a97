// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "debug_log.h"
#include "vekml.h"

namespace vekml {

/** Who fills the live fields of a record: the refresh, its fallback, the query of the whole record. */
enum filler : unsigned { refresh = 1, fallback = 2, whole = 4 };

/** Take every live field that takes one getter each, in the filler's order. False when the refresh cannot do without
 *  one that failed; the others go on whatever comes of it. */
bool take_live_fields(filler who, const trace_site &site, vekml_device_t device, vekml_device_query_t *query);

/** Take the processes; entries behind the last one stay as they were. */
void take_processes(const trace_site &site, vekml_device_t device, vekml_device_query_t *query);

vekml_return_t take_gddr_crc(const trace_site &site, vekml_device_t device, vekml_device_query_t *query);

/** What the fallback and the query of the whole record have in common and may fail: utilisation, the driver's own
 *  counters and processes, the memory CRC counters. */
vekml_return_t take_from_driver(const trace_site &site, vekml_device_t device, vekml_device_query_t *query);

/** Ask a getter for one field. It writes into a cleared record: what failed leaves nothing of an earlier answer. */
template <typename Value, typename Field>
vekml_return_t take(vekml_return_t (*getter)(vekml_device_t, Value *), vekml_device_t device, Field &field)
{
    Value value{};
    const vekml_return_t result = getter(device, &value);
    field = static_cast<Field>(value);
    return result;
}

} // namespace vekml
