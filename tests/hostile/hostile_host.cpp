// SPDX-License-Identifier: Apache-2.0
// hostile-host SCENARIO NODE: what a USB host does that doesn't play by the rules. NODE is the
// webcam's under /dev/bus/usb, with no driver on its interfaces. Exits with 0 once everything has
// been tried, 1 if it couldn't be, 2 for arguments that make no sense.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <string>

#include <fcntl.h>
#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

namespace {

using android::base::unique_fd;

constexpr unsigned kControl = 0;
constexpr unsigned kStreaming = 1;
constexpr uint8_t kSetCur = 0x01;

/** Counts the results of calls by errno; 0 for those that were served. */
class Results {
  public:
    void add(int result) { mCounts[result < 0 ? errno : 0]++; }
    void print(const char* what) const {
        printf("%s:", what);
        for (const auto& [error, count] : mCounts) {
            printf(" %s %d", error == 0 ? "served" : strerrorname_np(error), count);
        }
        printf("\n");
    }

  private:
    std::map<int, int> mCounts;
};

bool claim(int usb) {
    for (unsigned interface : {kControl, kStreaming}) {
        if (ioctl(usb, USBDEVFS_CLAIMINTERFACE, &interface) != 0) {
            fprintf(stderr, "hostile-host: cannot claim interface %u: %s\n", interface,
                    strerror(errno));
            return false;
        }
    }
    return true;
}

int request(int usb, uint8_t type, uint8_t code, uint16_t value, uint16_t index, uint16_t length) {
    uint8_t data[2048];
    memset(data, 0xa5, sizeof(data));
    usbdevfs_ctrltransfer transfer = {};
    transfer.bRequestType = type;
    transfer.bRequest = code;
    transfer.wValue = value;
    transfer.wIndex = index;
    transfer.wLength = length;
    transfer.timeout = 1000;
    transfer.data = data;
    return ioctl(usb, USBDEVFS_CONTROL, &transfer);
}

/** Every class request of both interfaces, with wrong controls, entities and lengths. */
bool requests(int usb) {
    if (!claim(usb)) return false;
    Results results;
    for (uint8_t code : {0x00, 0x01, 0x02, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0xff}) {
        const bool isOut = code == kSetCur || code < 0x80;
        const uint8_t type =
                USB_TYPE_CLASS | USB_RECIP_INTERFACE | (isOut ? USB_DIR_OUT : USB_DIR_IN);
        for (uint16_t control : {0x0000, 0x0100, 0x0200, 0x0300, 0x0401, 0xff00, 0xffff}) {
            for (uint16_t index : {0x0000, 0x0001, 0x0100, 0x0200, 0x0301, 0xff00, 0xff01}) {
                for (uint16_t length : {0, 1, 26, 34, 48, 64, 1024}) {
                    results.add(request(usb, type, code, control, index, length));
                }
            }
        }
    }
    results.print("requests");
    return true;
}

/** Switches the streaming interface on and off, as fast as possible. */
bool settings(int usb) {
    if (!claim(usb)) return false;
    Results results;
    for (unsigned i = 0; i < 300; i++) {
        usbdevfs_setinterface setting = {kStreaming, i % 7 == 6 ? 5 : i % 2};
        results.add(ioctl(usb, USBDEVFS_SETINTERFACE, &setting));
    }
    results.print("settings");
    return true;
}

/**
 * Requests with data that is announced and never sent: each is cancelled before it completes,
 * sooner or later, and the next one follows at once.
 */
bool stages(int usb) {
    constexpr int kRounds = 400;
    constexpr uint16_t kLengths[] = {26, 34, 48, 64, 1024};
    if (!claim(usb)) return false;
    Results results;
    int takenBack = 0;
    for (unsigned i = 0; i < kRounds; i++) {
        const uint16_t length = kLengths[i % std::size(kLengths)];
        uint8_t block[sizeof(usb_ctrlrequest) + 1024] = {};
        usb_ctrlrequest setup = {};
        setup.bRequestType = USB_TYPE_CLASS | USB_RECIP_INTERFACE | USB_DIR_OUT;
        setup.bRequest = kSetCur;
        setup.wValue = i % 2 == 0 ? 0x0100 : 0x0200;
        setup.wIndex = kStreaming;
        setup.wLength = length;
        memcpy(block, &setup, sizeof(setup));
        usbdevfs_urb transfer = {};
        transfer.type = USBDEVFS_URB_TYPE_CONTROL;
        transfer.buffer = block;
        transfer.buffer_length = static_cast<int>(sizeof(setup) + length);
        if (ioctl(usb, USBDEVFS_SUBMITURB, &transfer) != 0) {
            results.add(-1);
            continue;
        }
        // From before the setup packet is seen to after it is answered.
        usleep(i % 20 * 250);
        ioctl(usb, USBDEVFS_DISCARDURB, &transfer);
        usbdevfs_urb* reaped = nullptr;
        results.add(ioctl(usb, USBDEVFS_REAPURB, &reaped));
        if (transfer.status != 0) takenBack++;
    }
    results.print("stages");
    printf("taken back before their end: %d\n", takenBack);
    return takenBack > 0;
}

bool resets(int usb) {
    Results results;
    for (int i = 0; i < 10; i++) results.add(ioctl(usb, USBDEVFS_RESET, nullptr));
    results.print("resets");
    return true;
}

const std::map<std::string, bool (*)(int)> kScenarios = {
        {"requests", requests}, {"resets", resets}, {"settings", settings}, {"stages", stages}};

}  // namespace

int main(int argc, char** argv) {
    const auto scenario = argc == 3 ? kScenarios.find(argv[1]) : kScenarios.end();
    if (scenario == kScenarios.end()) {
        fprintf(stderr, "hostile-host: one of these and a USB node are needed:");
        for (const auto& [name, run] : kScenarios) fprintf(stderr, " %s", name.c_str());
        fprintf(stderr, "\n");
        return 2;
    }
    const unique_fd usb(open(argv[2], O_RDWR | O_CLOEXEC));
    if (usb.get() == -1) {
        fprintf(stderr, "hostile-host: cannot open %s: %s\n", argv[2], strerror(errno));
        return EXIT_FAILURE;
    }
    return scenario->second(usb.get()) ? EXIT_SUCCESS : EXIT_FAILURE;
}
