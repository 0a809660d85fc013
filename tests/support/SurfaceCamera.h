// SPDX-License-Identifier: Apache-2.0
// A camera at the HIDL surface itself, whose own work on a frame is next to none.
#pragma once

#include <array>
#include <cstdint>

#include <android/hardware/graphics/bufferqueue/1.0/IGraphicBufferProducer.h>
#include <gui/BufferQueue.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

namespace korvane::test {

/**
 * Queues frames without drawing them and, once connected, without allocating memory: what is
 * allocated beside its calls is the daemon's. All its buffers exist from the start and take turns.
 * Throws std::runtime_error when a call fails. One thread at a time.
 */
class SurfaceCamera {
  public:
    using Surface = ::android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer;

    /** Connects. Buffers are of this size; 0x0 stands for the surface's own. */
    explicit SurfaceCamera(const android::sp<Surface>& surface, uint32_t width = 0,
                           uint32_t height = 0);
    ~SurfaceCamera();
    SurfaceCamera(const SurfaceCamera&) = delete;
    SurfaceCamera& operator=(const SurfaceCamera&) = delete;

    /** Takes the buffer that has been free for longest, waiting for one; its slot. */
    int dequeue();

    /** The buffer of a slot that was dequeued. */
    const android::sp<android::GraphicBuffer>& buffer(int slot) const { return mBuffers[slot]; }

    /** Queues the buffer as the next frame, a second after the last one. */
    void queue(int slot);

  private:
    void request(int slot);

    const android::sp<Surface> mSurface;
    const uint32_t mWidth;
    const uint32_t mHeight;
    Surface::QueueBufferInput mFrame = {};
    std::array<android::sp<android::GraphicBuffer>, android::BufferQueue::NUM_BUFFER_SLOTS>
            mBuffers;
};

}  // namespace korvane::test
