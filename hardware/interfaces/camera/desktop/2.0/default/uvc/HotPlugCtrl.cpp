// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UVC-HotPlugCtrl"

#include "uvc/HotPlugCtrl.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <cutils/uevent.h>
#include <log/log.h>

#include "uvc/Files.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

constexpr int kSocketBufferSize = 64 * 1024;
constexpr size_t kMessageSize = 1024;
constexpr int kNodeAttempts = 21;
constexpr useconds_t kNodeRetryDelay = 20000;
constexpr char kGadgetDriver[] = "g_uvc";

bool startsWith(const char* text, const char* prefix) {
    return strncmp(text, prefix, strlen(prefix)) == 0;
}

// The event may overtake the program that makes the node.
bool waitForNode(const char* path) {
    for (int attempt = 0; attempt < kNodeAttempts; ++attempt) {
        if (fileExists(path)) return true;
        usleep(kNodeRetryDelay);
    }
    return false;
}

// Where the value starts in a string that begins with key (which ends in "="); else null.
const char* valueOf(const char* string, const char* key) {
    return startsWith(string, key) ? string + strlen(key) : nullptr;
}

void setField(const char* string, HotPlugCtrl::UEventObj* obj) {
    if (const char* action = valueOf(string, "ACTION=")) {
        obj->action = action;
    } else if (const char* subsystem = valueOf(string, "SUBSYSTEM=")) {
        obj->subsystem = subsystem;
    } else if (const char* devName = valueOf(string, "DEVNAME=")) {
        obj->devName = devName;
    } else if (const char* usbState = valueOf(string, "USB_STATE=")) {
        obj->usbState = usbState;
    }
}

void drain(int socket, char* buffer) {
    while (uevent_kernel_multicast_recv(socket, buffer, kMessageSize) > 0) {
    }
}

}  // namespace

HotPlugCtrl::HotPlugCtrl(EventListener* listener) : mListener(listener) {}

HotPlugCtrl::~HotPlugCtrl() {
    ::android::base::unique_fd(std::exchange(fd, -1)).reset();
}

int HotPlugCtrl::open() {
    const int socket = uevent_open_socket(kSocketBufferSize, true);
    fd = watchable(socket);
    if (socket >= 0 && fd < 0) ALOGE("failed to open the uevent socket, errno %d", errno);
    if (fd < 0) return -EIO;
    fcntl(fd, F_SETFL, O_NONBLOCK);
    return 0;
}

int HotPlugCtrl::initCheck() {
    if (mListener == nullptr) return 0;

    static char sPath[64];
    for (int number = 0;; ++number) {
        snprintf(sPath, sizeof(sPath), "/sys/class/video4linux/video%d/name", number);
        if (fileExists(sPath) && isBlacklistedDevice(sPath)) continue;

        snprintf(sPath, sizeof(sPath), "/dev/video%d", number);
        if (!fileExists(sPath)) return 0;
        if (!getVideoDevType(sPath)) continue;
        const int result = mListener->onUvcV4l2Added(sPath);
        if (result != 0) return result;
    }
}

int32_t HotPlugCtrl::handlePendingData(PENDING_DATA_TYPE) {
    // Two bytes more than a message, so that it always ends in an empty string.
    char message[kMessageSize + 2] = {};
    const ssize_t size = uevent_kernel_multicast_recv(fd, message, kMessageSize);
    if (size < 1) {
        ALOGE("no msg received %d", errno);
        return -EINVAL;
    }
    if (size > static_cast<ssize_t>(kMessageSize)) {
        ALOGE("overflow message, discard.");
        drain(fd, message);
        return 0;
    }
    if (mListener == nullptr) {
        ALOGD("no listener");
        return 0;
    }
    return handleMessage(message);
}

int HotPlugCtrl::handleMessage(const char* message) {
    const char* position = message;
    while (position != nullptr && *position != '\0') {
        UEventObj event;
        position = parseUEvent(position, &event);
        const int result = handleUEvent(event);
        if (result != 0) return result;
    }
    return 0;
}

const char* HotPlugCtrl::parseUEvent(const char* msg, UEventObj* obj) {
    while (*msg != '\0') {
        const char* next = msg + strlen(msg) + 1;
        if (startsWith(msg, "SEQNUM=")) return next;
        setField(msg, obj);
        msg = next;
    }
    return nullptr;
}

int HotPlugCtrl::handleUEvent(UEventObj& obj) {
    if (obj.subsystem == nullptr || obj.action == nullptr) return 0;

    if (startsWith(obj.subsystem, "video4linux")) {
        if (obj.devName == nullptr) return 0;
        if (startsWith(obj.action, "add")) return handleVideoAdded(obj.devName);
        if (startsWith(obj.action, "remove")) return handleVideoRemoved(obj.devName);
        return 0;
    }
    if (startsWith(obj.subsystem, "android_usb") && obj.usbState != nullptr &&
        startsWith(obj.usbState, "DISCONNECTED")) {
        return mListener != nullptr ? mListener->onUsbDisconnected() : 0;
    }
    return 0;
}

int HotPlugCtrl::handleVideoAdded(const char* devName) {
    // Idle: nothing clears it.
    if (!watchVideoAdd) return 0;
    if (strstr(devName, "video") == nullptr) return 0;  // a sub-device, for one
    ALOGD("v4l2 device added /dev/%s", devName);
    if (mListener == nullptr) return 0;

    char devPath[32];
    snprintf(devPath, sizeof(devPath), "/dev/%s", devName);
    if (!waitForNode(devPath)) {
        ALOGE("timedout: dev file not appear");
        return -EIO;
    }

    char namePath[64];
    snprintf(namePath, sizeof(namePath), "/sys/class/video4linux/%s/name", devName);
    if (fileExists(namePath) && isBlacklistedDevice(namePath)) return 0;
    if (!getVideoDevType(devPath)) return 0;
    return mListener->onUvcV4l2Added(devPath);
}

int HotPlugCtrl::handleVideoRemoved(const char* devName) {
    ALOGD("v4l2 device remove /dev/%s", devName);
    return mListener != nullptr ? mListener->onV4l2Removed(devName) : 0;
}

bool HotPlugCtrl::isBlacklistedDevice(const char* namePath) {
    std::string name;
    return readTextFile(namePath, name) && name.find("msm") != std::string::npos;
}

bool HotPlugCtrl::getVideoDevType(const char* devPath) {
    const android::base::unique_fd node(::open(devPath, O_RDWR));
    if (node == -1) {
        ALOGE("failed to open %s, errno %d", devPath, errno);
        return false;
    }
    v4l2_capability capability = {};
    if (ioctl(node.get(), VIDIOC_QUERYCAP, &capability) < 0) {
        // A fixed text, misspelt as it is.
        ALOGE("falied VIDIOC_QUERYCAP errno %d", errno);
        return false;
    }
    return memcmp(capability.driver, kGadgetDriver, sizeof(kGadgetDriver)) == 0;
}

bool HotPlugCtrl::readTextFile(const char* path, std::string& out) {
    out.clear();
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path, "r"), fclose);
    if (file == nullptr) return false;

    char buffer[512] = {};
    if (fread(buffer, 1, sizeof(buffer) - 1, file.get()) == 0) return false;
    out = buffer;
    if (!out.empty() && out.back() == '\n') out.pop_back();
    return !out.empty();
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
