// SPDX-License-Identifier: Apache-2.0
// A process that has all of the daemon's code and libraries, does nothing with them, and says so:
// the cost of starting the daemon up to its main.

#include <cstdlib>

#include <unistd.h>

#include "CameraDesktop.h"

using korvane::hardware::camera::desktop::V2_0::implementation::CameraDesktop;

int main() {
    // It never is set, but the linker can't know that.
    if (getenv("KORVANE_NEVER_SET") != nullptr) new CameraDesktop();
    static constexpr char kReady[] = "ready\n";
    return write(STDERR_FILENO, kReady, sizeof(kReady) - 1) < 0;
}
