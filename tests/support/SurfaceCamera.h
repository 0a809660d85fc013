// SPDX-License-Identifier: Apache-2.0
// A camera at the HIDL surface itself, which does next to no work on a frame.
#pragma once

#include <array>
#include <cstdint>

#include <android/hardware/graphics/bufferqueue/1.0/IGraphicBufferProducer.h>
#include <gui/BufferQueue.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

namespace korvane::test {

/**
 * Queues frames without drawing them and, once connected, without allocating memory: whatever is
 * allocated apart from its calls is the daemon's. All its buffers exist from the start and take
 * turns. Throws std::runtime_error if a call fails. One thread at a time.
 */
class SurfaceCamera {
  public:
    using Surface = ::android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer;

    /** Connects. Buffers are of this size; 0x0 means the surface's own. */
    explicit SurfaceCamera(const android::sp<Surface>& surface, uint32_t width = 0,
                           uint32_t height = 0);
    ~SurfaceCamera();
    SurfaceCamera(const SurfaceCamera&) = delete;
    SurfaceCamera& operator=(const SurfaceCamera&) = delete;

    /** Takes the buffer that has been free longest, waiting for one; returns its slot. */
    int dequeue();

    /** The buffer in a dequeued slot. */
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
