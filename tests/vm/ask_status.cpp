// SPDX-License-Identifier: Apache-2.0
// ask_status RATE: asks the service for its status, RATE times a second or as often as it answers,
// until it is ended. Prints how often so far, every hundred times.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "desktopctl/Service.h"

using std::chrono::steady_clock;

int main(int argc, char** argv) {
    const int rate = argc > 1 ? atoi(argv[1]) : 0;
    const auto service = korvane::ctl::Service::find();
    if (rate <= 0 || !service) return 1;
    const auto start = steady_clock::now();
    for (long asked = 0;; ++asked) {
        if (!service->debug({"--json"})) return 1;
        const auto passed = std::chrono::duration<double>(steady_clock::now() - start);
        if (asked % 100 == 0) printf("%ld in %.2f s\n", asked + 1, passed.count());
        fflush(stdout);
        std::this_thread::sleep_until(start + std::chrono::microseconds(1000000 / rate) * asked);
    }
}
