// SPDX-License-Identifier: Apache-2.0
#include "gpu.h"

namespace veksim {

gpu_config sample_gpu(int position)
{
    gpu_config target_board;
    gpu_config pwm_board;
    pwm_board.fan = fan_kind::pwm;
    pwm_board.device_id = 0x4a17;
    pwm_board.model = "VEK S280 XT";
    pwm_board.product_name = "TALON-S3";
    pwm_board.core_count = 2;
    pwm_board.memory_gib = 4;
    pwm_board.memory_vendor = 1;
    pwm_board.default_clock_hz = 1300000000;
    pwm_board.subsystem_vendor_id = 0;
    pwm_board.current_link_speed = "8.0 GT/s PCIe";
    pwm_board.hdmi_connected = false;
    pwm_board.numa_node = 1;
    pwm_board.local_cpulist = "8-15";
    return position % 2 == 0 ? target_board : pwm_board;
}

} // namespace veksim
