// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "BufferQueueConsumer"

#include "gui/BufferQueueConsumer.h"

#include <utility>

#include <gui/BufferQueue.h>
#include <log/log.h>

namespace android {
namespace {

// Times further ahead than this are mistakes: such a frame is shown now.
constexpr nsecs_t kMaxReasonableNs = 1000000000;

}  // namespace

BufferQueueConsumer::BufferQueueConsumer(const sp<BufferQueueCore>& core) : mCore(core) {}

bool BufferQueueConsumer::mayAcquire_l() const {
    // One more than was set, so that the consumer can take a frame before it releases the last.
    return mCore->count_l(BufferState::ACQUIRED) <= mCore->mMaxAcquiredBufferCount;
}

int BufferQueueConsumer::dropLateFrames_l(nsecs_t expectedPresent, uint64_t maxFrameNumber) {
    int dropped = 0;
    while (mCore->mQueue.size() > 1 && !mCore->mQueue.front().mIsAutoTimestamp) {
        const BufferItem& next = mCore->mQueue[1];
        if (maxFrameNumber != 0 && next.mFrameNumber > maxFrameNumber) break;
        if (next.mTimestamp < expectedPresent - kMaxReasonableNs ||
            next.mTimestamp > expectedPresent) {
            break;
        }
        const BufferItem& front = mCore->mQueue.front();
        if (!front.mIsStale) {
            mCore->freeActiveBuffer_l(front.mSlot);
            ++dropped;
        }
        mCore->mQueue.erase(mCore->mQueue.begin());
    }
    return dropped;
}

bool BufferQueueConsumer::isFrontDue_l(nsecs_t expectedPresent, uint64_t maxFrameNumber) const {
    const BufferItem& front = mCore->mQueue.front();
    const bool isDue = front.mTimestamp <= expectedPresent ||
                       front.mTimestamp > expectedPresent + kMaxReasonableNs;
    return isDue && (maxFrameNumber == 0 || front.mFrameNumber <= maxFrameNumber);
}

void BufferQueueConsumer::takeFront_l(BufferItem* outBuffer) {
    *outBuffer = std::move(mCore->mQueue.front());
    mCore->mQueue.erase(mCore->mQueue.begin());
    if (!outBuffer->mIsStale) {
        BufferSlot& slot = mCore->mSlots[outBuffer->mSlot];
        slot.mAcquireCalled = true;
        slot.mBufferState = BufferState::ACQUIRED;
        slot.mFence = Fence::NO_FENCE;
    }
    // The consumer has had this buffer before and is to use the one it kept.
    if (outBuffer->mAcquireCalled) outBuffer->mGraphicBuffer.clear();
}

status_t BufferQueueConsumer::acquireBuffer(BufferItem* outBuffer, nsecs_t expectedPresent,
                                            uint64_t maxFrameNumber) {
    int dropped = 0;
    bool wasTooLong = false;
    sp<IProducerListener> listener;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        if (!mayAcquire_l()) {
            ALOGE("acquireBuffer: max acquired buffer count reached: %d (max %d)",
                  mCore->count_l(BufferState::ACQUIRED), mCore->mMaxAcquiredBufferCount);
            return INVALID_OPERATION;
        }
        if (mCore->mQueue.empty()) return NO_BUFFER_AVAILABLE;
        if (expectedPresent != 0) {
            dropped = dropLateFrames_l(expectedPresent, maxFrameNumber);
            if (!isFrontDue_l(expectedPresent, maxFrameNumber)) return PRESENT_LATER;
        }
        wasTooLong = static_cast<int>(mCore->mQueue.size()) > mCore->bufferCount_l();
        takeFront_l(outBuffer);
        if (mCore->mBufferReleasedCbEnabled) listener = mCore->mConnectedProducerListener;
    }
    // Taking a frame frees no slot: wake nobody in vain.
    if (dropped > 0 || wasTooLong) mCore->mDequeueCondition.notifyAll();
    for (; listener != nullptr && dropped > 0; --dropped) listener->onBufferReleased();
    return NO_ERROR;
}

status_t BufferQueueConsumer::detachBuffer(int slot) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    if (mCore->mIsAbandoned) return NO_INIT;
    if (!BufferQueueCore::isSlot(slot) ||
        mCore->mSlots[slot].mBufferState != BufferState::ACQUIRED) {
        ALOGE("detachBuffer: slot %d is not acquired", slot);
        return BAD_VALUE;
    }
    mCore->emptyActiveSlot_l(slot);
    mCore->mDequeueCondition.notifyAll();
    return NO_ERROR;
}

int BufferQueueConsumer::takeSlotForAttach_l() {
    if (!mCore->mFreeSlots.empty()) return mCore->mFreeSlots.takeFirst();
    if (!mCore->mFreeBuffers.empty()) return mCore->takeFreeBuffer_l();
    return BufferQueueCore::INVALID_BUFFER_SLOT;
}

status_t BufferQueueConsumer::attachBuffer(int* outSlot, const sp<GraphicBuffer>& buffer) {
    if (outSlot == nullptr || buffer == nullptr) return BAD_VALUE;
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    if (!mayAcquire_l()) return INVALID_OPERATION;
    if (buffer->getGenerationNumber() != mCore->mGenerationNumber) {
        ALOGE("attachBuffer: generation number mismatch [buffer %u] [queue %u]",
              buffer->getGenerationNumber(), mCore->mGenerationNumber);
        return BAD_VALUE;
    }
    const int slot = takeSlotForAttach_l();
    if (slot == BufferQueueCore::INVALID_BUFFER_SLOT) return NO_MEMORY;
    mCore->clearSlot_l(slot);
    mCore->mSlots[slot].mGraphicBuffer = buffer;
    mCore->mSlots[slot].mBufferState = BufferState::ACQUIRED;
    mCore->mActiveBuffers.insert(slot);
    *outSlot = slot;
    return NO_ERROR;
}

status_t BufferQueueConsumer::releaseBuffer(int slot, uint64_t frameNumber, EGLDisplay /*display*/,
                                            EGLSyncKHR /*fence*/, const sp<Fence>& releaseFence) {
    if (!BufferQueueCore::isSlot(slot) || releaseFence == nullptr) {
        ALOGE("releaseBuffer: slot %d, fence %p", slot, releaseFence.get());
        return BAD_VALUE;
    }
    sp<IProducerListener> listener;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        if (frameNumber != mCore->mSlots[slot].mFrameNumber) return STALE_BUFFER_SLOT;
        if (mCore->mSlots[slot].mBufferState != BufferState::ACQUIRED) {
            ALOGE("releaseBuffer: slot %d is not acquired", slot);
            return BAD_VALUE;
        }
        mCore->mSlots[slot].mFence = releaseFence;
        mCore->freeActiveBuffer_l(slot);
        if (mCore->mBufferReleasedCbEnabled) listener = mCore->mConnectedProducerListener;
    }
    // Without the lock, which a producer waiting for the buffer takes as soon as it wakes.
    mCore->mDequeueCondition.notifyAll();
    if (listener != nullptr) listener->onBufferReleased();
    return NO_ERROR;
}

status_t BufferQueueConsumer::consumerConnect(const sp<IConsumerListener>& consumerListener,
                                              bool controlledByApp) {
    if (consumerListener == nullptr) return BAD_VALUE;
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    if (mCore->mIsAbandoned) return NO_INIT;
    mCore->mConsumerListener = consumerListener;
    mCore->mConsumerControlledByApp = controlledByApp;
    return NO_ERROR;
}

status_t BufferQueueConsumer::consumerDisconnect() {
    // Declared before the lock: a listener that goes with them may call the queue.
    sp<IConsumerListener> listener;
    sp<IProducerListener> producerListener;
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    if (mCore->mConsumerListener == nullptr) return BAD_VALUE;
    mCore->mIsAbandoned = true;
    std::swap(listener, mCore->mConsumerListener);
    // Nothing of the producer's may stay in the queue: it can hold its end for ever.
    std::swap(producerListener, mCore->mConnectedProducerListener);
    mCore->mSidebandStream.clear();
    mCore->mLastQueuedFence = Fence::NO_FENCE;
    mCore->mQueue.clear();
    mCore->freeAllBuffers_l();
    mCore->mDequeueCondition.notifyAll();
    return NO_ERROR;
}

status_t BufferQueueConsumer::getReleasedBuffers(uint64_t* outSlotMask) {
    if (outSlotMask == nullptr) return BAD_VALUE;
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    if (mCore->mIsAbandoned) return NO_INIT;
    uint64_t mask = 0;
    for (int slot = 0; slot < BufferQueueDefs::NUM_BUFFER_SLOTS; ++slot) {
        if (!mCore->mSlots[slot].mAcquireCalled) mask |= uint64_t{1} << slot;
    }
    for (const BufferItem& item : mCore->mQueue) {
        if (item.mAcquireCalled) mask &= ~(uint64_t{1} << item.mSlot);
    }
    *outSlotMask = mask;
    return NO_ERROR;
}

}  // namespace android
