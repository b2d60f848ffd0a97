// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "gpu.h"

void print_processes(gpu_list &gpus); // a table by memory, largest first
