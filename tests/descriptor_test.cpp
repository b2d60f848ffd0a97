// SPDX-License-Identifier: Apache-2.0
// A program may have closed its standard descriptors; what is then printed must not reach a file of the library's. Nor
// may a program that it starts get hold of one.
#include "calls.h"
#include "sim_host.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pciaccess.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool watching;
int taken; /**< how often, while a line was logged, a descriptor was open that is standard or inherited */

class descriptor_test : public sim_host {
protected:
    // How often the library held such a descriptor, all having been closed, while ACTION ran.
    static int taken_during(const std::function<void()> &action)
    {
        return in_child([&] {
            closefrom(0);
            watching = true;
            action();
            watching = false;
            return std::min(taken, 99);
        });
    }
};

TEST_F(descriptor_test, no_file_of_ours_is_a_standard_one)
{
    host.add_gpu();
    host.add_video_libraries();
    host.set_packages("ii  vekgpu-driver 1.2.3-45 arm64\n");
    host.instant_pauses();
    const auto session = [] {
        char release[20];
        vekml_init();
        for (const std::vector<call> &calls : {readers, setters})
            for (const call &one : calls)
                one.run(&globals.devices[0], std::string(one.size + 1, '\0').data());
        taken += globals.devices[0].vpu_codec_info.valid != 1;
        vekml_device_get_driver_release_version(release, sizeof release - 1);
        taken += std::string(release) != "1.2.3";
        vekml_shutdown();
    };
    EXPECT_EQ(taken_during(session), 0);
    EXPECT_EQ(messages_of("get_driver_release_version").back(), "exit get_driver_release_version");
}

TEST_F(descriptor_test, a_message_for_the_user_does_not_reach_physical_memory)
{
    host.add_bare_gpu();
    EXPECT_EQ(taken_during([] { vekml_out_of_band_init(); }), 0);
    EXPECT_TRUE(logged("vekml_pci_out_of_band_manager", "exit"));
    host.write("/dev/mem", "untouched");
    EXPECT_EQ(taken_during([] {
                  pci_device without_bar0{};
                  vekml_pci_out_of_band_manager(0, &without_bar0);
              }),
              0);
    EXPECT_EQ(host.read("/dev/mem"), "untouched");
}

} // namespace

// Stands before the C library's own; each line of the log asks it for the log's size.
extern "C" int statx(int directory, const char *path, int flags, unsigned mask, struct statx *result)
{
    for (int fd = 0; watching && fd < 32; ++fd) {
        const int descriptor = fcntl(fd, F_GETFD);
        const bool standard = fd <= STDERR_FILENO && (fcntl(fd, F_GETFL) & O_PATH) == 0;
        taken += descriptor != -1 && (standard || (descriptor & FD_CLOEXEC) == 0);
    }
    void *next = dlsym(RTLD_NEXT, "statx");
    return reinterpret_cast<decltype(&::statx)>(next)(directory, path, flags, mask, result);
}
