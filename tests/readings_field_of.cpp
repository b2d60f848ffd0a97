// SPDX-License-Identifier: Apache-2.0
// Compiles with a key that there is, and with no other.
#include "readings/fields.h"

const readings::field &found = readings::field_of(KEY);
const auto asked = [] { return readings::pick<"index", KEY>(); };
