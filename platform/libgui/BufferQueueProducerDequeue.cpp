// SPDX-License-Identifier: Apache-2.0
// How a producer gets slots and buffers.
#define LOG_TAG "BufferQueueProducer"

#include "gui/BufferQueueProducer.h"

#include <algorithm>
#include <chrono>
#include <string>

#include <log/log.h>

namespace android {
namespace {

// As good as for ever, and far below where a time would overflow.
constexpr nsecs_t kLongestWaitNs = 365LL * 24 * 3600 * 1000000000;

}  // namespace

status_t BufferQueueProducer::checkDequeued_l(int slot) const {
    const status_t status = checkConnected_l();
    if (status != NO_ERROR) return status;
    if (!mCore->isDequeued_l(slot)) {
        ALOGE("slot %d is not owned by the producer", slot);
        return BAD_VALUE;
    }
    return NO_ERROR;
}

status_t BufferQueueProducer::requestBuffer(int slot, sp<GraphicBuffer>* buf) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    const status_t status = checkDequeued_l(slot);
    if (status != NO_ERROR) return status;
    mCore->mSlots[slot].mRequestBufferCalled = true;
    *buf = mCore->mSlots[slot].mGraphicBuffer;
    return NO_ERROR;
}

bool BufferQueueProducer::waitForRelease_l() {
    if (mDequeueTimeout < 0) {
        mCore->mDequeueCondition.wait(mCore->mMutex);
        return true;
    }
    const std::chrono::nanoseconds timeout(std::min(mDequeueTimeout, kLongestWaitNs));
    return timeout.count() > 0 && mCore->mDequeueCondition.waitFor(mCore->mMutex, timeout);
}

int BufferQueueProducer::takeFreeSlot_l(FreeSlotCaller caller) {
    const bool mayTakeEmpty = !mCore->mFreeSlots.empty() &&
                              (caller == FreeSlotCaller::ATTACH ||
                               (mCore->mFreeBuffers.empty() && mCore->mAllowAllocation));
    if (mayTakeEmpty) {
        return mCore->mFreeSlots.takeFirst();
    }
    if (mCore->mFreeBuffers.empty()) return BufferQueueCore::INVALID_BUFFER_SLOT;
    return mCore->takeFreeBuffer_l();
}

status_t BufferQueueProducer::waitForFreeSlot_l(FreeSlotCaller caller, int* outSlot) {
    for (;;) {
        if (mCore->mIsAbandoned) return NO_INIT;
        // Until a frame has been queued, the producer may take them all, to fill its own pipeline.
        if (mCore->mBufferHasBeenQueued &&
            mCore->count_l(BufferState::DEQUEUED) >= mCore->mMaxDequeuedBufferCount) {
            ALOGE("attempting to exceed the max dequeued buffer count (%d)",
                  mCore->mMaxDequeuedBufferCount);
            return INVALID_OPERATION;
        }
        // Quick reconnects pile up stale frames; the consumer has to work through them first.
        if (static_cast<int>(mCore->mQueue.size()) <= mCore->bufferCount_l()) {
            const int slot = takeFreeSlot_l(caller);
            if (slot != BufferQueueCore::INVALID_BUFFER_SLOT) {
                *outSlot = slot;
                return NO_ERROR;
            }
        }
        if ((mCore->mDequeueBufferCannotBlock || mCore->mAsyncMode) &&
            mCore->count_l(BufferState::ACQUIRED) <= mCore->mMaxAcquiredBufferCount) {
            return WOULD_BLOCK;
        }
        if (!waitForRelease_l()) return TIMED_OUT;
    }
}

bool BufferQueueProducer::isSuited_l(int slot, const Request& request) const {
    const sp<GraphicBuffer>& buffer = mCore->mSlots[slot].mGraphicBuffer;
    return buffer != nullptr && !buffer->needsReallocation(request.width, request.height,
                                                           request.format, 1, request.usage);
}

status_t BufferQueueProducer::takeSlot_l(const Request& request, int* outSlot) {
    for (;;) {
        int slot;
        const status_t status = waitForFreeSlot_l(FreeSlotCaller::DEQUEUE, &slot);
        if (status != NO_ERROR) return status;
        if (mCore->mAllowAllocation || isSuited_l(slot, request)) {
            *outSlot = slot;
            return NO_ERROR;
        }
        mCore->mFreeSlots.insert(slot);
        mCore->clearSlot_l(slot);
    }
}

void BufferQueueProducer::markDequeued_l(int slot, const Request& request, Dequeued* out) {
    BufferSlot& taken = mCore->mSlots[slot];
    taken.mBufferState = BufferState::DEQUEUED;
    mCore->mActiveBuffers.insert(slot);
    out->slot = slot;
    out->needsRequest = taken.mNeedsReallocation;
    taken.mNeedsReallocation = false;
    out->needsBuffer = !isSuited_l(slot, request);
    if (out->needsBuffer) {
        taken.mGraphicBuffer.clear();
        taken.mAcquireCalled = false;
        taken.mRequestBufferCalled = false;
        taken.mFence = Fence::NO_FENCE;
        mCore->mBufferAge = 0;
        mCore->mIsAllocating = true;
    } else {
        mCore->mBufferAge = mCore->mFrameCounter + 1 - taken.mFrameNumber;
        if (mCore->mConsumerListener != nullptr) {
            mCore->mConsumerListener->onFrameDequeued(taken.mGraphicBuffer->getId());
        }
    }
    out->age = mCore->mBufferAge;
    out->fence = taken.mFence;
    taken.mFence = Fence::NO_FENCE;
}

status_t BufferQueueProducer::dequeueSlot(Request request, Request* outRequest, Dequeued* out) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    if (mCore->mFreeBuffers.empty()) mCore->waitWhileAllocating_l();
    if (request.format == 0) request.format = mCore->mDefaultBufferFormat;
    request.usage |= mCore->mConsumerUsageBits;
    if (request.width == 0) {
        request.width = mCore->mDefaultWidth;
        request.height = mCore->mDefaultHeight;
    }
    *outRequest = request;
    int slot;
    const status_t status = takeSlot_l(request, &slot);
    if (status == NO_ERROR) markDequeued_l(slot, request, out);
    return status;
}

sp<GraphicBuffer> BufferQueueProducer::makeBuffer(const Request& request,
                                                  const String8& name) const {
    return new GraphicBuffer(request.width, request.height, request.format, 1, request.usage,
                             std::string(name.c_str(), name.size()));
}

status_t BufferQueueProducer::allocateForSlot(int slot, const Request& request) {
    const sp<GraphicBuffer> buffer = makeBuffer(request, getConsumerName());
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->endAllocation_l();
    const status_t status = mCore->mIsAbandoned ? status_t{NO_INIT} : mCore->admit_l(buffer);
    if (status != NO_ERROR) {
        mCore->emptyActiveSlot_l(slot);
        return status;
    }
    buffer->setGenerationNumber(mCore->mGenerationNumber);
    mCore->mSlots[slot].mGraphicBuffer = buffer;
    if (mCore->mConsumerListener != nullptr) {
        mCore->mConsumerListener->onFrameDequeued(buffer->getId());
    }
    return NO_ERROR;
}

status_t BufferQueueProducer::dequeueBuffer(int* outSlot, sp<Fence>* outFence, uint32_t width,
                                            uint32_t height, PixelFormat format, uint64_t usage,
                                            uint64_t* outBufferAge,
                                            FrameEventHistoryDelta* outTimestamps) {
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        mConsumerName = mCore->mConsumerName;
        const status_t status = checkConnected_l();
        if (status != NO_ERROR) return status;
    }
    if ((width == 0) != (height == 0)) {
        ALOGE("dequeueBuffer: invalid size: w=%u h=%u", width, height);
        return BAD_VALUE;
    }
    Request request;
    Dequeued dequeued;
    status_t status = dequeueSlot({width, height, format, usage}, &request, &dequeued);
    if (status != NO_ERROR) return status;
    *outSlot = dequeued.slot;
    *outFence = dequeued.fence;
    if (dequeued.needsBuffer) {
        status = allocateForSlot(dequeued.slot, request);
        if (status != NO_ERROR) return status;
    }
    if (outBufferAge != nullptr) *outBufferAge = dequeued.age;
    if (outTimestamps != nullptr) getFrameTimestamps(outTimestamps);
    if (dequeued.needsBuffer || dequeued.needsRequest) return BUFFER_NEEDS_REALLOCATION;
    return NO_ERROR;
}

BufferQueueProducer::Request BufferQueueProducer::preallocationRequest_l(
        const Request& request) const {
    return {request.width != 0 ? request.width : mCore->mDefaultWidth,
            request.height != 0 ? request.height : mCore->mDefaultHeight,
            request.format != 0 ? request.format : mCore->mDefaultBufferFormat,
            request.usage | mCore->mConsumerUsageBits};
}

bool BufferQueueProducer::preallocateOne(const Request& request) {
    Request filled;
    String8 name;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        mCore->waitWhileAllocating_l();
        if (mCore->mIsAbandoned || !mCore->mAllowAllocation) return false;
        if (mCore->mFreeSlots.empty()) return false;
        filled = preallocationRequest_l(request);
        name = mCore->mConsumerName;
        mCore->mIsAllocating = true;
    }
    const sp<GraphicBuffer> buffer = makeBuffer(filled, name);
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->endAllocation_l();
    if (buffer->initCheck() != NO_ERROR) return false;
    // The consumer has changed its defaults in the meantime: this buffer wouldn't suit.
    if (!(filled == preallocationRequest_l(request))) return true;
    if (mCore->mFreeSlots.empty() || mCore->admit_l(buffer) != NO_ERROR) return false;
    const int slot = mCore->mFreeSlots.takeFirst();
    mCore->clearSlot_l(slot);
    buffer->setGenerationNumber(mCore->mGenerationNumber);
    mCore->mSlots[slot].mGraphicBuffer = buffer;
    mCore->mFreeBuffers.insert(mCore->mFreeBuffers.begin(), slot);
    return true;
}

void BufferQueueProducer::allocateBuffers(uint32_t width, uint32_t height, PixelFormat format,
                                          uint64_t usage) {
    while (preallocateOne({width, height, format, usage})) {
    }
}

status_t BufferQueueProducer::detachBuffer(int slot) {
    sp<IConsumerListener> listener;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        const status_t status = checkDequeued_l(slot);
        if (status != NO_ERROR) return status;
        if (!mCore->mSlots[slot].mRequestBufferCalled) {
            ALOGE("detachBuffer: buffer in slot %d has not been requested", slot);
            return BAD_VALUE;
        }
        listener = mCore->mConsumerListener;
        if (listener != nullptr) {
            listener->onFrameDetached(mCore->mSlots[slot].mGraphicBuffer->getId());
        }
        mCore->emptyActiveSlot_l(slot);
        mCore->mDequeueCondition.notifyAll();
    }
    if (listener != nullptr) listener->onBuffersReleased();
    return NO_ERROR;
}

status_t BufferQueueProducer::detachNextBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence) {
    if (outBuffer == nullptr || outFence == nullptr) return BAD_VALUE;
    sp<IConsumerListener> listener;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        const status_t status = checkConnected_l();
        if (status != NO_ERROR) return status;
        mCore->waitWhileAllocating_l();
        if (mCore->mFreeBuffers.empty()) return NO_MEMORY;
        const int slot = mCore->takeFreeBuffer_l();
        mCore->mFreeSlots.insert(slot);
        *outBuffer = mCore->mSlots[slot].mGraphicBuffer;
        *outFence = mCore->mSlots[slot].mFence;
        mCore->clearSlot_l(slot);
        listener = mCore->mConsumerListener;
    }
    if (listener != nullptr) listener->onBuffersReleased();
    return NO_ERROR;
}

status_t BufferQueueProducer::attachBuffer(int* outSlot, const sp<GraphicBuffer>& buffer) {
    if (outSlot == nullptr || buffer == nullptr) return BAD_VALUE;
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    status_t status = checkConnected_l();
    if (status != NO_ERROR) return status;
    if (buffer->getGenerationNumber() != mCore->mGenerationNumber) {
        ALOGE("attachBuffer: generation number mismatch [buffer %u] [queue %u]",
              buffer->getGenerationNumber(), mCore->mGenerationNumber);
        return BAD_VALUE;
    }
    mCore->waitWhileAllocating_l();
    int slot;
    status = waitForFreeSlot_l(FreeSlotCaller::ATTACH, &slot);
    if (status != NO_ERROR) return status;
    mCore->clearSlot_l(slot);
    BufferSlot& taken = mCore->mSlots[slot];
    taken.mGraphicBuffer = buffer;
    taken.mBufferState = BufferState::DEQUEUED;
    taken.mRequestBufferCalled = true;
    taken.mNeedsReallocation = false;
    mCore->mActiveBuffers.insert(slot);
    *outSlot = slot;
    return NO_ERROR;
}

}  // namespace android
