// SPDX-License-Identifier: Apache-2.0
// A stream's surface as the camera uses it.
#pragma once

#include <array>
#include <cstdint>

#include <gui/IGraphicBufferProducer.h>
#include <ui/BufferQueueDefs.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

#include "PictureFormat.h"

namespace korvane::camera {

/**
 * Connects to a producer as a camera and passes buffers of one format back and forth. Disconnects
 * when destroyed. Used by one thread.
 */
class ProducerSurface {
  public:
    /** How the pictures are written, and what their consumer may do with them. */
    static constexpr uint32_t kUsage = android::GraphicBuffer::USAGE_SW_READ_OFTEN |
                                       android::GraphicBuffer::USAGE_SW_WRITE_OFTEN;

    ProducerSurface(const android::sp<android::IGraphicBufferProducer>& producer,
                    const PictureFormat& format);
    ~ProducerSurface();
    ProducerSurface(const ProducerSurface&) = delete;
    ProducerSurface& operator=(const ProducerSurface&) = delete;

    /** Connects; the producer's status on failure. Must come before anything else. */
    android::status_t connect();

    /** A buffer that is ready to be drawn into. */
    struct Buffer {
        int slot = -1;
        android::sp<android::GraphicBuffer> pixels;
    };

    /**
     * Gets a buffer, waiting no longer than a frame lasts: the service waits on the only thread
     * that serves its clients. OK; TIMED_OUT if all are still on their way to the host; NO_INIT or
     * DEAD_OBJECT if the surface is gone; or another status from the producer.
     */
    android::status_t dequeue(Buffer* buffer);

    /** Queues a drawn buffer with its timestamp; returns the producer's status. */
    android::status_t queue(const Buffer& buffer, int64_t timestampNs);

    /** Returns a buffer that was not drawn. */
    void cancel(const Buffer& buffer);

    /** Whether a status means that the surface no longer exists. */
    static bool isGone(android::status_t status) {
        return status == android::NO_INIT || status == android::DEAD_OBJECT;
    }

  private:
    android::status_t fetchBuffer(int slot, bool isNew);
    void giveBack(int slot, const android::sp<android::Fence>& fence);

    const android::sp<android::IGraphicBufferProducer> mProducer;
    const PictureFormat mFormat;
    bool mConnected = false;
    std::array<android::sp<android::GraphicBuffer>, android::BufferQueueDefs::NUM_BUFFER_SLOTS>
            mBuffers;
};

}  // namespace korvane::camera
