// SPDX-License-Identifier: Apache-2.0
#include "MachineChecks.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include <android-base/unique_fd.h>

#include "Attributes.h"
#include "options/Options.h"

namespace korvane::ctl {
namespace {

namespace fs = std::filesystem;

constexpr char kBinder[] = "/dev/hwbinder";
constexpr char kControllers[] = "/sys/class/udc";
constexpr char kVideo[] = "/sys/class/video4linux";
constexpr char kLoadBinder[] = "modprobe binder_linux devices=binder,hwbinder,vndbinder";

// 0, or the errno of opening it for reading and writing.
int openError(const std::string& path) {
    const android::base::unique_fd fd(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK));
    return fd.get() < 0 ? errno : 0;
}

// The number in "video0" and the like, -1 for any other name.
int videoNumber(const std::string& name) {
    constexpr size_t kPrefixLength = 5;
    constexpr unsigned long kHighest = 1'000'000;
    unsigned long number = 0;
    if (name.rfind("video", 0) != 0 ||
        !options::numberFrom(name.substr(kPrefixLength), 0, kHighest, &number)) {
        return -1;
    }
    return static_cast<int>(number);
}

// Judged by the bus of the device behind it, as linked by the kernel; -1 if there is none.
int gadgetNode() {
    for (const std::string& name : entriesOf(kVideo)) {
        std::error_code none;
        const fs::path bus = fs::read_symlink(fs::path(kVideo) / name / "device/subsystem", none);
        if (bus.filename() == "gadget" && videoNumber(name) >= 0) return videoNumber(name);
    }
    return -1;
}

// The first number below `node` at which the service's startup scan stops; -1 if none.
int gapBelow(int node) {
    for (int number = 0; number < node; ++number) {
        const std::string name = "video" + std::to_string(number);
        const std::string driver = attribute(std::string(kVideo) + "/" + name + "/name");
        const bool passedOver = driver.find("msm") != std::string::npos;
        if (!passedOver && !fs::exists("/dev/" + name)) return number;
    }
    return -1;
}

}  // namespace

Findings checkBinder() {
    struct stat status = {};
    if (stat(kBinder, &status) != 0) {
        return {wrong("binder", "there is no /dev/hwbinder", kLoadBinder)};
    }
    if (!S_ISCHR(status.st_mode)) {
        return {wrong(
                "binder", "/dev/hwbinder is no device",
                std::string("rm -r /dev/hwbinder; modprobe -r binder_linux; ") + kLoadBinder)};
    }
    if (const int error = openError(kBinder)) {
        return {wrong("binder", std::string("/dev/hwbinder does not open: ") + strerror(error),
                      "chmod 666 /dev/hwbinder")};
    }
    return {right("binder", "/dev/hwbinder opens")};
}

Findings checkGadgetSupport() {
    Findings findings;
    const std::vector<std::string> controllers = entriesOf(kControllers);
    if (controllers.empty()) {
        findings.push_back(wrong("controller", "the machine has no USB device controller",
                                 "set the port's dr_mode to peripheral or otg in the device tree; "
                                 "in the test machine: modprobe dummy_hcd"));
    } else {
        findings.push_back(right("controller", controllers[0] + " is there"));
    }
    if (!fs::is_directory("/config")) {
        findings.push_back(wrong("configfs", "there is no /config",
                                 "mkdir /config; mount -t configfs none /config"));
    } else if (!fs::is_directory("/config/usb_gadget")) {
        findings.push_back(wrong("configfs", "/config/usb_gadget is not there",
                                 "modprobe libcomposite; mount -t configfs none /config"));
    } else {
        findings.push_back(right("configfs", "/config/usb_gadget is there"));
    }
    return findings;
}

Findings checkNode() {
    const int number = gadgetNode();
    if (number < 0) {
        return {wrong("node", "the function has no video node", "korvane-gadget bind; dmesg")};
    }
    const std::string path = "/dev/video" + std::to_string(number);
    if (!fs::exists(path)) {
        return {wrong("node", path + " is not there although the kernel has it",
                      "udevadm trigger --action=add --subsystem-match=video4linux")};
    }
    if (const int error = openError(path)) {
        return {wrong("node", path + " does not open: " + strerror(error),
                      "chmod 660 " + path + "; chgrp video " + path +
                              ", and run the service in that group")};
    }
    const int gap = gapBelow(number);
    if (gap >= 0) {
        return {note("node",
                     path + " is found only when it comes while the service runs: /dev/video" +
                             std::to_string(gap) + " is missing before it",
                     "korvane-gadget unbind; korvane-gadget bind")};
    }
    return {right("node", path + " opens")};
}

Findings checkHost(const std::string& udc) {
    const std::string state = attribute(std::string(kControllers) + "/" + udc + "/state");
    if (state == "configured") return {right("host", "it has taken the webcam")};
    if (state == "not attached" || state.empty()) {
        return {wrong("host", "there is none at the cable", "plug the cable in")};
    }
    if (state == "suspended") return {note("host", "it sleeps", "wake it up")};
    return {wrong("host", "it has not taken the webcam: " + state,
                  "plug the cable out and in; dmesg at the host says what it refuses")};
}

}  // namespace korvane::ctl
