// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace veksim {

// The answer of card node CARD to an ioctl.
int answer_request(unsigned card, unsigned request, void *argument);

} // namespace veksim
