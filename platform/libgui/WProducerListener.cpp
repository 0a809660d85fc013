// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "WProducerListener"

#include <gui/bufferqueue/1.0/WProducerListener.h>

#include <log/log.h>

namespace android {

using ::android::hardware::Return;

void LWProducerListener::onBufferReleased() {
    const Return<void> status = mBase->onBufferReleased();
    if (!status.isOk()) ALOGW("%s: %s", __func__, status.description().c_str());
}

bool LWProducerListener::needsReleaseNotify() {
    Return<bool> needs = mBase->needsReleaseNotify();
    if (!needs.isOk()) ALOGW("%s: %s", __func__, needs.description().c_str());
    return needs.withDefault(false);
}

void LWProducerListener::onBuffersDiscarded(const std::vector<int32_t>& /*slots*/) {}

}  // namespace android
