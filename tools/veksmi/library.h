// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "frame.h"

// The library from its start to its end.
class library {
public:
    explicit library(bool out_of_band);
    ~library();
    library(const library &) = delete;
    library &operator=(const library &) = delete;

    gpu_list gpus() const;

private:
    bool driverless_;
};

// The one that was asked for, or all of them. One that is not there is thrown as usage_error.
gpu_list chosen(const options &, gpu_list);
