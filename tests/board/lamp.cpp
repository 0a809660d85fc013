// SPDX-License-Identifier: Apache-2.0
// lamp: a keyboard with one lamp, inputN::misc of /sys/class/leds, until it is ended by a signal.
// Needs root and /dev/uinput.

#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <linux/uinput.h>
#include <sys/ioctl.h>
#include <unistd.h>

int main() {
    const int device = open("/dev/uinput", O_RDWR | O_CLOEXEC);
    uinput_setup setup{};
    strcpy(setup.name, "a lamp");
    if (device < 0 || ioctl(device, UI_SET_EVBIT, EV_LED) != 0 ||
        ioctl(device, UI_SET_LEDBIT, LED_MISC) != 0 || ioctl(device, UI_DEV_SETUP, &setup) != 0 ||
        ioctl(device, UI_DEV_CREATE) != 0) {
        perror("lamp");
        return 1;
    }
    pause();
    return 0;
}
