// SPDX-License-Identifier: Apache-2.0
// Makes a buffer queue: a producer's and a consumer's end of one core.
#pragma once

#include <cstdint>

#include <gui/BufferItem.h>
#include <gui/BufferQueueDefs.h>
#include <gui/IConsumerListener.h>
#include <gui/IGraphicBufferConsumer.h>
#include <gui/IGraphicBufferProducer.h>

namespace android {

class BufferQueue {
  public:
    enum {
        NUM_BUFFER_SLOTS = BufferQueueDefs::NUM_BUFFER_SLOTS,
        INVALID_BUFFER_SLOT = BufferItem::INVALID_BUFFER_SLOT,
        STALE_BUFFER_SLOT = IGraphicBufferConsumer::STALE_BUFFER_SLOT,
        NO_BUFFER_AVAILABLE = IGraphicBufferConsumer::NO_BUFFER_AVAILABLE,
        PRESENT_LATER = IGraphicBufferConsumer::PRESENT_LATER,
        MAX_MAX_ACQUIRED_BUFFERS = NUM_BUFFER_SLOTS - 2,
    };

    using ConsumerListener = ::android::ConsumerListener;

    /**
     * What a consumer connects with, so that the queue doesn't keep it alive: passes every call on
     * while the consumer lives.
     */
    class ProxyConsumerListener : public BnConsumerListener {
      public:
        explicit ProxyConsumerListener(const wp<ConsumerListener>& consumerListener);
        ~ProxyConsumerListener() override;

        void onDisconnect() override;
        void onFrameDequeued(const uint64_t bufferId) override;
        void onFrameCancelled(const uint64_t bufferId) override;
        void onFrameDetached(const uint64_t bufferId) override;
        void onFrameAvailable(const BufferItem& item) override;
        void onFrameReplaced(const BufferItem& item) override;
        void onBuffersReleased() override;
        void onSidebandStreamChanged() override;
        void addAndGetFrameTimestamps(const NewFrameEventsEntry* newTimestamps,
                                      FrameEventHistoryDelta* outDelta) override;

      private:
        const wp<ConsumerListener> mConsumerListener;
    };

    BufferQueue() = delete;

    /**
     * Makes a queue. Neither pointer may be null.
     * @param consumerIsSurfaceFlinger frame callbacks carry the buffer, and frames are droppable
     *        whenever the producer may not block.
     */
    static void createBufferQueue(sp<IGraphicBufferProducer>* outProducer,
                                  sp<IGraphicBufferConsumer>* outConsumer,
                                  bool consumerIsSurfaceFlinger = false);
};

}  // namespace android
