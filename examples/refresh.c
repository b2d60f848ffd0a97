// SPDX-License-Identifier: Apache-2.0
// Lists the GPUs and prints one line for each of them every second, COUNT times or until interrupted.
// cc -std=c99 refresh.c -o refresh $(pkg-config --cflags --libs vekgpu-ml) && ./refresh 5
#define _POSIX_C_SOURCE 199309L

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <vekml.h>

// One record per GPU, zeroed once: a refresh leaves alone what it does not read, such as the static facts.
static vekml_device_query_t records[VEKML_MAX_DEVICES];

static void print_refresh(uint32_t index, vekml_device_t gpu)
{
    vekml_device_query_t *now = &records[index];
    vekml_return_t result = vekml_device_query_two_parts(gpu, now);
    if (result != VEKML_SUCCESS) {
        printf("%3" PRIu32 "  refresh failed with %d\n", index, (int)result);
        return;
    }
    printf("%3" PRIu32 "  %-12s %4" PRIu64 " %5" PRIu32 " %9" PRIu32 " %6" PRIu32 " %12" PRIu64 "\n", index, now->name,
           now->temperature[1], now->util.gpu, now->clock[1], now->fan_speed, now->memory.fb_used);
}

static int refresh_all(void)
{
    vekml_device_t gpu;
    uint32_t count = 0;
    printf("GPU  name         temp  load graphics    fan  memory used\n");
    while (vekml_device_get_handle_by_index(count, &gpu) == VEKML_SUCCESS)
        print_refresh(count++, gpu);
    fflush(stdout);
    return count > 0;
}

int main(int argc, char **argv)
{
    const struct timespec second = {1, 0};
    long count = argc > 1 ? atol(argv[1]) : -1;
    vekml_init();
    while (count != 0 && refresh_all())
        if (--count != 0)
            nanosleep(&second, NULL);
    vekml_shutdown();
    return count == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
