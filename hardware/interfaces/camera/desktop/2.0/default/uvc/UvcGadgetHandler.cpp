// SPDX-License-Identifier: Apache-2.0
// The controller's life and its reactions to the gadget node coming and going.
#define LOG_TAG "UVC-GadgetHandler"

#include "uvc/UvcGadgetHandler.h"

#include <new>

#include <errno.h>

#include <log/log.h>

#include "uvc/CamDesktopCallback.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

UvcGadgetHandler::UvcGadgetHandler()
    : mHotPlug(new HotPlugCtrl(this)), mConnection(new CamDesktopCallback(this)), mSurface(mStats) {
    ALOGD("%s E", __func__);
    mPollThread = std::thread(&UvcGadgetHandler::pollThread, this);
}

UvcGadgetHandler::~UvcGadgetHandler() {
    ALOGD("%s E", __func__);
    if (!mStart.stop()) return;  // the thread's destructor ends the process
    mPollThread.join();
}

int32_t UvcGadgetHandler::onUvcV4l2Added(const char* devPath) {
    ALOGD("added device: %s", devPath);
    std::lock_guard<std::mutex> guard(mDeviceLock);
    if (mDevice != nullptr) {
        ALOGW("uvc v4l2 already exists");
        return -ENOMEM;
    }
    mDevice.reset(new (std::nothrow) UvcV4l2Ctrl(devPath, mStats));
    if (mDevice == nullptr) {
        ALOGE("out of memory");
        return -ENOMEM;
    }
    mDevice->setEventListener(this);
    if (mDevice->open() != 0) {
        ALOGE("failed to open uvc v4l2");
        return -EIO;
    }
    return 0;
}

int32_t UvcGadgetHandler::onV4l2Removed(const char* devName) {
    ALOGD("removed device: %s", devName);
    if (polledDevice() == nullptr) return 0;
    if (polledDevice()->close() != 0) ALOGE("Unable to handle close for %s", devName);
    deleteDevice();
    return 0;
}

int32_t UvcGadgetHandler::onUsbDisconnected() {
    if (polledDevice() == nullptr || !polledDevice()->isStreaming()) return 0;
    ALOGD("Usb disconnected, close out v4l2");
    mStats.note(Event::CABLE_PULLED);
    if (polledDevice()->close() != 0) ALOGE("Unable to handle close");
    deleteDevice();
    return 0;
}

void UvcGadgetHandler::deleteDevice() {
    std::lock_guard<std::mutex> guard(mDeviceLock);
    mDevice.reset();
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
