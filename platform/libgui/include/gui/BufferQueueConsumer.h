// SPDX-License-Identifier: Apache-2.0
// The consumer's end of a buffer queue, on its core.
#pragma once

#include <cstdint>

#include <android-base/thread_annotations.h>
#include <gui/BufferQueueCore.h>
#include <gui/IGraphicBufferConsumer.h>

namespace android {

/** See IGraphicBufferConsumer. Made by BufferQueue::createBufferQueue(). */
class BufferQueueConsumer : public BnGraphicBufferConsumer {
  public:
    explicit BufferQueueConsumer(const sp<BufferQueueCore>& core);
    ~BufferQueueConsumer() override = default;

    status_t acquireBuffer(BufferItem* outBuffer, nsecs_t expectedPresent,
                           uint64_t maxFrameNumber = 0) override;
    status_t detachBuffer(int slot) override;
    status_t attachBuffer(int* outSlot, const sp<GraphicBuffer>& buffer) override;
    status_t releaseBuffer(int slot, uint64_t frameNumber, EGLDisplay display, EGLSyncKHR fence,
                           const sp<Fence>& releaseFence) override;
    status_t consumerConnect(const sp<IConsumerListener>& consumerListener,
                             bool controlledByApp) override;
    status_t consumerDisconnect() override;
    status_t getReleasedBuffers(uint64_t* outSlotMask) override;
    status_t setDefaultBufferSize(uint32_t width, uint32_t height) override;
    status_t setMaxBufferCount(int bufferCount) override;
    status_t setMaxAcquiredBufferCount(int maxAcquiredBuffers) override;
    status_t setConsumerName(const String8& name) override;
    status_t setDefaultBufferFormat(PixelFormat defaultFormat) override;
    status_t setDefaultBufferDataSpace(android_dataspace defaultDataSpace) override;
    status_t setConsumerUsageBits(uint64_t usage) override;
    status_t setConsumerIsProtected(bool isProtected) override;
    status_t setTransformHint(uint32_t hint) override;
    status_t getSidebandStream(sp<NativeHandle>* outStream) const override;
    status_t discardFreeBuffers() override;

  private:
    bool mayAcquire_l() const REQUIRES_CORE;
    int dropLateFrames_l(nsecs_t expectedPresent, uint64_t maxFrameNumber) REQUIRES_CORE;
    bool isFrontDue_l(nsecs_t expectedPresent, uint64_t maxFrameNumber) const REQUIRES_CORE;
    void takeFront_l(BufferItem* outBuffer) REQUIRES_CORE;
    int takeSlotForAttach_l() REQUIRES_CORE;

    const sp<BufferQueueCore> mCore;
};

}  // namespace android
