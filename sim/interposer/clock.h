// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace veksim {

void rewind_clock();

} // namespace veksim
