// SPDX-License-Identifier: Apache-2.0
#include "gui/IGraphicBufferProducer.h"

namespace android {

void IGraphicBufferProducer::QueueBufferInput::deflate(
        int64_t* outTimestamp, bool* outIsAutoTimestamp, android_dataspace* outDataSpace,
        Rect* outCrop, int* outScalingMode, uint32_t* outTransform, sp<Fence>* outFence,
        uint32_t* outStickyTransform, bool* outGetFrameTimestamps) const {
    *outTimestamp = timestamp;
    *outIsAutoTimestamp = isAutoTimestamp != 0;
    *outDataSpace = dataSpace;
    *outCrop = crop;
    *outScalingMode = scalingMode;
    *outTransform = transform;
    *outFence = fence;
    if (outStickyTransform != nullptr) *outStickyTransform = stickyTransform;
    if (outGetFrameTimestamps != nullptr) *outGetFrameTimestamps = getFrameTimestamps;
}

status_t IGraphicBufferProducer::disconnectListener(const sp<IProducerListener>& /*listener*/) {
    return INVALID_OPERATION;
}

status_t IGraphicBufferProducer::setLegacyBufferDrop(bool /*drop*/) {
    return INVALID_OPERATION;
}

status_t IGraphicBufferProducer::setAutoPrerotation(bool /*autoPrerotation*/) {
    return INVALID_OPERATION;
}

}  // namespace android
