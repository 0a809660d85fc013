// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UVC-GadgetHandler"

#include "uvc/DesktopConnection.h"

#include <log/log.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

bool DesktopConnection::connect() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mService != nullptr) return true;

    ALOGD("Trying to get service");
    mService = ICameraDesktop::tryGetService("default", false);
    if (mService != nullptr) {
        // Without the registration no command arrives; events still leave.
        (void)mService->registerCallback(ClientType::WEBCAM_CONTROLLER, mCallback).isOk();
    }
    ALOGD("Got service for camera desktop %p", mService.get());
    return mService != nullptr;
}

::android::sp<ICameraDesktop> DesktopConnection::service() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mService;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
