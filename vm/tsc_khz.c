// SPDX-License-Identifier: Apache-2.0
// tsc_khz: prints at how many kHz this processor's time stamp counter runs, which is the emulated
// processor's too. A kernel in the machine can't measure it while the host is busy.

#include <stdint.h>
#include <stdio.h>
#include <time.h>
#include <x86intrin.h>

struct moment {
    uint64_t ticks;
    int64_t nanoseconds;
};

static int64_t clock_ns(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

// Of many readings of both clocks, the one that was interrupted least.
static struct moment read_clocks(void) {
    struct moment best = {0, 0};
    uint64_t least = UINT64_MAX;
    for (int i = 0; i < 100; ++i) {
        uint64_t before = __rdtsc();
        int64_t nanoseconds = clock_ns();
        uint64_t took = __rdtsc() - before;
        if (took >= least) continue;
        least = took;
        best = (struct moment){before + took / 2, nanoseconds};
    }
    return best;
}

int main(void) {
    const struct timespec interval = {.tv_nsec = 20000000};
    struct moment start = read_clocks();
    nanosleep(&interval, NULL);
    struct moment end = read_clocks();
    printf("%.0f\n", (end.ticks - start.ticks) * 1e6 / (end.nanoseconds - start.nanoseconds));
    return 0;
}
