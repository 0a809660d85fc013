// SPDX-License-Identifier: Apache-2.0
// A camera client as seen by the buffer queue.
#pragma once

#include <array>
#include <cstdint>

#include <gui/BufferQueue.h>
#include <gui/IGraphicBufferProducer.h>
#include <system/window.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>

namespace korvane::test {

/** Queues frames without drawing them. One thread at a time. */
class FrameProducer {
  public:
    /** What accompanies a frame. Width and height 0 mean the consumer's default. */
    struct Frame {
        int64_t timestampNs = 0;
        int dataSpace = 0;
        android::sp<android::Fence> fence = android::Fence::NO_FENCE;
        uint32_t width = 0;
        uint32_t height = 0;
    };

    explicit FrameProducer(const android::sp<android::IGraphicBufferProducer>& producer)
        : mProducer(producer) {}

    /** Connects, holding at most this many buffers at a time, and never waits for one. */
    android::status_t connect(int maxDequeued = 2, int api = NATIVE_WINDOW_API_CAMERA);
    android::status_t disconnect(int api = NATIVE_WINDOW_API_CAMERA);

    /**
     * Queues one frame.
     *
     * @return its slot, or the error that the queue returned
     */
    int queue(const Frame& frame);

    /** What the queue returned with the latest dequeued buffer. */
    const android::sp<android::Fence>& lastReleaseFence() const { return mLastReleaseFence; }
    /** The buffer in a slot that was queued. */
    const android::sp<android::GraphicBuffer>& buffer(int slot) const { return mBuffers[slot]; }

  private:
    int dequeue(const Frame& frame);

    const android::sp<android::IGraphicBufferProducer> mProducer;
    std::array<android::sp<android::GraphicBuffer>, android::BufferQueue::NUM_BUFFER_SLOTS>
            mBuffers;
    android::sp<android::Fence> mLastReleaseFence;
};

}  // namespace korvane::test
