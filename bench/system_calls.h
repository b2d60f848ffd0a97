// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

/** System calls that one run of the action makes, counted in a traced child; -1 where tracing is not permitted. */
double system_calls_of(const std::function<void()> &action);
