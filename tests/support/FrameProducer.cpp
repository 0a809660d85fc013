// SPDX-License-Identifier: Apache-2.0
#include "support/FrameProducer.h"

#include <system/graphics.h>
#include <system/window.h>

using android::GraphicBuffer;
using android::IGraphicBufferProducer;
using android::OK;
using android::Rect;
using android::status_t;

namespace korvane::test {

status_t FrameProducer::connect(int maxDequeued, int api) {
    IGraphicBufferProducer::QueueBufferOutput output;
    status_t err = mProducer->connect(nullptr, api, false, &output);
    if (err == OK) err = mProducer->setMaxDequeuedBufferCount(maxDequeued);
    if (err == OK) err = mProducer->setDequeueTimeout(0);
    return err;
}

status_t FrameProducer::disconnect(int api) {
    return mProducer->disconnect(api);
}

int FrameProducer::queue(const Frame& frame) {
    const int slot = dequeue(frame);
    if (slot < 0) return slot;
    const IGraphicBufferProducer::QueueBufferInput input(
            frame.timestampNs, false, static_cast<android_dataspace>(frame.dataSpace), Rect(0, 0),
            NATIVE_WINDOW_SCALING_MODE_FREEZE, 0, frame.fence);
    IGraphicBufferProducer::QueueBufferOutput output;
    const status_t err = mProducer->queueBuffer(slot, input, &output);
    return err == OK ? slot : err;
}

int FrameProducer::dequeue(const Frame& frame) {
    int slot = -1;
    const status_t flags =
            mProducer->dequeueBuffer(&slot, &mLastReleaseFence, frame.width, frame.height, 0,
                                     GraphicBuffer::USAGE_SW_WRITE_OFTEN, nullptr, nullptr);
    if (flags < 0) return flags;
    if ((flags & IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION) == 0) return slot;
    const status_t err = mProducer->requestBuffer(slot, &mBuffers[slot]);
    return err == OK ? slot : err;
}

}  // namespace korvane::test
