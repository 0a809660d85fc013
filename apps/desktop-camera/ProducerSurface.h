// SPDX-License-Identifier: Apache-2.0
// The surface of a stream as the camera uses it.
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
    /** What the pictures are written with, and what their consumer may do with them. */
    static constexpr uint32_t kUsage = android::GraphicBuffer::USAGE_SW_READ_OFTEN |
                                       android::GraphicBuffer::USAGE_SW_WRITE_OFTEN;

    ProducerSurface(const android::sp<android::IGraphicBufferProducer>& producer,
                    const PictureFormat& format);
    ~ProducerSurface();
    ProducerSurface(const ProducerSurface&) = delete;
    ProducerSurface& operator=(const ProducerSurface&) = delete;

    /** Connects; a status of the producer's on failure. Comes before the rest. */
    android::status_t connect();

    /** A buffer that is ready to be drawn into. */
    struct Buffer {
        int slot = -1;
        android::sp<android::GraphicBuffer> pixels;
    };

    /**
     * Gets a buffer, waiting for one no longer than a frame lasts: the service waits on the only
     * thread with which it serves its clients. OK; TIMED_OUT if all are still on their way to the
     * host; NO_INIT or DEAD_OBJECT if the surface is gone; or another status of the producer's.
     */
    android::status_t dequeue(Buffer* buffer);

    /** Hands a drawn buffer over with its timestamp; a status of the producer's. */
    android::status_t queue(const Buffer& buffer, int64_t timestampNs);

    /** Gives a buffer back that was not drawn. */
    void cancel(const Buffer& buffer);

    /** Whether a status says that there is no surface any more. */
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
