// SPDX-License-Identifier: Apache-2.0
// The controller's poll thread: waits on the hot-plug socket and on the device.
#define LOG_TAG "UVC-GadgetHandler"

#include <algorithm>
#include <chrono>
#include <string>

#include <pthread.h>

#include <log/log.h>

#include "uvc/Files.h"
#include "uvc/UvcGadgetHandler.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

namespace {

// The service registers itself while this thread waits; later each event tries again.
constexpr std::chrono::seconds kConnectDelay{2};
constexpr int kConnectTries = 3;

}  // namespace

void UvcGadgetHandler::pollThread() {
    pthread_setname_np(pthread_self(), "poll_thread");
    if (!connectAtStart()) return;

    // Both log what fails; nodes that are there are served without uevents, too.
    (void)mHotPlug->open();
    (void)mHotPlug->initCheck();

    preparePoll();
    while (select(mSelectWidth, &mReadSet, &mWriteSet, &mExceptionSet, nullptr) >= 0) {
        serveHotPlug();
        serveDevice();
        preparePoll();
    }
    ALOGE("select failed");
}

// False when the handler is being destroyed instead.
bool UvcGadgetHandler::connectAtStart() {
    for (int i = 0; i < kConnectTries; ++i) {
        if (!mStart.wait(kConnectDelay)) return false;
        if (connectToServiceLocked()) break;
    }
    return mStart.beginPolling();
}

int UvcGadgetHandler::preparePoll() {
    mSelectWidth = -1;
    FD_ZERO(&mReadSet);
    FD_ZERO(&mWriteSet);
    FD_ZERO(&mExceptionSet);

    if (mHotPlug->fd >= 0) {
        FD_SET(mHotPlug->fd, &mReadSet);
        mSelectWidth = mHotPlug->fd;
    }
    const int device = polledDevice() != nullptr ? polledDevice()->getV4l2DeviceFd() : -1;
    if (device >= 0) {
        mSelectWidth = std::max(mSelectWidth, device);
        if (polledDevice()->isStreaming()) FD_SET(device, &mWriteSet);
        FD_SET(device, &mExceptionSet);
    }
    if (mSelectWidth == -1) ALOGE("Fix: no fd to select");
    ++mSelectWidth;
    return 0;
}

void UvcGadgetHandler::serveHotPlug() {
    if (mHotPlug->fd < 0 || !FD_ISSET(mHotPlug->fd, &mReadSet)) return;
    if (mHotPlug->handlePendingData(PollableDev::DATA_READABLE) != 0) {
        ALOGE("hot plug ctrl handle data failed");
    }
}

void UvcGadgetHandler::serveDevice() {
    const int fd = polledDevice() != nullptr ? polledDevice()->getV4l2DeviceFd() : -1;
    if (fd < 0) return;

    if (FD_ISSET(fd, &mWriteSet) &&
        polledDevice()->handlePendingData(PollableDev::DATA_WRITABLE) != 0) {
        removeDeviceIfGone();
    }
    // The write side may have removed the device that the exception belongs to.
    if (polledDevice() != nullptr && FD_ISSET(fd, &mExceptionSet) &&
        polledDevice()->handlePendingData(PollableDev::DATA_EXCEPTION) != 0) {
        ALOGE("uvc ctrl handle data failed");
    }
}

void UvcGadgetHandler::removeDeviceIfGone() {
    const std::string name = polledDevice()->getV4l2DevName();
    if (fileExists(name.c_str())) return;
    ALOGE("UVC device is no longer present");
    onV4l2Removed(name.c_str());
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
