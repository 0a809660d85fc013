// SPDX-License-Identifier: Apache-2.0
// The producer's end of a buffer queue.
#pragma once

#include <cstdint>

#include <gui/FrameTimestamps.h>
#include <gui/HdrMetadata.h>
#include <gui/IProducerListener.h>
#include <system/graphics.h>
#include <ui/BufferQueueDefs.h>
#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <ui/PixelFormat.h>
#include <ui/Rect.h>
#include <ui/Region.h>
#include <utils/Errors.h>
#include <utils/NativeHandle.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

/**
 * connect() comes first; then frames go round: dequeueBuffer() gives a slot to draw into (and,
 * with BUFFER_NEEDS_REALLOCATION, requestBuffer() its buffer), queueBuffer() hands it to the
 * consumer, or cancelBuffer() gives it back.
 *
 * Every method may be called from any thread. Methods that can fail return NO_INIT once the
 * consumer is gone; those that handle slots also do while no producer is connected.
 */
class IGraphicBufferProducer : public RefBase {
  public:
    enum {
        BUFFER_NEEDS_REALLOCATION = BufferQueueDefs::BUFFER_NEEDS_REALLOCATION,
        RELEASE_ALL_BUFFERS = BufferQueueDefs::RELEASE_ALL_BUFFERS,
    };

    enum class DisconnectMode {
        /** The producer of the given API. */
        Api,
        /** Whatever the calling process has connected; no error if that is nothing. */
        AllLocal,
    };

    /** What goes with a queued frame. `slot` is used by batches only. */
    struct QueueBufferInput {
        QueueBufferInput() = default;
        QueueBufferInput(int64_t inTimestamp, bool inIsAutoTimestamp, android_dataspace inDataSpace,
                         const Rect& inCrop, int inScalingMode, uint32_t inTransform,
                         const sp<Fence>& inFence, uint32_t inSticky = 0,
                         bool inGetFrameTimestamps = false, int inSlot = -1)
            : timestamp(inTimestamp),
              isAutoTimestamp(inIsAutoTimestamp),
              dataSpace(inDataSpace),
              crop(inCrop),
              scalingMode(inScalingMode),
              transform(inTransform),
              stickyTransform(inSticky),
              fence(inFence),
              getFrameTimestamps(inGetFrameTimestamps),
              slot(inSlot) {}

        const Region& getSurfaceDamage() const { return surfaceDamage; }
        void setSurfaceDamage(const Region& damage) { surfaceDamage = damage; }
        const HdrMetadata& getHdrMetadata() const { return hdrMetadata; }
        void setHdrMetadata(const HdrMetadata& metadata) { hdrMetadata = metadata; }

        /** Writes every member but slot, damage and HDR metadata; only the last two may be null. */
        void deflate(int64_t* outTimestamp, bool* outIsAutoTimestamp,
                     android_dataspace* outDataSpace, Rect* outCrop, int* outScalingMode,
                     uint32_t* outTransform, sp<Fence>* outFence,
                     uint32_t* outStickyTransform = nullptr,
                     bool* outGetFrameTimestamps = nullptr) const;

        int64_t timestamp = 0;
        int isAutoTimestamp = 0;
        android_dataspace dataSpace = HAL_DATASPACE_UNKNOWN;
        Rect crop;
        int scalingMode = 0;
        uint32_t transform = 0;
        uint32_t stickyTransform = 0;
        /** Must be set: a fence without a descriptor says that the picture is finished. */
        sp<Fence> fence;
        Region surfaceDamage;
        bool getFrameTimestamps = false;
        int slot = -1;
        HdrMetadata hdrMetadata;
    };

    /** The queue's state after connect() or queueBuffer(). */
    struct QueueBufferOutput {
        QueueBufferOutput() = default;
        QueueBufferOutput(QueueBufferOutput&&) = default;
        QueueBufferOutput& operator=(QueueBufferOutput&&) = default;
        QueueBufferOutput(const QueueBufferOutput&) = delete;
        QueueBufferOutput& operator=(const QueueBufferOutput&) = delete;

        /** The consumer's default size. */
        uint32_t width = 0;
        uint32_t height = 0;
        uint32_t transformHint = 0;
        /** Frames waiting for the consumer, this one included. */
        uint32_t numPendingBuffers = 0;
        uint64_t nextFrameNumber = 0;
        FrameEventHistoryDelta frameTimestamps;
        /** The frame took the place of one that the consumer will not see. */
        bool bufferReplaced = false;
        /** Set by connect() only. */
        int maxBufferCount = 0;
        status_t result = NO_ERROR;
    };

    /**
     * The buffer of a dequeued slot.
     * @return BAD_VALUE when the slot isn't one or isn't dequeued.
     */
    virtual status_t requestBuffer(int slot, sp<GraphicBuffer>* buf) = 0;

    /**
     * How many buffers the producer may hold at a time, at least 1. May be called unconnected.
     * @return BAD_VALUE when the queue has no room for that many or the producer holds more.
     */
    virtual status_t setMaxDequeuedBufferCount(int maxDequeuedBuffers) = 0;

    /**
     * In async mode frames replace each other instead of piling up, and the producer never waits.
     * @return BAD_VALUE when there is no room for the extra buffer that it takes.
     */
    virtual status_t setAsyncMode(bool async) = 0;

    /**
     * Gives a slot to draw into, waiting for one if need be and if allowed. Width and height 0
     * stand for the consumer's default size, format 0 for its format.
     * @param outFence         signals when the buffer may be written; untouched on error.
     * @param outBufferAge     frames since the buffer was last queued, 0 if new; may be null.
     * @param outTimestamps    may be null.
     * @return NO_ERROR or BUFFER_NEEDS_REALLOCATION; BAD_VALUE when just one of width and height is
     *         0; INVALID_OPERATION when the producer holds all it may; WOULD_BLOCK in a mode that
     *         never waits; TIMED_OUT; NO_MEMORY or BAD_VALUE as the allocator says;
     *         NO_MEMORY when the queue has allocated all that it may (see BufferBudget).
     */
    virtual status_t dequeueBuffer(int* slot, sp<Fence>* fence, uint32_t width, uint32_t height,
                                   PixelFormat format, uint64_t usage, uint64_t* outBufferAge,
                                   FrameEventHistoryDelta* outTimestamps) = 0;

    /** Takes a requested buffer out of the queue for good. BAD_VALUE when it isn't held. */
    virtual status_t detachBuffer(int slot) = 0;

    /** Takes the oldest free buffer out of the queue; NO_MEMORY when there is none. Never waits. */
    virtual status_t detachNextBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence) = 0;

    /**
     * Puts a foreign buffer into a slot, which then counts as dequeued and requested. Waits like
     * dequeueBuffer(). BAD_VALUE when the buffer's generation isn't the queue's.
     */
    virtual status_t attachBuffer(int* outSlot, const sp<GraphicBuffer>& buffer) = 0;

    /**
     * Hands a dequeued and requested buffer to the consumer, whose callback runs before this
     * returns.
     * @return BAD_VALUE for a missing fence, an unknown scaling mode, a slot that isn't held or was
     *         never requested, a crop beyond the buffer. The slot then stays dequeued.
     */
    virtual status_t queueBuffer(int slot, const QueueBufferInput& input,
                                 QueueBufferOutput* output) = 0;

    /** Gives a dequeued buffer back; whoever gets it next waits for `fence`. */
    virtual status_t cancelBuffer(int slot, const sp<Fence>& fence) = 0;

    /** The value of a NATIVE_WINDOW_* key; BAD_VALUE for keys that the queue doesn't know. */
    virtual int query(int what, int* value) = 0;

    /**
     * Connects the one producer.
     * @param listener may be null.
     * @param api      NATIVE_WINDOW_API_*
     * @return NO_INIT without a consumer; BAD_VALUE when `output` is null, the API is unknown or a
     *         producer is connected.
     */
    virtual status_t connect(const sp<IProducerListener>& listener, int api,
                             bool producerControlledByApp, QueueBufferOutput* output) = 0;

    /**
     * Frees all slots, held ones too; waiting frames can still be acquired.
     * @return BAD_VALUE for an unknown API or one other than the connected one; NO_INIT when none
     *         is.
     */
    virtual status_t disconnect(int api, DisconnectMode mode = DisconnectMode::Api) = 0;

    /**
     * The same for the connection that was made with this listener. NO_ERROR, and nothing happens,
     * when it has already ended.
     */
    virtual status_t disconnectListener(const sp<IProducerListener>& listener);

    /** Replaces the one before; stays until the connection or the queue ends. */
    virtual status_t setSidebandStream(const sp<NativeHandle>& stream) = 0;

    /** Allocates buffers for all slots that have none. 0 stands for the consumer's defaults. */
    virtual void allocateBuffers(uint32_t width, uint32_t height, PixelFormat format,
                                 uint64_t usage) = 0;

    /** When not allowed, dequeueBuffer() gives only buffers that already exist. */
    virtual status_t allowAllocation(bool allow) = 0;

    /** Marks buffers that are allocated from now on. */
    virtual status_t setGenerationNumber(uint32_t generationNumber) = 0;

    /** As of the latest connect() or dequeueBuffer(); empty before. */
    virtual String8 getConsumerName() const = 0;

    /** Sharing one buffer isn't supported: INVALID_OPERATION for true. */
    virtual status_t setSharedBufferMode(bool sharedBufferMode) = 0;

    virtual status_t setAutoRefresh(bool autoRefresh) = 0;

    /** How long dequeueBuffer() and attachBuffer() wait, in nanoseconds; negative is for ever. */
    virtual status_t setDequeueTimeout(nsecs_t timeout) = 0;

    /** Until the next connect(). */
    virtual status_t setLegacyBufferDrop(bool drop);

    /** The last queued frame and its fence; null and NO_FENCE when there is none. */
    virtual status_t getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence,
                                         float outTransformMatrix[16]) = 0;
    virtual status_t getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence,
                                         Rect* outRect, uint32_t* outTransform) = 0;

    virtual void getFrameTimestamps(FrameEventHistoryDelta* outDelta) = 0;

    /** Unique among all queues. */
    virtual status_t getUniqueId(uint64_t* outId) const = 0;

    virtual status_t getConsumerUsage(uint64_t* outUsage) const = 0;

    virtual status_t setAutoPrerotation(bool autoPrerotation);
};

class BnGraphicBufferProducer : public IGraphicBufferProducer {};

}  // namespace android
