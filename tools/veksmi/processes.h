// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "frame.h"

void print_processes(const answers &gpus, process_order order); // a table
