// SPDX-License-Identifier: Apache-2.0
// What a buffer queue tells its consumer.
#pragma once

#include <cstdint>

#include <gui/FrameTimestamps.h>
#include <utils/RefBase.h>

namespace android {

class BufferItem;

/**
 * Callbacks run on the thread of the producer's (or, for releases, the consumer's) call. The three
 * with a buffer id run with the queue's lock held: nothing of the queue may be called from them.
 */
class ConsumerListener : public virtual RefBase {
  public:
    ConsumerListener() = default;
    ~ConsumerListener() override = default;

    /** The producer has disconnected; onBuffersReleased() came first. No lock held. */
    virtual void onDisconnect() {}

    virtual void onFrameDequeued(const uint64_t /*bufferId*/) {}
    virtual void onFrameCancelled(const uint64_t /*bufferId*/) {}
    virtual void onFrameDetached(const uint64_t /*bufferId*/) {}

    /**
     * A frame was added to the queue. Frame callbacks come one at a time and in the order of frame
     * numbers. Consumer calls are allowed; queueBuffer() of the same queue would wait for ever.
     */
    virtual void onFrameAvailable(const BufferItem& item) = 0;

    /** A frame took the place of the last one, which the consumer will not see. As above. */
    virtual void onFrameReplaced(const BufferItem& /*item*/) {}

    /** Slots have lost their buffers: ask getReleasedBuffers() which. No lock held. */
    virtual void onBuffersReleased() = 0;

    virtual void onSidebandStreamChanged() = 0;

    /** Comes with every queued frame, and with dequeues that ask for times. No lock held. */
    virtual void addAndGetFrameTimestamps(const NewFrameEventsEntry* /*newTimestamps*/,
                                          FrameEventHistoryDelta* /*outDelta*/) {}
};

class IConsumerListener : public ConsumerListener {};

class BnConsumerListener : public IConsumerListener {};

}  // namespace android
