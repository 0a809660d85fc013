// SPDX-License-Identifier: Apache-2.0
// What the two ends of a buffer queue share.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <vector>

#include <sys/types.h>

#include <gui/BufferBudget.h>
#include <gui/BufferItem.h>
#include <gui/BufferQueueDefs.h>
#include <gui/BufferSlot.h>
#include <gui/IConsumerListener.h>
#include <gui/IProducerListener.h>
#include <gui/SlotSet.h>
#include <system/graphics.h>
#include <ui/PixelFormat.h>
#include <ui/Rect.h>
#include <utils/NativeHandle.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

/**
 * Slots, queue and settings. The two ends work on the members directly, all of which mMutex guards;
 * methods ending in _l need it held.
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
    /** Buffers that the producer can't have, because the consumer may or the mode needs one more.
     */
    int minUndequeuedBufferCount_l() const;
    /** Slots in use under the present settings, or under others. */
    int bufferCount_l() const;
    int bufferCount_l(bool asyncMode, bool dequeueCannotBlock, int maxBufferCount) const;
    /** Active slots in this state. */
    int count_l(BufferState state) const;

    static bool isSlot(int slot);
    /** Whether the producer has this slot's buffer; not while it is still being allocated. */
    bool isDequeued_l(int slot) const;

    /**
     * Takes so many more slots into use or, if negative, out of use.
     * @return false, and nothing changes, when there aren't as many that are unused or free.
     */
    bool adjustAvailableSlots_l(int delta);

    /** Forgets the slot's buffer and its history; leaves it in its container. */
    void clearSlot_l(int slot);
    /** Clears an active slot and makes it an empty one. */
    void emptyActiveSlot_l(int slot);
    /** An active slot's buffer becomes the last to be taken again. */
    void freeActiveBuffer_l(int slot);
    /** Takes the buffer that has been free for longest; there has to be one. */
    int takeFreeBuffer_l();
    /** Clears all slots; queued frames become stale. */
    void freeAllBuffers_l();
    /** Clears the free buffers, telling the producer first. */
    void discardFreeBuffers_l();

    void waitWhileAllocating_l(std::unique_lock<std::mutex>& lock) const;
    void endAllocation_l();
    /** What becomes of a new buffer: NO_ERROR, its initCheck(), or NO_MEMORY beyond the budget. */
    status_t admit_l(const sp<GraphicBuffer>& buffer);

    mutable std::mutex mMutex;
    /** A slot may have become free, or waiting for one pointless. */
    std::condition_variable mDequeueCondition;
    mutable std::condition_variable mIsAllocatingCondition;

    /** The consumer has gone; for ever. */
    bool mIsAbandoned = false;
    String8 mConsumerName;
    sp<IConsumerListener> mConsumerListener;
    bool mConsumerControlledByApp = false;
    uint64_t mConsumerUsageBits = 0;
    bool mConsumerIsProtected = false;

    int mConnectedApi = NO_CONNECTED_API;
    pid_t mConnectedPid = -1;
    sp<IProducerListener> mConnectedProducerListener;
    /** The connected producer wants onBufferReleased(). */
    bool mBufferReleasedCbEnabled = false;

    BufferBudget mBudget;
    BufferQueueDefs::SlotsType mSlots;
    std::vector<BufferItem> mQueue;
    SlotSet mFreeSlots;
    std::vector<int> mFreeBuffers;
    std::list<int> mUnusedSlots;
    SlotSet mActiveBuffers;

    int mMaxBufferCount = BufferQueueDefs::NUM_BUFFER_SLOTS;
    int mMaxAcquiredBufferCount = 1;
    int mMaxDequeuedBufferCount = 1;
    bool mAsyncMode = false;
    bool mDequeueBufferCannotBlock = false;
    bool mQueueBufferCanDrop = false;
    bool mLegacyBufferDrop = true;
    bool mAllowAllocation = true;
    bool mAutoRefresh = false;
    /** Since the producer connected. */
    bool mBufferHasBeenQueued = false;
    bool mIsAllocating = false;

    PixelFormat mDefaultBufferFormat = PIXEL_FORMAT_RGBA_8888;
    uint32_t mDefaultWidth = 1;
    uint32_t mDefaultHeight = 1;
    android_dataspace mDefaultBufferDataSpace = HAL_DATASPACE_UNKNOWN;
    uint32_t mTransformHint = 0;
    uint32_t mGenerationNumber = 0;
    sp<NativeHandle> mSidebandStream;

    uint64_t mFrameCounter = 0;
    uint64_t mBufferAge = 0;
    uint32_t mStickyTransform = 0;

    /** The frame queued last; INVALID_BUFFER_SLOT once its slot was cleared. */
    int mLastQueuedSlot = INVALID_BUFFER_SLOT;
    sp<Fence> mLastQueuedFence = Fence::NO_FENCE;
    Rect mLastQueuedCrop = Rect::EMPTY_RECT;
    uint32_t mLastQueuedTransform = 0;

    const uint64_t mUniqueId;
};

}  // namespace android
