// SPDX-License-Identifier: Apache-2.0
// Takes a GPU's fan over from the firmware and sets its speed, in percent; a refusal is explained.
// c++ -std=c++17 fan.cpp -o fan $(pkg-config --cflags --libs vekgpu-ml) && sudo ./fan 0 60
#include <cstdlib>
#include <iostream>
#include <string>
#include <vekml.h>

namespace {

class library {
public:
    library() { vekml_init(); }
    ~library() { vekml_shutdown(); }
    library(const library &) = delete;
    library &operator=(const library &) = delete;
};

// The library takes a speed above 100 for a mistake of ours, and so should we, before touching the fan.
bool is_percentage(const std::string &text)
{
    return !text.empty() && text.size() <= 3 && text.find_first_not_of("0123456789") == std::string::npos &&
           std::stoi(text) <= 100;
}

// Empty when the fan took the speed, else why it did not.
std::string set_fan(std::uint32_t index, const std::string &percent)
{
    vekml_device_t gpu = nullptr;
    std::uint32_t supported = 0;
    if (vekml_device_get_handle_by_index(index, &gpu) != VEKML_SUCCESS)
        return "there is no such GPU";
    if (vekml_device_get_support_fan_info(gpu, &supported) != VEKML_SUCCESS || supported == 0)
        return "its board has no fan that can be controlled";
    std::uint32_t mode = 0;
    vekml_device_get_fan_ctrl_mode(gpu, &mode);
    vekml_return_t result = vekml_device_set_fan_ctrl_mode(gpu, "1");
    if (result == VEKML_SUCCESS) {
        result = vekml_device_set_fan1_speed(gpu, percent.c_str());
        if (result != VEKML_SUCCESS)
            vekml_device_set_fan_ctrl_mode(gpu, mode == 0 ? "0" : "1");
    }
    switch (result) {
    case VEKML_SUCCESS:
        return {};
    case VEKML_ERROR_NO_PERMISSION:
        return "only root may set it";
    case VEKML_ERROR_NODE_IO:
        return "it is set by PWM value instead, or the driver refused";
    default:
        return "result " + std::to_string(result);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3 || !is_percentage(argv[2])) {
        std::cerr << "usage: fan GPU PERCENT\n";
        return EXIT_FAILURE;
    }
    const library started;
    const std::string refusal = set_fan(static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 10)), argv[2]);
    if (!refusal.empty()) {
        std::cerr << "The fan of GPU " << argv[1] << " stays as it is: " << refusal << ".\n";
        return EXIT_FAILURE;
    }
    std::cout << "The fan of GPU " << argv[1] << " is set to " << argv[2] << " percent.\n";
    return EXIT_SUCCESS;
}
