// SPDX-License-Identifier: Apache-2.0
#include "GadgetCheck.h"

#include <algorithm>

#include "Command.h"
#include "KernelFiles.h"
#include "UsbController.h"
#include "WebcamFunction.h"

namespace korvane::gadget {
namespace {

constexpr unsigned kIntervals = 8000;  // of 125 us in a second, with a packet in each
// A typical compressed picture takes this many bits per pixel.
constexpr unsigned kCompressedBits = 2;

struct Module {
    const char* name;
    const char* option;
    const char* what;
};
constexpr Module kModules[] = {
        {"libcomposite", "CONFIG_USB_LIBCOMPOSITE", "USB gadgets"},
        {"usb_f_uvc", "CONFIG_USB_CONFIGFS_F_UVC", "webcam function"},
        {"binder_linux", "CONFIG_ANDROID_BINDER_IPC", "binder driver"},
};

unsigned long bytesOf(const Frame& frame) {
    if (frame.format != Format::MJPEG) return frame.bytes();
    return static_cast<unsigned long>(frame.pixels()) * kCompressedBits / 8;
}

std::string megabytes(unsigned long bytes) {
    const unsigned long tenths = (bytes + 50000) / 100000;
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " MB/s";
}

bool hasModule(const Module& module) {
    return exists(std::string("/sys/module/") + module.name) ||
           runQuietly({"modprobe", "--dry-run", "--quiet", module.name}) == 0;
}

void checkController(const GadgetSettings& settings, std::vector<std::string>* lines) {
    std::string controller;
    const std::string missing = findController(settings.controller, &controller);
    if (!missing.empty()) {
        lines->push_back(missing);
        return;
    }
    const std::string gadget = gadgetOn(controller);
    if (gadget.empty() || std::string(kGadgets) + "/" + gadget == kGadget) return;
    lines->push_back("the controller " + controller + " is taken by the gadget '" + gadget + "'");
}

}  // namespace

std::vector<std::string> checkBus(const GadgetSettings& settings) {
    const unsigned long most = static_cast<unsigned long>(settings.maxPacket) * kIntervals;
    std::vector<std::string> lines;
    for (const Frame& frame : settings.frames) {
        const unsigned rate = *std::max_element(frame.rates.begin(), frame.rates.end());
        const unsigned long needed = bytesOf(frame) * rate;
        if (needed <= most) continue;
        lines.push_back(frame.text() + " needs " + megabytes(needed) + " at " +
                        std::to_string(rate) + " frames a second, but packets of " +
                        std::to_string(settings.maxPacket) + " bytes carry " + megabytes(most) +
                        ": at most " + std::to_string(most / bytesOf(frame)));
    }
    return lines;
}

std::vector<std::string> checkMachine(const GadgetSettings& settings) {
    std::vector<std::string> lines;
    for (const Module& module : kModules) {
        if (hasModule(module)) continue;
        lines.push_back(std::string("the kernel has no ") + module.what + " (module " +
                        module.name + ", option " + module.option + ")");
    }
    if (exists("/sys/module/binder_linux") && !exists("/dev/hwbinder")) {
        lines.push_back(
                "there is no /dev/hwbinder: the module binder_linux was loaded without "
                "devices=binder,hwbinder,vndbinder");
    }
    checkController(settings, &lines);
    return lines;
}

}  // namespace korvane::gadget
