// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "frame.h"

void print_processes(const answers &gpus); // a table by memory, largest first
