// SPDX-License-Identifier: Apache-2.0
// A process that holds all of the daemon's code and libraries, does nothing with them, and says so:
// what a start of the daemon costs before its main.

#include <cstdlib>

#include <unistd.h>

#include "CameraDesktop.h"

using korvane::hardware::camera::desktop::V2_0::implementation::CameraDesktop;

int main() {
    // It never is, which the linker can't know.
    if (getenv("KORVANE_NEVER_SET") != nullptr) new CameraDesktop();
    static constexpr char kReady[] = "ready\n";
    return write(STDERR_FILENO, kReady, sizeof(kReady) - 1) < 0;
}
