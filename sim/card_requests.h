// SPDX-License-Identifier: Apache-2.0
// The driver's ioctls on a card node, and which of its tables each asks for.
#pragma once

namespace veksim {

constexpr unsigned static_request = 0xC010644B;
constexpr unsigned information_request = 0xC010644C;

constexpr unsigned processes_selector = 1;
constexpr unsigned utilisation_selector = 2;
constexpr unsigned static_selector = 3;

} // namespace veksim
