// SPDX-License-Identifier: Apache-2.0
// The traffic with the component: frames lent in codec buffers, and codec buffers coming back.
#define LOG_TAG "KorBufferSource"

#include "uvc/KorBufferSource.h"

#include <utility>

#include <android-base/unique_fd.h>
#include <log/log.h>
#include <media/stagefright/foundation/ColorUtils.h>
#include <ui/Fence.h>

#include "uvc/KorCheck.h"

namespace android {

using ::korvane::hardware::camera::desktop::V2_0::implementation::Count;

namespace {

constexpr int kAspects = 0;

}  // namespace

bool KorBufferSource::haveAvailableBuffers_l() const {
    return !mAvailableBuffers.empty() || mUnacquiredCount > 0;
}

void KorBufferSource::onBufferAcquired_l(const VideoBuffer& buffer) {
    if (mState == State::ENDED) {
        ALOGW("onFrameAvailable: EOS is sent, ignoring frame");
        return;
    }
    if (mActions.isDiscarding()) mStats.count(Count::DROPPED_SUSPENDED);
    if (mComponent == nullptr || mActions.isDiscarding()) return;
    mRepetition.cancel();
    mAvailableBuffers.push_back(buffer);
    if (isExecuting_l()) fillCodecBuffer_l();
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
    KOR_CHECK_AS(604, isExecuting_l() && haveAvailableBuffers_l(),
                 "mExecuting && haveAvailableBuffers_l()");
    if (!mCodecBuffers.haveFree()) return false;
    VideoBuffer buffer;
    if (!takeAvailableBuffer_l(&buffer)) return false;

    const int64_t itemTimeUs = buffer.mTimestampNs / 1000;
    if (mActions.apply(itemTimeUs)) {
        stop_l();
        return true;
    }
    if (mActions.isSuspended()) {
        mStats.count(Count::DROPPED_SUSPENDED);
        return true;
    }
    if (mTimes.skip(&buffer.mTimestampNs)) return true;
    const bool dropped = mTimes.isTooSoon(buffer.mTimestampNs);
    if (!dropped && submitBuffer_l(buffer) != OK) return true;
    // Idle: nothing sets a repeat interval. A frame that only came too soon counts as the latest.
    if (mRepetition.isOn()) setLatestBuffer_l(buffer);
    mLastFrameTimestampUs = itemTimeUs;
    return true;
}

status_t KorBufferSource::submitBuffer_l(const VideoBuffer& buffer) {
    const int bufferId = mCodecBuffers.nextFree();
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
    mCodecBuffers.lendNext(buffer.mBuffer);
    return OK;
}

void KorBufferSource::announceDataSpace_l(const VideoBuffer& buffer) {
    ALOGD("got buffer with new dataSpace #%x", buffer.mDataSpace);
    mLastDataSpace = buffer.mDataSpace;
    auto dataSpace = static_cast<android_dataspace>(mLastDataSpace);
    if (!ColorUtils::convertDataSpaceToV0(dataSpace)) return;
    mComponent->dispatchDataSpaceChanged(static_cast<int>(mLastDataSpace), kAspects,
                                         buffer.mBuffer->graphicBuffer()->getPixelFormat());
}

status_t KorBufferSource::onInputBufferEmptied(int32_t bufferId, int fenceFd) {
    Mutex::Autolock lock(mMutex);
    base::unique_fd fence(fenceFd);
    std::shared_ptr<AcquiredBuffer> buffer;
    if (!mCodecBuffers.takeBack(bufferId, &buffer)) {
        ALOGE("onInputBufferEmptied: buffer not recognized (bufferId=%u)", bufferId);
        return BAD_VALUE;
    }
    if (buffer == nullptr) {
        if (mState != State::ENDED) {
            ALOGE("onInputBufferEmptied: non-EOS null buffer (bufferId=%u)", bufferId);
        }
        return BAD_VALUE;
    }
    if (!isExecuting_l()) return OK;
    buffer->addReleaseFence(fence.release());
    buffer.reset();
    useFreeCodecBuffer_l();
    return OK;
}

void KorBufferSource::useFreeCodecBuffer_l() {
    if (haveAvailableBuffers_l()) {
        KOR_CHECK_AS(572, mState != State::ENDED, "!mEndOfStreamSent");
        fillCodecBuffer_l();
    } else if (mState >= State::ENDING && !mActions.isStopPending()) {
        submitEndOfInputStream_l();
    } else if (mRepetition.isBlocked()) {
        // Not tried again if that fails: the next frame takes its place.
        (void)repeatLatestBuffer_l();
        mRepetition.setBlocked(false);
    }
}

// Idle: nothing ends the stream of a source.
void KorBufferSource::submitEndOfInputStream_l() {
    KOR_CHECK_AS(926, mState >= State::ENDING, "mEndOfStream");
    // Without a free codec buffer it is tried again as one comes back.
    if (mState == State::ENDED || !mCodecBuffers.haveFree()) return;
    const status_t err = mComponent->submitEos(mCodecBuffers.nextFree());
    if (err != OK) {
        // A fixed text: no function has that name.
        ALOGW("emptyDirectBuffer EOS failed: 0x%x", err);
        return;
    }
    mCodecBuffers.lendNext(nullptr);
    mRepetition.forgetLatest();
    mState = State::ENDED;
    mRepetition.cancel();
}

}  // namespace android
