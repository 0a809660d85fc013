// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "CameraCallback.h"

#include <log/log.h>

#include "Messages.h"

namespace korvane::camera {

using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Void;

Return<void> CameraCallback::onCommand(const hidl_string& command, onCommand_cb reply) {
    if (asksForStatus(command)) {
        reply(mStatus.json());
        return Void();
    }
    ALOGI("told %s", command.c_str());
    const Event event = eventFrom(command);
    if (event == Event::START) mDemand.start();
    if (event == Event::STOP) mDemand.stop();
    reply(event == Event::START ? kTaken : "");
    return Void();
}

}  // namespace korvane::camera
