// SPDX-License-Identifier: Apache-2.0
// What the two ends of a buffer queue share.
#pragma once

#include <cstdint>
#include <list>
#include <mutex>
#include <vector>

#include <sys/types.h>

#include <android-base/thread_annotations.h>
#include <gui/BufferBudget.h>
#include <gui/BufferItem.h>
#include <gui/BufferQueueDefs.h>
#include <gui/BufferSlot.h>
#include <gui/IConsumerListener.h>
#include <gui/IProducerListener.h>
#include <gui/QueueCondition.h>
#include <gui/SlotSet.h>
#include <system/graphics.h>
#include <ui/PixelFormat.h>
#include <ui/Rect.h>
#include <utils/NativeHandle.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

/**
 * What clang is told about the core's mutex where the two ends depend on it. gcc has no use for it,
 * but would want a plain name in the parentheses.
 */
#if defined(__clang__)
#define GUARDED_BY_CORE GUARDED_BY(mCore->mMutex)
#define REQUIRES_CORE REQUIRES(mCore->mMutex)
#define EXCLUDES_CORE EXCLUDES(mCore->mMutex)
#define ACQUIRED_BEFORE_CORE ACQUIRED_BEFORE(mCore->mMutex)
#else
#define GUARDED_BY_CORE
#define REQUIRES_CORE
#define EXCLUDES_CORE
#define ACQUIRED_BEFORE_CORE
#endif

namespace android {

/**
 * Slots, queue and settings. The two ends work on the members directly.
 *
 * Each slot is in exactly one of four containers: mFreeSlots (free, without a buffer),
 * mFreeBuffers (free, with one; the oldest first), mActiveBuffers (not free) or mUnusedSlots
 * (beyond the number that the counts allow). Those that change with every frame keep their memory.
 */
class BufferQueueCore : public virtual RefBase {
    friend class BufferQueueProducer;
    friend class BufferQueueConsumer;

  public:
    enum {
        INVALID_BUFFER_SLOT = BufferItem::INVALID_BUFFER_SLOT,
        NO_CONNECTED_API = 0,
        CURRENTLY_CONNECTED_API = -1,
    };

    BufferQueueCore();
    ~BufferQueueCore() override = default;

  private:
    /**
     * Buffers that the producer can't have, because the consumer may hold them or the mode needs
     * one more.
     */
    int minUndequeuedBufferCount_l() const REQUIRES(mMutex);
    /** Slots in use under the present settings, or under those given. */
    int bufferCount_l() const REQUIRES(mMutex);
    int bufferCount_l(bool asyncMode, bool dequeueCannotBlock, int maxBufferCount) const
            REQUIRES(mMutex);
    /** Active slots in this state. */
    int count_l(BufferState state) const REQUIRES(mMutex);

    static bool isSlot(int slot);
    /** Whether the producer has this slot's buffer; not while it is still being allocated. */
    bool isDequeued_l(int slot) const REQUIRES(mMutex);

    /**
     * Takes this many more slots into use or, if negative, out of use.
     * @return false, with nothing changed, when not that many are unused or free.
     */
    bool adjustAvailableSlots_l(int delta) REQUIRES(mMutex);

    /** Forgets the slot's buffer and its history; leaves it in its container. */
    void clearSlot_l(int slot) REQUIRES(mMutex);
    /** Clears an active slot and makes it an empty one. */
    void emptyActiveSlot_l(int slot) REQUIRES(mMutex);
    /** Frees an active slot's buffer, as the last in line to be taken again. */
    void freeActiveBuffer_l(int slot) REQUIRES(mMutex);
    /** Takes the buffer that has been free for longest; there must be one. */
    int takeFreeBuffer_l() REQUIRES(mMutex);
    /** Clears all slots; queued frames become stale. */
    void freeAllBuffers_l() REQUIRES(mMutex);
    /** Clears the free buffers, telling the producer first. */
    void discardFreeBuffers_l() REQUIRES(mMutex);

    /** Releases the mutex while it waits. */
    void waitWhileAllocating_l() const REQUIRES(mMutex);
    void endAllocation_l() REQUIRES(mMutex);
    /** What becomes of a new buffer: NO_ERROR, its initCheck(), or NO_MEMORY beyond the budget. */
    status_t admit_l(const sp<GraphicBuffer>& buffer) REQUIRES(mMutex);

    mutable std::mutex mMutex;
    /** A slot may have become free, or waiting for one pointless. */
    QueueCondition mDequeueCondition;
    mutable QueueCondition mIsAllocatingCondition;

    /** The consumer is gone for good. */
    bool mIsAbandoned GUARDED_BY(mMutex) = false;
    String8 mConsumerName GUARDED_BY(mMutex);
    sp<IConsumerListener> mConsumerListener GUARDED_BY(mMutex);
    bool mConsumerControlledByApp GUARDED_BY(mMutex) = false;
    uint64_t mConsumerUsageBits GUARDED_BY(mMutex) = 0;
    bool mConsumerIsProtected GUARDED_BY(mMutex) = false;

    int mConnectedApi GUARDED_BY(mMutex) = NO_CONNECTED_API;
    pid_t mConnectedPid GUARDED_BY(mMutex) = -1;
    sp<IProducerListener> mConnectedProducerListener GUARDED_BY(mMutex);
    /** The connected producer wants onBufferReleased(). */
    bool mBufferReleasedCbEnabled GUARDED_BY(mMutex) = false;

    BufferBudget mBudget GUARDED_BY(mMutex);
    BufferQueueDefs::SlotsType mSlots GUARDED_BY(mMutex);
    std::vector<BufferItem> mQueue GUARDED_BY(mMutex);
    SlotSet mFreeSlots GUARDED_BY(mMutex);
    std::vector<int> mFreeBuffers GUARDED_BY(mMutex);
    std::list<int> mUnusedSlots GUARDED_BY(mMutex);
    SlotSet mActiveBuffers GUARDED_BY(mMutex);

    int mMaxBufferCount GUARDED_BY(mMutex) = BufferQueueDefs::NUM_BUFFER_SLOTS;
    int mMaxAcquiredBufferCount GUARDED_BY(mMutex) = 1;
    int mMaxDequeuedBufferCount GUARDED_BY(mMutex) = 1;
    bool mAsyncMode GUARDED_BY(mMutex) = false;
    bool mDequeueBufferCannotBlock GUARDED_BY(mMutex) = false;
    bool mQueueBufferCanDrop GUARDED_BY(mMutex) = false;
    bool mLegacyBufferDrop GUARDED_BY(mMutex) = true;
    bool mAllowAllocation GUARDED_BY(mMutex) = true;
    bool mAutoRefresh GUARDED_BY(mMutex) = false;
    /** Since the producer connected. */
    bool mBufferHasBeenQueued GUARDED_BY(mMutex) = false;
    bool mIsAllocating GUARDED_BY(mMutex) = false;

    PixelFormat mDefaultBufferFormat GUARDED_BY(mMutex) = PIXEL_FORMAT_RGBA_8888;
    uint32_t mDefaultWidth GUARDED_BY(mMutex) = 1;
    uint32_t mDefaultHeight GUARDED_BY(mMutex) = 1;
    android_dataspace mDefaultBufferDataSpace GUARDED_BY(mMutex) = HAL_DATASPACE_UNKNOWN;
    uint32_t mTransformHint GUARDED_BY(mMutex) = 0;
    uint32_t mGenerationNumber GUARDED_BY(mMutex) = 0;
    sp<NativeHandle> mSidebandStream GUARDED_BY(mMutex);

    uint64_t mFrameCounter GUARDED_BY(mMutex) = 0;
    uint64_t mBufferAge GUARDED_BY(mMutex) = 0;
    uint32_t mStickyTransform GUARDED_BY(mMutex) = 0;

    /** The frame queued last; INVALID_BUFFER_SLOT once its slot was cleared. */
    int mLastQueuedSlot GUARDED_BY(mMutex) = INVALID_BUFFER_SLOT;
    sp<Fence> mLastQueuedFence GUARDED_BY(mMutex) = Fence::NO_FENCE;
    Rect mLastQueuedCrop GUARDED_BY(mMutex) = Rect::EMPTY_RECT;
    uint32_t mLastQueuedTransform GUARDED_BY(mMutex) = 0;

    const uint64_t mUniqueId;
};

}  // namespace android
