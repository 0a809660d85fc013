// SPDX-License-Identifier: Apache-2.0
// The daemon: one desktop-camera service, registered as "default", served by the main thread.

#define LOG_TAG "korvane.hardware.camera.desktop@2.0-service"

#include <cstdint>

#include <errno.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <hidl/HidlTransportSupport.h>
#include <log/log.h>
#include <utils/StrongPointer.h>

#include "CameraDesktop.h"

using android::OK;
using android::sp;
using android::hardware::configureRpcThreadpool;
using android::hardware::joinRpcThreadpool;
using korvane::hardware::camera::desktop::V2_0::ICameraDesktop;
using korvane::hardware::camera::desktop::V2_0::implementation::CameraDesktop;

namespace {

// CPUs 4 to 7, where the phone has its fast cores. A machine without them serves just as well.
constexpr uint32_t kAffinityMask = 0xF0;

void pinThisThread() {
    ALOGD("Setting thread affinity to 0xF0");
    if (syscall(SYS_sched_setaffinity, gettid(), sizeof(kAffinityMask), &kAffinityMask) != 0) {
        ALOGE("Error in the syscall setaffinity: mask=%d=0x%x err=%d=0x%x", kAffinityMask,
              kAffinityMask, errno, errno);
    }
}

}  // namespace

int main() {
    // Before the thread is pinned: the poll thread, which starts here, keeps every CPU.
    sp<ICameraDesktop> service = new CameraDesktop();
    pinThisThread();

    configureRpcThreadpool(1, true /* callerWillJoin */);
    if (service->registerAsService("default") != OK) {
        ALOGE("Cannot register Camera Desktop HAL service");
        service.clear();
        return 1;
    }

    ALOGD("Registered Camera Desktop HAL service success!");
    joinRpcThreadpool();
    service.clear();
    return 0;
}
