// SPDX-License-Identifier: Apache-2.0
#include "support/sim_host.h"

#include "vek_smi_utils.h"

namespace {

using host_probes_test = sim_host;

TEST_F(host_probes_test, the_driver_is_any_module_with_its_name)
{
    for (const auto &[modules, expected] : {std::pair{"drm 1 0\n", 1}, {"drm 1 0\nvekgpu_helper 1 0\n", 0}}) {
        host.set_modules(modules);
        EXPECT_EQ(vekml::is_out_of_band(), expected) << modules;
    }
}

TEST_F(host_probes_test, version_of_the_installed_package)
{
    const std::pair<std::string, const char *> cases[] = {
        {"rc  vekgpu-old 0.9-1 arm64\nii vekgpu\nii  vekgpu-driver 12.3456\n", "12.3456"},
        {"ii  zlib1g 1.2.13 arm64\nii  vekgpu-driver   1.2.3-45 arm64 driver\n", "1.2.3"},
        {"ii  vekgpu-driver " + std::string(600, '1') + "\n", "before"},
        {"ii  vekgpu-driver 1.23.456-1 arm64\n", "before"},
        {"rc  vekgpu-old 0.9-1 arm64\n", "before"}};
    for (const auto &[packages, expected] : cases) {
        char version[] = "before\0##"; // the first # lies past the size given
        host.set_packages(packages);
        EXPECT_EQ(vekml_device_get_driver_release_version(version, 7), VEKML_SUCCESS);
        EXPECT_STREQ(version, expected);
        EXPECT_EQ(version[8], '#') << "two past the size";
    }
}

} // namespace
