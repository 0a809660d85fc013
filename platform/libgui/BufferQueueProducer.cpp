// SPDX-License-Identifier: Apache-2.0
// Connection, settings and queries of the producer's end.
#define LOG_TAG "BufferQueueProducer"

#include "gui/BufferQueueProducer.h"

#include <cstdint>
#include <utility>

#include <unistd.h>

#include <log/log.h>
#include <system/window.h>

#include "TextureMatrix.h"

namespace android {

BufferQueueProducer::BufferQueueProducer(const sp<BufferQueueCore>& core,
                                         bool consumerIsSurfaceFlinger)
    : mCore(core), mConsumerIsSurfaceFlinger(consumerIsSurfaceFlinger) {}

status_t BufferQueueProducer::checkConnected_l() const {
    if (mCore->mIsAbandoned) {
        ALOGE("BufferQueue has been abandoned");
        return NO_INIT;
    }
    if (mCore->mConnectedApi == BufferQueueCore::NO_CONNECTED_API) {
        ALOGE("BufferQueue has no connected producer");
        return NO_INIT;
    }
    return NO_ERROR;
}

bool BufferQueueProducer::isApi(int api) {
    return api >= NATIVE_WINDOW_API_EGL && api <= NATIVE_WINDOW_API_CAMERA;
}

status_t BufferQueueProducer::checkConnect_l(const QueueBufferOutput* output) const {
    if (mCore->mIsAbandoned || mCore->mConsumerListener == nullptr) {
        ALOGE("connect: BufferQueue has no consumer");
        return NO_INIT;
    }
    if (output == nullptr) {
        ALOGE("connect: output was NULL");
        return BAD_VALUE;
    }
    if (mCore->mConnectedApi != BufferQueueCore::NO_CONNECTED_API) {
        ALOGE("connect: already connected (cur=%d)", mCore->mConnectedApi);
        return BAD_VALUE;
    }
    return NO_ERROR;
}

void BufferQueueProducer::connect_l(const sp<IProducerListener>& listener, int api,
                                    QueueBufferOutput* output) {
    mCore->mConnectedApi = api;
    fillOutput_l(output);
    output->bufferReplaced = false;
    output->maxBufferCount = mCore->mMaxBufferCount;
    if (listener != nullptr) {
        mCore->mConnectedProducerListener = listener;
        mCore->mBufferReleasedCbEnabled = listener->needsReleaseNotify();
    }
}

status_t BufferQueueProducer::connect(const sp<IProducerListener>& listener, int api,
                                      bool producerControlledByApp, QueueBufferOutput* output) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mConsumerName = mCore->mConsumerName;
    const status_t status = checkConnect_l(output);
    if (status != NO_ERROR) return status;

    const bool bothByApp = mCore->mConsumerControlledByApp && producerControlledByApp;
    const bool cannotBlock = bothByApp && mDequeueTimeout < 0;
    const int delta = mCore->bufferCount_l(mCore->mAsyncMode, cannotBlock, mCore->mMaxBufferCount) -
                      mCore->bufferCount_l();
    if (!mCore->adjustAvailableSlots_l(delta)) return BAD_VALUE;
    if (isApi(api)) connect_l(listener, api, output);
    mCore->mConnectedPid = getpid();
    mCore->mBufferHasBeenQueued = false;
    mCore->mDequeueBufferCannotBlock = cannotBlock;
    mCore->mQueueBufferCanDrop = bothByApp && mDequeueTimeout <= 0;
    mCore->mLegacyBufferDrop = true;
    mCore->mAllowAllocation = true;
    return isApi(api) ? NO_ERROR : BAD_VALUE;
}

void BufferQueueProducer::fillOutput_l(QueueBufferOutput* output) const {
    output->width = mCore->mDefaultWidth;
    output->height = mCore->mDefaultHeight;
    output->transformHint = mCore->mTransformHint;
    output->numPendingBuffers = static_cast<uint32_t>(mCore->mQueue.size());
    output->nextFrameNumber = mCore->mFrameCounter + 1;
}

status_t BufferQueueProducer::checkDisconnect_l(int* api, DisconnectMode mode,
                                                bool* outNothingToDo) const {
    *outNothingToDo = true;
    if (mode == DisconnectMode::AllLocal) *api = BufferQueueCore::CURRENTLY_CONNECTED_API;
    if (mCore->mIsAbandoned) return NO_ERROR;
    if (*api == BufferQueueCore::CURRENTLY_CONNECTED_API) {
        if (mCore->mConnectedApi == BufferQueueCore::NO_CONNECTED_API) return NO_ERROR;
        *api = mCore->mConnectedApi;
    }
    if (!isApi(*api)) return BAD_VALUE;
    if (mCore->mConnectedApi == BufferQueueCore::NO_CONNECTED_API) return NO_INIT;
    if (mCore->mConnectedApi != *api) {
        ALOGE("disconnect: still connected to another API (cur=%d req=%d)", mCore->mConnectedApi,
              *api);
        return BAD_VALUE;
    }
    *outNothingToDo = false;
    return NO_ERROR;
}

BufferQueueProducer::EndedConnection BufferQueueProducer::endConnection_l() {
    EndedConnection ended;
    mCore->freeAllBuffers_l();
    std::swap(ended.producerListener, mCore->mConnectedProducerListener);
    mCore->mBufferReleasedCbEnabled = false;
    mCore->mConnectedApi = BufferQueueCore::NO_CONNECTED_API;
    mCore->mConnectedPid = -1;
    mCore->mSidebandStream.clear();
    mCore->mLastQueuedFence = Fence::NO_FENCE;
    mCore->mDequeueCondition.notifyAll();
    ended.consumerListener = mCore->mConsumerListener;
    return ended;
}

void BufferQueueProducer::EndedConnection::tellConsumer() const {
    if (consumerListener == nullptr) return;
    consumerListener->onBuffersReleased();
    consumerListener->onDisconnect();
}

status_t BufferQueueProducer::disconnect(int api, DisconnectMode mode) {
    EndedConnection ended;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        if (mode == DisconnectMode::AllLocal && getpid() != mCore->mConnectedPid) return NO_ERROR;
        mCore->waitWhileAllocating_l();
        bool nothingToDo;
        const status_t status = checkDisconnect_l(&api, mode, &nothingToDo);
        if (nothingToDo) return status;
        ended = endConnection_l();
    }
    ended.tellConsumer();
    return NO_ERROR;
}

status_t BufferQueueProducer::disconnectListener(const sp<IProducerListener>& listener) {
    EndedConnection ended;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        mCore->waitWhileAllocating_l();
        const bool isConnected =
                listener != nullptr && listener == mCore->mConnectedProducerListener;
        if (!isConnected || mCore->mIsAbandoned) return NO_ERROR;
        ended = endConnection_l();
    }
    ended.tellConsumer();
    return NO_ERROR;
}

status_t BufferQueueProducer::setMaxDequeuedBufferCount(int maxDequeuedBuffers) {
    sp<IConsumerListener> listener;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        mCore->waitWhileAllocating_l();
        if (mCore->mIsAbandoned) return NO_INIT;
        if (maxDequeuedBuffers == mCore->mMaxDequeuedBufferCount) return NO_ERROR;
        const int room = mCore->mMaxBufferCount - mCore->minUndequeuedBufferCount_l();
        if (maxDequeuedBuffers < 1 || maxDequeuedBuffers > room ||
            maxDequeuedBuffers < mCore->count_l(BufferState::DEQUEUED)) {
            ALOGE("setMaxDequeuedBufferCount: no room for %d buffers", maxDequeuedBuffers);
            return BAD_VALUE;
        }
        const int delta = maxDequeuedBuffers - mCore->mMaxDequeuedBufferCount;
        if (!mCore->adjustAvailableSlots_l(delta)) return BAD_VALUE;
        mCore->mMaxDequeuedBufferCount = maxDequeuedBuffers;
        mCore->mDequeueCondition.notifyAll();
        if (delta < 0) listener = mCore->mConsumerListener;
    }
    if (listener != nullptr) listener->onBuffersReleased();
    return NO_ERROR;
}

status_t BufferQueueProducer::setAsyncMode(bool async) {
    sp<IConsumerListener> listener;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        mCore->waitWhileAllocating_l();
        if (mCore->mIsAbandoned) return NO_INIT;
        if (async == mCore->mAsyncMode) return NO_ERROR;
        const int extra = async || mCore->mDequeueBufferCannotBlock ? 1 : 0;
        if (mCore->mMaxAcquiredBufferCount + mCore->mMaxDequeuedBufferCount + extra >
            mCore->mMaxBufferCount) {
            return BAD_VALUE;
        }
        const int delta = mCore->bufferCount_l(async, mCore->mDequeueBufferCannotBlock,
                                               mCore->mMaxBufferCount) -
                          mCore->bufferCount_l();
        if (!mCore->adjustAvailableSlots_l(delta)) return BAD_VALUE;
        mCore->mAsyncMode = async;
        mCore->mDequeueCondition.notifyAll();
        if (delta < 0) listener = mCore->mConsumerListener;
    }
    if (listener != nullptr) listener->onBuffersReleased();
    return NO_ERROR;
}

status_t BufferQueueProducer::setDequeueTimeout(nsecs_t timeout) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    const bool cannotBlock = timeout < 0 && mCore->mDequeueBufferCannotBlock;
    const int delta = mCore->bufferCount_l(mCore->mAsyncMode, cannotBlock, mCore->mMaxBufferCount) -
                      mCore->bufferCount_l();
    if (!mCore->adjustAvailableSlots_l(delta)) return BAD_VALUE;
    mDequeueTimeout = timeout;
    mCore->mDequeueBufferCannotBlock = cannotBlock;
    if (timeout > 0) mCore->mQueueBufferCanDrop = false;
    return NO_ERROR;
}

std::optional<int> BufferQueueProducer::valueOf_l(int what) const {
    switch (what) {
        case NATIVE_WINDOW_WIDTH:
            return static_cast<int>(mCore->mDefaultWidth);
        case NATIVE_WINDOW_HEIGHT:
            return static_cast<int>(mCore->mDefaultHeight);
        case NATIVE_WINDOW_FORMAT:
            return mCore->mDefaultBufferFormat;
        case NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS:
            return mCore->minUndequeuedBufferCount_l();
        case NATIVE_WINDOW_CONSUMER_RUNNING_BEHIND:
            return mCore->mQueue.size() > 1 ? 1 : 0;
        case NATIVE_WINDOW_CONSUMER_USAGE_BITS:
            return static_cast<int>(mCore->mConsumerUsageBits);
        case NATIVE_WINDOW_STICKY_TRANSFORM:
            return static_cast<int>(mCore->mStickyTransform);
        case NATIVE_WINDOW_DEFAULT_DATASPACE:
            return static_cast<int>(mCore->mDefaultBufferDataSpace);
        case NATIVE_WINDOW_BUFFER_AGE:
            return mCore->mBufferAge > INT32_MAX ? 0 : static_cast<int>(mCore->mBufferAge);
        case NATIVE_WINDOW_LAYER_COUNT:
            return 1;
        case NATIVE_WINDOW_CONSUMER_IS_PROTECTED:
            return mCore->mConsumerIsProtected ? 1 : 0;
        default:
            return std::nullopt;
    }
}

int BufferQueueProducer::query(int what, int* outValue) {
    if (outValue == nullptr) return BAD_VALUE;
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    if (mCore->mIsAbandoned) return NO_INIT;
    const std::optional<int> value = valueOf_l(what);
    if (!value) return BAD_VALUE;
    *outValue = *value;
    return NO_ERROR;
}

status_t BufferQueueProducer::setSidebandStream(const sp<NativeHandle>& stream) {
    sp<IConsumerListener> listener;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        if (mCore->mIsAbandoned) return NO_INIT;
        mCore->mSidebandStream = stream;
        listener = mCore->mConsumerListener;
    }
    if (listener != nullptr) listener->onSidebandStreamChanged();
    return NO_ERROR;
}

status_t BufferQueueProducer::allowAllocation(bool allow) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mAllowAllocation = allow;
    return NO_ERROR;
}

status_t BufferQueueProducer::setGenerationNumber(uint32_t generationNumber) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mGenerationNumber = generationNumber;
    return NO_ERROR;
}

String8 BufferQueueProducer::getConsumerName() const {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    return mConsumerName;
}

status_t BufferQueueProducer::setSharedBufferMode(bool sharedBufferMode) {
    return sharedBufferMode ? INVALID_OPERATION : NO_ERROR;
}

status_t BufferQueueProducer::setAutoRefresh(bool autoRefresh) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mAutoRefresh = autoRefresh;
    return NO_ERROR;
}

status_t BufferQueueProducer::setLegacyBufferDrop(bool drop) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    mCore->mLegacyBufferDrop = drop;
    return NO_ERROR;
}

status_t BufferQueueProducer::setAutoPrerotation(bool /*autoPrerotation*/) {
    return NO_ERROR;
}

status_t BufferQueueProducer::getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence,
                                                  float outTransformMatrix[16]) {
    Rect crop;
    uint32_t transform = 0;
    const status_t status = getLastQueuedBuffer(outBuffer, outFence, &crop, &transform);
    if (status == NO_ERROR && *outBuffer != nullptr) {
        computeTextureMatrix((*outBuffer)->getBounds(), crop, transform, outTransformMatrix);
    }
    return status;
}

status_t BufferQueueProducer::getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer, sp<Fence>* outFence,
                                                  Rect* outRect, uint32_t* outTransform) {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    if (mCore->mLastQueuedSlot == BufferQueueCore::INVALID_BUFFER_SLOT) {
        outBuffer->clear();
        *outFence = Fence::NO_FENCE;
        return NO_ERROR;
    }
    *outBuffer = mCore->mSlots[mCore->mLastQueuedSlot].mGraphicBuffer;
    *outFence = mCore->mLastQueuedFence;
    *outRect = mCore->mLastQueuedCrop;
    *outTransform = mCore->mLastQueuedTransform;
    return NO_ERROR;
}

void BufferQueueProducer::getFrameTimestamps(FrameEventHistoryDelta* outDelta) {
    sp<IConsumerListener> listener;
    {
        std::lock_guard<std::mutex> lock(mCore->mMutex);
        listener = mCore->mConsumerListener;
    }
    if (listener != nullptr) listener->addAndGetFrameTimestamps(nullptr, outDelta);
}

status_t BufferQueueProducer::getUniqueId(uint64_t* outId) const {
    *outId = mCore->mUniqueId;
    return NO_ERROR;
}

status_t BufferQueueProducer::getConsumerUsage(uint64_t* outUsage) const {
    std::lock_guard<std::mutex> lock(mCore->mMutex);
    *outUsage = mCore->mConsumerUsageBits;
    return NO_ERROR;
}

}  // namespace android
