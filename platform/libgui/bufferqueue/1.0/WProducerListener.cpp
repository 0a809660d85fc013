// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "LWProducerListener"

#include "gui/bufferqueue/1.0/WProducerListener.h"

#include <hidl/Status.h>
#include <log/log.h>

namespace android {

void LWProducerListener::onBufferReleased() {
    const hardware::Return<void> result = mBase->onBufferReleased();
    if (!result.isOk()) ALOGW("onBufferReleased: %s", result.description().c_str());
}

bool LWProducerListener::needsReleaseNotify() {
    const hardware::Return<bool> result = mBase->needsReleaseNotify();
    if (result.isOk()) return result;
    ALOGW("needsReleaseNotify: %s", result.description().c_str());
    return false;
}

void LWProducerListener::onBuffersDiscarded(const std::vector<int32_t>& /*slots*/) {
    // Version 1.0 can't tell clients: they find out when they next dequeue such a slot.
}

}  // namespace android
