// SPDX-License-Identifier: Apache-2.0
// A HIDL producer, as native code in a client uses it.
#pragma once

#include <gui/IGraphicBufferProducer.h>
#include <gui/bufferqueue/1.0/Conversion.h>
#include <utils/StrongPointer.h>

namespace android {
namespace hardware {
namespace graphics {
namespace bufferqueue {
namespace V1_0 {
namespace utils {

/**
 * Every call goes to the queue's process. If that fails, the status is DEAD_OBJECT or
 * UNKNOWN_ERROR; otherwise it is the queue's. Usage bits above the lower 32, buffer ages and HDR
 * metadata don't travel.
 *
 * requestBuffer() always sets the buffer, to an empty one on error, as dequeueBuffer() always sets
 * the fence. Results that don't convert turn OK into BAD_VALUE.
 */
class H2BGraphicBufferProducer : public BnGraphicBufferProducer {
  public:
    explicit H2BGraphicBufferProducer(const sp<HGraphicBufferProducer>& base) : mBase(base) {}

    status_t requestBuffer(int slot, sp<GraphicBuffer>* buf) override;
    status_t setMaxDequeuedBufferCount(int maxDequeuedBuffers) override;
    status_t setAsyncMode(bool async) override;
    status_t dequeueBuffer(int* slot, sp<Fence>* fence, uint32_t width, uint32_t height,
                           ::android::PixelFormat format, uint64_t usage, uint64_t* outBufferAge,
                           FrameEventHistoryDelta* outTimestamps) override;
    status_t detachBuffer(int slot) override;
    status_t detachNextBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence) override;
    status_t attachBuffer(int* outSlot, const sp<GraphicBuffer>& buffer) override;
    status_t queueBuffer(int slot, const QueueBufferInput& input,
                         QueueBufferOutput* output) override;
    status_t cancelBuffer(int slot, const sp<Fence>& fence) override;
    int query(int what, int* value) override;
    status_t connect(const sp<BProducerListener>& listener, int api, bool producerControlledByApp,
                     QueueBufferOutput* output) override;
    status_t disconnect(int api, DisconnectMode mode = DisconnectMode::Api) override;
    status_t setSidebandStream(const sp<NativeHandle>& stream) override;
    void allocateBuffers(uint32_t width, uint32_t height, ::android::PixelFormat format,
                         uint64_t usage) override;
    status_t allowAllocation(bool allow) override;
    status_t setGenerationNumber(uint32_t generationNumber) override;
    String8 getConsumerName() const override;
    status_t setSharedBufferMode(bool sharedBufferMode) override;
    status_t setAutoRefresh(bool autoRefresh) override;
    status_t setDequeueTimeout(nsecs_t timeout) override;
    status_t getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence,
                                 float outTransformMatrix[16]) override;
    /** The rectangle and the transform don't travel: INVALID_OPERATION. */
    status_t getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence, Rect* outRect,
                                 uint32_t* outTransform) override;
    void getFrameTimestamps(FrameEventHistoryDelta* outDelta) override;
    status_t getUniqueId(uint64_t* outId) const override;
    /** The lower 32 bits. */
    status_t getConsumerUsage(uint64_t* outUsage) const override;

  private:
    const sp<HGraphicBufferProducer> mBase;
};

}  // namespace utils
}  // namespace V1_0
}  // namespace bufferqueue
}  // namespace graphics
}  // namespace hardware
}  // namespace android
