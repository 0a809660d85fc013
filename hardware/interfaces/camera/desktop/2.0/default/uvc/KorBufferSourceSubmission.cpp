// SPDX-License-Identifier: Apache-2.0
// The traffic with the component: frames lent in codec buffers, and codec buffers coming back.
#define LOG_TAG "KorBufferSource"

#include <algorithm>
#include <utility>

#include <unistd.h>

#include <log/log.h>
#include <media/stagefright/foundation/ColorUtils.h>
#include <ui/Fence.h>

#include "uvc/KorBufferSource.h"
#include "uvc/KorCheck.h"

namespace android {

using ::korvane::hardware::camera::desktop::V2_0::implementation::Count;

namespace {

void closeFence(int fenceFd) {
    if (fenceFd >= 0) close(fenceFd);
}

}  // namespace

bool KorBufferSource::haveAvailableBuffers_l() const {
    return !mAvailableBuffers.empty() || mUnacquiredCount > 0;
}

bool KorBufferSource::isDiscarding_l() const {
    return mSuspended && mActionQueue.empty();
}

void KorBufferSource::onBufferAcquired_l(const VideoBuffer& buffer) {
    if (mEndOfStreamSent) {
        ALOGW("onFrameAvailable: EOS is sent, ignoring frame");
        return;
    }
    if (isDiscarding_l()) mStats.count(Count::DROPPED_SUSPENDED);
    if (mComponent == nullptr || isDiscarding_l()) return;
    ++mRepeatGeneration;
    mAvailableBuffers.push_back(buffer);
    if (mExecuting) fillCodecBuffer_l();
}

bool KorBufferSource::takeAvailableBuffer_l(VideoBuffer* buffer) {
    if (!mAvailableBuffers.empty()) {
        *buffer = std::move(mAvailableBuffers.front());
        mAvailableBuffers.erase(mAvailableBuffers.begin());
        return true;
    }
    if (acquireBuffer_l(buffer) == OK) return true;
    ALOGE("fillCodecBuffer_l: failed to acquire available buffer");
    return false;
}

bool KorBufferSource::fillCodecBuffer_l() {
    KOR_CHECK(604, mExecuting && haveAvailableBuffers_l());
    if (mFreeCodecBuffers.empty()) return false;
    VideoBuffer buffer;
    if (!takeAvailableBuffer_l(&buffer)) return false;

    const int64_t itemTimeUs = buffer.mTimestampNs / 1000;
    if (applyActions_l(itemTimeUs)) return true;
    if (mSuspended) mStats.count(Count::DROPPED_SUSPENDED);
    if (mSuspended) return true;
    // Idle: nothing sets a time to skip to.
    if (mSkipFramesBeforeNs >= 0 && buffer.mTimestampNs < mSkipFramesBeforeNs) return true;
    if (mSkipFramesBeforeNs >= 1) buffer.mTimestampNs -= mSkipFramesBeforeNs;

    const bool dropped =
            mFrameDropper != nullptr && mFrameDropper->shouldDrop(buffer.mTimestampNs / 1000);
    if (dropped) mStats.count(Count::DROPPED_RATE);
    if (!dropped && submitBuffer_l(buffer) != OK) return true;
    // Idle: nothing sets a repeat interval. A frame that only came too soon counts as the latest.
    if (mRepeatIntervalUs >= 1) setLatestBuffer_l(buffer);
    mLastFrameTimestampUs = itemTimeUs;
    return true;
}

status_t KorBufferSource::submitBuffer_l(const VideoBuffer& buffer) {
    KOR_CHECK(886, !mFreeCodecBuffers.empty());
    const int bufferId = mFreeCodecBuffers.front();
    int64_t codecTimeUs = 0;
    if (!calculateCodecTimestamp_l(buffer.mTimestampNs, &codecTimeUs)) return UNKNOWN_ERROR;
    if (buffer.mDataSpace != mLastDataSpace) announceDataSpace_l(buffer);

    const sp<Fence>& fence = buffer.mBuffer->acquireFence();
    const int fenceFd = fence != nullptr && fence->isValid() ? fence->dup() : -1;
    const status_t err = mComponent->submitBuffer(bufferId, buffer.mBuffer->graphicBuffer(),
                                                  codecTimeUs, fenceFd);
    if (err != OK) {
        // A fixed text: no function has that name.
        ALOGW("WARNING: emptyGraphicBuffer failed: 0x%x", err);
        return err;
    }
    mStats.frameTook(bufferId, buffer.mArrivedNs);
    lend_l(bufferId, buffer.mBuffer);
    return OK;
}

void KorBufferSource::lend_l(int bufferId, const std::shared_ptr<AcquiredBuffer>& buffer) {
    mFreeCodecBuffers.erase(mFreeCodecBuffers.begin());
    const auto entry = findSubmitted_l(bufferId);
    if (entry == mSubmittedCodecBuffers.end()) {
        mSubmittedCodecBuffers.push_back({bufferId, buffer});
    } else {
        entry->mBuffer = buffer;
    }
}

KorBufferSource::SubmittedBuffers::iterator KorBufferSource::findSubmitted_l(int bufferId) {
    return std::find_if(
            mSubmittedCodecBuffers.begin(), mSubmittedCodecBuffers.end(),
            [bufferId](const SubmittedBuffer& entry) { return entry.mCodecBuffer == bufferId; });
}

void KorBufferSource::announceDataSpace_l(const VideoBuffer& buffer) {
    ALOGD("got buffer with new dataSpace #%x", buffer.mDataSpace);
    mLastDataSpace = buffer.mDataSpace;
    auto dataSpace = static_cast<android_dataspace>(mLastDataSpace);
    if (!ColorUtils::convertDataSpaceToV0(dataSpace)) return;
    mComponent->dispatchDataSpaceChanged(static_cast<int>(mLastDataSpace), mAspects,
                                         buffer.mBuffer->graphicBuffer()->getPixelFormat());
}

status_t KorBufferSource::onInputBufferEmptied(int32_t bufferId, int fenceFd) {
    Mutex::Autolock lock(mMutex);
    const auto entry = findSubmitted_l(bufferId);
    if (entry == mSubmittedCodecBuffers.end()) {
        ALOGE("onInputBufferEmptied: buffer not recognized (bufferId=%u)", bufferId);
        closeFence(fenceFd);
        return BAD_VALUE;
    }
    std::shared_ptr<AcquiredBuffer> buffer = std::move(entry->mBuffer);
    mSubmittedCodecBuffers.erase(entry);
    mFreeCodecBuffers.push_back(bufferId);

    if (buffer == nullptr) {
        if (!(mEndOfStream && mEndOfStreamSent)) {
            ALOGE("onInputBufferEmptied: non-EOS null buffer (bufferId=%u)", bufferId);
        }
        closeFence(fenceFd);
        return BAD_VALUE;
    }
    if (!mExecuting) {
        buffer.reset();
        closeFence(fenceFd);
        return OK;
    }
    buffer->addReleaseFence(fenceFd);
    buffer.reset();
    useFreeCodecBuffer_l();
    return OK;
}

void KorBufferSource::useFreeCodecBuffer_l() {
    if (haveAvailableBuffers_l()) {
        KOR_CHECK(572, !mEndOfStreamSent);
        fillCodecBuffer_l();
    } else if (mEndOfStream && mStopTimeUs == -1) {
        submitEndOfInputStream_l();
    } else if (mRepeatBlocked) {
        repeatLatestBuffer_l();
        mRepeatBlocked = false;
    }
}

// Idle: nothing ends the stream of a source.
void KorBufferSource::submitEndOfInputStream_l() {
    KOR_CHECK(926, mEndOfStream);
    if (mEndOfStreamSent || mFreeCodecBuffers.empty()) return;  // tried again as one comes back
    const int bufferId = mFreeCodecBuffers.front();
    const status_t err = mComponent->submitEos(bufferId);
    if (err != OK) {
        // A fixed text: no function has that name.
        ALOGW("emptyDirectBuffer EOS failed: 0x%x", err);
        return;
    }
    lend_l(bufferId, nullptr);
    mLatestBuffer = {};
    mEndOfStreamSent = true;
    ++mRepeatGeneration;
}

}  // namespace android
