// SPDX-License-Identifier: Apache-2.0
// How a producer's frames get to the consumer.
#define LOG_TAG "BufferQueueProducer"

#include "gui/BufferQueueProducer.h"

#include <cerrno>
#include <memory>
#include <mutex>
#include <utility>

#include <log/log.h>
#include <system/window.h>

namespace android {
namespace {

/**
 * How often a wait for a fence checks that the queue is still there, and how long until it logs.
 */
constexpr int kGlanceMs = 100;
constexpr int kPatienceMs = 3000;

bool isScalingMode(int mode) {
    return mode >= NATIVE_WINDOW_SCALING_MODE_FREEZE &&
           mode <= NATIVE_WINDOW_SCALING_MODE_NO_SCALE_CROP;
}

}  // namespace

status_t BufferQueueProducer::checkQueueInput_l(int slot, const QueueBufferInput& input) const {
    const status_t status = checkDequeued_l(slot);
    if (status != NO_ERROR) return status;
    if (!mCore->mSlots[slot].mRequestBufferCalled) {
        ALOGE("queueBuffer: slot %d was queued without requesting a buffer", slot);
        return BAD_VALUE;
    }
    Rect cropped;
    mCore->mSlots[slot].mGraphicBuffer->getBounds().intersect(input.crop, &cropped);
    if (cropped != input.crop) {
        ALOGE("queueBuffer: crop rect is not contained within the buffer in slot %d", slot);
        return BAD_VALUE;
    }
    return NO_ERROR;
}

BufferItem BufferQueueProducer::makeItem_l(int slot, const QueueBufferInput& input) const {
    const BufferSlot& queued = mCore->mSlots[slot];
    BufferItem item;
    item.mGraphicBuffer = queued.mGraphicBuffer;
    item.mFence = input.fence;
    item.mFenceTime =
            input.fence->isValid() ? std::make_shared<FenceTime>(input.fence) : FenceTime::NO_FENCE;
    item.mCrop = input.crop;
    item.mTransform =
            input.transform & ~static_cast<uint32_t>(NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY);
    item.mTransformToDisplayInverse =
            (input.transform & NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY) != 0;
    item.mScalingMode = static_cast<uint32_t>(input.scalingMode);
    item.mTimestamp = input.timestamp;
    item.mIsAutoTimestamp = input.isAutoTimestamp != 0;
    item.mDataSpace = input.dataSpace == HAL_DATASPACE_UNKNOWN ? mCore->mDefaultBufferDataSpace
                                                               : input.dataSpace;
    item.mHdrMetadata = input.getHdrMetadata();
    item.mFrameNumber = queued.mFrameNumber;
    item.mSlot = slot;
    item.mAcquireCalled = queued.mAcquireCalled;
    item.mSurfaceDamage = input.getSurfaceDamage();
    item.mApi = mCore->mConnectedApi;
    item.mIsDroppable =
            mCore->mAsyncMode ||
            (mCore->mQueueBufferCanDrop && (mCore->mLegacyBufferDrop || mConsumerIsSurfaceFlinger));
    return item;
}

void BufferQueueProducer::enqueue_l(BufferItem item, QueueBufferOutput* output,
                                    FrameCallback* callback) {
    callback->replaced = !mCore->mQueue.empty() && mCore->mQueue.back().mIsDroppable;
    output->bufferReplaced = false;
    if (callback->replaced) {
        BufferItem& last = mCore->mQueue.back();
        item.mSurfaceDamage |= last.mSurfaceDamage;
        // A stale frame's slot is no longer its own.
        if (!last.mIsStale) {
            mCore->freeActiveBuffer_l(last.mSlot);
            output->bufferReplaced = true;
        }
        last = item;
    } else {
        mCore->mQueue.push_back(item);
    }
    callback->item = std::move(item);
    if (!mConsumerIsSurfaceFlinger) callback->item.mGraphicBuffer.clear();
    callback->listener = mCore->mConsumerListener;
    callback->ticket = mNextCallbackTicket++;
}

void BufferQueueProducer::rememberLastQueued_l(int slot, const QueueBufferInput& input) {
    mCore->mLastQueuedSlot = slot;
    mCore->mLastQueuedFence = input.fence;
    mCore->mLastQueuedCrop = input.crop;
    mCore->mLastQueuedTransform = input.transform;
}

void BufferQueueProducer::deliver(const FrameCallback& callback) {
    std::lock_guard<std::mutex> lock(mCallbackMutex);
    while (callback.ticket != mCurrentCallbackTicket) mCallbackCondition.wait(mCallbackMutex);
    if (callback.listener != nullptr) {
        if (callback.replaced) {
            callback.listener->onFrameReplaced(callback.item);
        } else {
            callback.listener->onFrameAvailable(callback.item);
        }
    }
    ++mCurrentCallbackTicket;
    mCallbackCondition.notifyAll();
}

void BufferQueueProducer::exchangeFrameEvents(const FrameCallback& callback,
                                              const QueueBufferInput& input,
                                              QueueBufferOutput* output) {
    if (callback.listener == nullptr) return;
    NewFrameEventsEntry events;
    events.frameNumber = callback.item.mFrameNumber;
    events.postedTime = systemTime(SYSTEM_TIME_MONOTONIC);
    events.requestedPresentTime = input.timestamp;
    events.acquireFence = callback.item.mFenceTime;
    callback.listener->addAndGetFrameTimestamps(
            &events, input.getFrameTimestamps ? &output->frameTimestamps : nullptr);
}

status_t BufferQueueProducer::queueBuffer(int slot, const QueueBufferInput& input,
                                          QueueBufferOutput* output) {
    if (input.fence == nullptr) {
        ALOGE("queueBuffer: fence is NULL");
        return BAD_VALUE;
    }
    if (!isScalingMode(input.scalingMode)) {
        ALOGE("queueBuffer: unknown scaling mode %d", input.scalingMode);
        return BAD_VALUE;
    }
    FrameCallback callback;
    sp<Fence> lastFence;
    int api;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        const status_t status = checkQueueInput_l(slot, input);
        if (status != NO_ERROR) return status;
        BufferSlot& queued = mCore->mSlots[slot];
        queued.mFence = input.fence;
        queued.mBufferState = BufferState::QUEUED;
        queued.mFrameNumber = ++mCore->mFrameCounter;
        mCore->mStickyTransform = input.stickyTransform;
        enqueue_l(makeItem_l(slot, input), output, &callback);
        lastFence = mCore->mLastQueuedFence;
        rememberLastQueued_l(slot, input);
        mCore->mBufferHasBeenQueued = true;
        mCore->mDequeueCondition.notifyAll();
        fillOutput_l(output);
        api = mCore->mConnectedApi;
    }
    exchangeFrameEvents(callback, input, output);
    deliver(callback);
    // An EGL producer's drawing runs at most one frame ahead.
    if (api == NATIVE_WINDOW_API_EGL) waitForLast(*lastFence);
    return NO_ERROR;
}

void BufferQueueProducer::waitForLast(Fence& fence) const {
    for (int waitedMs = 0; fence.wait(kGlanceMs) == -ETIME;) {
        waitedMs += kGlanceMs;
        if (waitedMs == kPatienceMs) {
            ALOGE("queueBuffer: fence %d has not signalled within %d ms", fence.get(), kPatienceMs);
        }
        const std::lock_guard<std::mutex> lock(mCore->mMutex);
        if (mCore->mIsAbandoned || mCore->mConnectedApi != NATIVE_WINDOW_API_EGL) return;
    }
}

status_t BufferQueueProducer::cancelBuffer(int slot, const sp<Fence>& fence) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    const status_t status = checkDequeued_l(slot);
    if (status != NO_ERROR) return status;
    if (fence == nullptr) {
        ALOGE("cancelBuffer: fence is NULL");
        return BAD_VALUE;
    }
    mCore->mSlots[slot].mFence = fence;
    mCore->freeActiveBuffer_l(slot);
    if (mCore->mConsumerListener != nullptr) {
        mCore->mConsumerListener->onFrameCancelled(mCore->mSlots[slot].mGraphicBuffer->getId());
    }
    mCore->mDequeueCondition.notifyAll();
    return NO_ERROR;
}

}  // namespace android
