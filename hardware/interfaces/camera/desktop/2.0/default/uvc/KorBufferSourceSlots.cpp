// SPDX-License-Identifier: Apache-2.0
// The traffic with the queue: frames acquired and released, slots filled and emptied.
#define LOG_TAG "KorBufferSource"

#include "uvc/KorBufferSource.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <log/log.h>
#include <utils/String8.h>

#include "uvc/KorCheck.h"

namespace android {

using ::korvane::hardware::camera::desktop::V2_0::implementation::Count;

void KorBufferSource::onFrameAvailable(const BufferItem& item) {
    mStats.frameArrived(item.mFrameNumber);
    Mutex::Autolock lock(mMutex);
    ++mUnacquiredCount;
    if (mState != State::ENDED && mComponent != nullptr && !mActions.isDiscarding() &&
        isExecuting_l() && !mCodecBuffers.haveFree()) {
        // It stays in the queue until a codec buffer comes back. While a frame waits, the latest
        // one must not be repeated.
        mRepetition.cancel();
        return;
    }
    VideoBuffer buffer;
    const status_t err = acquireBuffer_l(&buffer);
    if (err != OK) {
        ALOGE("onFrameAvailable: acquireBuffer returned err=%d", err);
        return;
    }
    onBufferAcquired_l(buffer);
}

status_t KorBufferSource::acquireBuffer_l(VideoBuffer* buffer) {
    BufferItem item;
    const status_t err = mConsumer->acquireBuffer(&item, 0, 0);
    if (err == IGraphicBufferConsumer::NO_BUFFER_AVAILABLE) {
        ALOGW("acquireBuffer_l: frame was not available");
        return err;
    }
    if (err != OK) {
        ALOGW("acquireBuffer_l: failed with err=%d", err);
        return err;
    }
    --mUnacquiredCount;
    const std::shared_ptr<CachedBuffer> cachedBuffer = cacheBuffer_l(item);
    if (cachedBuffer == nullptr) {
        ALOGW("acquireBuffer_l: no graphic buffer known for slot %d", item.mSlot);
        mStats.count(Count::DROPPED_UNREADABLE);
        mConsumer->releaseBuffer(item.mSlot, item.mFrameNumber, EGL_NO_DISPLAY, EGL_NO_SYNC_KHR,
                                 item.mFence);
        return NAME_NOT_FOUND;
    }
    buffer->mBuffer = makeAcquiredBuffer_l(cachedBuffer, item);
    buffer->mTimestampNs = item.mTimestamp;
    buffer->mDataSpace = item.mDataSpace;
    buffer->mArrivedNs = mStats.arrivalOf(item.mFrameNumber);
    mSlots.noteAcquired();
    return OK;
}

// Null when the frame comes without its buffer and none is known for its slot. A producer's order
// of calls can bring that about, so it must not end the process.
std::shared_ptr<CachedBuffer> KorBufferSource::cacheBuffer_l(const BufferItem& item) {
    if (item.mGraphicBuffer == nullptr) return mSlots.find(item.mSlot);
    const ssize_t index = mSlots.indexOf(item.mSlot);
    if (index >= 0) discardBufferAtSlotIndex_l(index);
    return mSlots.fill(item.mSlot, item.mGraphicBuffer);
}

std::shared_ptr<AcquiredBuffer> KorBufferSource::makeAcquiredBuffer_l(
        const std::shared_ptr<CachedBuffer>& cachedBuffer, const BufferItem& item) {
    return std::allocate_shared<AcquiredBuffer>(
            mAcquiredBufferAllocator, cachedBuffer, item.mFence,
            [this, frameNumber = item.mFrameNumber](AcquiredBuffer* b) {
                checkLocked();
                releaseBuffer_l(b, frameNumber);
            });
}

void KorBufferSource::checkLocked() const {
    if (mMutex.tryLock() == OK) KOR_TRESPASS(992, "");
}

void KorBufferSource::releaseBuffer_l(AcquiredBuffer* buffer, uint64_t frameNumber) {
    const CachedBuffer& cachedBuffer = *buffer->cachedBuffer();
    if (!mSlots.noteReleased(cachedBuffer)) return;
    mConsumer->releaseBuffer(cachedBuffer.slot(), frameNumber, EGL_NO_DISPLAY, EGL_NO_SYNC_KHR,
                             buffer->takeReleaseFence());
}

void KorBufferSource::onBuffersReleased() {
    Mutex::Autolock lock(mMutex);
    uint64_t releasedMask = 0;
    if (mConsumer->getReleasedBuffers(&releasedMask) != OK) {
        ALOGW("onBuffersReleased: unable to get released buffer set");
        releasedMask = ~uint64_t{0};
    }
    String8 unpopulated;
    for (int slot = 0; slot < BufferQueue::NUM_BUFFER_SLOTS; ++slot) {
        if ((releasedMask & (uint64_t{1} << slot)) == 0) continue;
        const ssize_t index = mSlots.indexOf(slot);
        if (index >= 0) {
            discardBufferAtSlotIndex_l(index);
            mSlots.removeAt(index);
        } else {
            unpopulated.appendFormat("%s%d", unpopulated.isEmpty() ? "" : ", ", slot);
        }
    }
    if (!unpopulated.isEmpty()) ALOGW("released unpopulated slots: [%s]", unpopulated.c_str());
}

void KorBufferSource::discardBufferAtSlotIndex_l(ssize_t index) {
    mSlots.discardAt(index);
}

void KorBufferSource::releaseAllAvailableBuffers_l() {
    mAvailableBuffers.clear();
    while (mUnacquiredCount > 0) {
        VideoBuffer buffer;
        if (acquireBuffer_l(&buffer) != OK) {
            ALOGW("releaseAllAvailableBuffers: failed to acquire available unacquired buffer");
            return;
        }
    }
}

}  // namespace android
