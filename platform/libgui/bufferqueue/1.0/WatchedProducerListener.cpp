// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "WatchedProducerListener"

#include "gui/bufferqueue/1.0/WatchedProducerListener.h"

#include <hidl/Status.h>
#include <log/log.h>

namespace android {

void WatchedProducerListener::onBufferReleased() {
    if (mIsWanted) LWProducerListener::onBufferReleased();
}

bool WatchedProducerListener::watch() {
    return mClient->linkToDeath(this, 0 /* cookie */).withDefault(false);
}

void WatchedProducerListener::serviceDied(uint64_t /*cookie*/,
                                          const wp<hidl::base::V1_0::IBase>& /*who*/) {
    const sp<IGraphicBufferProducer> queue = mQueue.promote();
    if (queue == nullptr) return;
    ALOGW("The producer has died: disconnecting it");
    queue->disconnectListener(this);
}

}  // namespace android
