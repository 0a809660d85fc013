// SPDX-License-Identifier: Apache-2.0
#include "CaptureDevices.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>

#include <android-base/unique_fd.h>

#include "options/Options.h"

namespace korvane::camera {

using ::android::base::unique_fd;

namespace {

namespace fs = std::filesystem;
using Kind = CaptureDevice::Kind;

constexpr char kClass[] = "/sys/class/video4linux";
constexpr char kPrefix[] = "video";
constexpr char kGadgetDriver[] = "g_uvc";
// A device controller wired to a host port of the same machine: what is plugged in there is its own
// gadget.
constexpr char kOwnPort[] = "usb-dummy_hcd";

// The text of a kernel field, which has no NUL when full.
template <size_t kSize>
std::string textOf(const __u8 (&field)[kSize]) {
    const char* begin = reinterpret_cast<const char*>(field);
    return {begin, strnlen(begin, kSize)};
}

std::vector<unsigned long> nodeNumbers() {
    std::vector<unsigned long> numbers;
    std::error_code error;
    for (fs::directory_iterator i(kClass, error), end; !error && i != end; i.increment(error)) {
        const std::string name = i->path().filename();
        unsigned long number = 0;
        if (name.rfind(kPrefix, 0) == 0 &&
            options::numberFrom(name.substr(strlen(kPrefix)), 0, 1'000'000, &number)) {
            numbers.push_back(number);
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

// Judged by the bus of its device: some kernels take the webcam from the host when anyone opens and
// closes its node.
bool isGadgetNode(const std::string& name) {
    std::error_code error;
    const fs::path bus = fs::read_symlink(fs::path(kClass) / name / "device/subsystem", error);
    return !error && bus.filename() == "gadget";
}

Kind kindOf(const v4l2_capability& capability) {
    const __u32 can = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0
                              ? capability.device_caps
                              : capability.capabilities;
    if (textOf(capability.driver) == kGadgetDriver ||
        textOf(capability.bus_info).rfind(kOwnPort, 0) == 0) {
        return Kind::GADGET;
    }
    const bool captures = (can & (V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_CAPTURE_MPLANE)) != 0;
    return captures && (can & V4L2_CAP_STREAMING) != 0 ? Kind::CAMERA : Kind::OTHER;
}

CaptureDevice deviceOf(unsigned long number) {
    const std::string name = kPrefix + std::to_string(number);
    CaptureDevice device;
    device.path = "/dev/" + name;
    if (isGadgetNode(name)) {
        device.driver = kGadgetDriver;
        device.kind = Kind::GADGET;
        return device;
    }
    v4l2_capability capability = {};
    const unique_fd node(open(device.path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (node.get() < 0 || ioctl(node.get(), VIDIOC_QUERYCAP, &capability) != 0) return device;
    device.driver = textOf(capability.driver);
    device.name = textOf(capability.card);
    device.kind = kindOf(capability);
    return device;
}

const char* wordFor(Kind kind) {
    switch (kind) {
        case Kind::CAMERA:
            return "a camera";
        case Kind::GADGET:
            return "the webcam itself";
        case Kind::OTHER:
            return "no camera";
        case Kind::UNUSABLE:
            return "cannot be opened";
    }
    return "";
}

}  // namespace

std::vector<CaptureDevice> captureDevices() {
    std::vector<CaptureDevice> devices;
    for (const unsigned long number : nodeNumbers()) devices.push_back(deviceOf(number));
    return devices;
}

std::optional<CaptureDevice> firstCamera(const std::vector<CaptureDevice>& devices) {
    const auto found = std::find_if(devices.begin(), devices.end(), [](const CaptureDevice& one) {
        return one.kind == Kind::CAMERA;
    });
    return found == devices.end() ? std::nullopt : std::optional(*found);
}

std::string textOf(const std::vector<CaptureDevice>& devices) {
    const auto taken = firstCamera(devices);
    std::string text;
    for (const CaptureDevice& device : devices) {
        text += device.path + "  " + wordFor(device.kind);
        if (!device.driver.empty()) text += "  (" + device.driver + ")";
        if (!device.name.empty()) text += "  " + device.name;
        if (taken && taken->path == device.path) text += "  <- --source auto";
        text += "\n";
    }
    if (!taken) text += "There is no camera: with --source auto the host sees a card.\n";
    return text;
}

}  // namespace korvane::camera
