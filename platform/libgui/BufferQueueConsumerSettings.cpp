// SPDX-License-Identifier: Apache-2.0
// The consumer's settings of a buffer queue.
#define LOG_TAG "BufferQueueConsumer"

#include "gui/BufferQueueConsumer.h"

#include <gui/BufferQueue.h>
#include <log/log.h>

namespace android {

status_t BufferQueueConsumer::setDefaultBufferSize(uint32_t width, uint32_t height) {
    if (width == 0 || height == 0) {
        ALOGE("setDefaultBufferSize: dimensions cannot be 0 (width=%u height=%u)", width, height);
        return BAD_VALUE;
    }
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mDefaultWidth = width;
    mCore->mDefaultHeight = height;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setMaxBufferCount(int bufferCount) {
    if (bufferCount < 1 || bufferCount > BufferQueueDefs::NUM_BUFFER_SLOTS) return BAD_VALUE;
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    if (mCore->mConnectedApi != BufferQueueCore::NO_CONNECTED_API) return INVALID_OPERATION;
    if (bufferCount < mCore->mMaxAcquiredBufferCount) return BAD_VALUE;
    const int delta =
            mCore->bufferCount_l(mCore->mAsyncMode, mCore->mDequeueBufferCannotBlock, bufferCount) -
            mCore->bufferCount_l();
    if (!mCore->adjustAvailableSlots_l(delta)) return BAD_VALUE;
    mCore->mMaxBufferCount = bufferCount;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setMaxAcquiredBufferCount(int maxAcquiredBuffers) {
    if (maxAcquiredBuffers < 1 || maxAcquiredBuffers > BufferQueue::MAX_MAX_ACQUIRED_BUFFERS) {
        ALOGE("setMaxAcquiredBufferCount: invalid count %d", maxAcquiredBuffers);
        return BAD_VALUE;
    }
    sp<IConsumerListener> listener;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        mCore->waitWhileAllocating_l();
        if (mCore->mIsAbandoned) return NO_INIT;
        const int delta = maxAcquiredBuffers - mCore->mMaxAcquiredBufferCount;
        if (delta == 0) return NO_ERROR;
        if (maxAcquiredBuffers < mCore->count_l(BufferState::ACQUIRED)) return BAD_VALUE;
        const int total = mCore->minUndequeuedBufferCount_l() + mCore->mMaxDequeuedBufferCount;
        if (total + delta > mCore->mMaxBufferCount) return BAD_VALUE;
        if (!mCore->adjustAvailableSlots_l(delta)) return BAD_VALUE;
        mCore->mMaxAcquiredBufferCount = maxAcquiredBuffers;
        if (delta < 0 && mCore->mBufferReleasedCbEnabled) listener = mCore->mConsumerListener;
    }
    if (listener != nullptr) listener->onBuffersReleased();
    return NO_ERROR;
}

status_t BufferQueueConsumer::setConsumerName(const String8& name) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mConsumerName = name;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setDefaultBufferFormat(PixelFormat defaultFormat) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mDefaultBufferFormat = defaultFormat;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setDefaultBufferDataSpace(android_dataspace defaultDataSpace) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mDefaultBufferDataSpace = defaultDataSpace;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setConsumerUsageBits(uint64_t usage) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mConsumerUsageBits = usage;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setConsumerIsProtected(bool isProtected) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mConsumerIsProtected = isProtected;
    return NO_ERROR;
}

status_t BufferQueueConsumer::setTransformHint(uint32_t hint) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mTransformHint = hint;
    return NO_ERROR;
}

status_t BufferQueueConsumer::getSidebandStream(sp<NativeHandle>* outStream) const {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    *outStream = mCore->mSidebandStream;
    return NO_ERROR;
}

status_t BufferQueueConsumer::discardFreeBuffers() {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->discardFreeBuffers_l();
    return NO_ERROR;
}

}  // namespace android
