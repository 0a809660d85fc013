// SPDX-License-Identifier: Apache-2.0
#include "uvc/CamDesktopCallback.h"

#include <string>

#include "uvc/UvcGadgetHandler.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Void;

Return<void> CamDesktopCallback::onCommand(const hidl_string& command, onCommand_cb reply) {
    reply(hidl_string(mHandler->handleCommand(std::string(command))));
    return Void();
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
