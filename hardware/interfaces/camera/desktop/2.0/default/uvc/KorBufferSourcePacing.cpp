// SPDX-License-Identifier: Apache-2.0
// When frames are lent and with what time: rates, pauses, and the repetition of the latest frame.
#define LOG_TAG "KorBufferSource"

#include <algorithm>
#include <cinttypes>
#include <cmath>

#include <log/log.h>
#include <utils/Timers.h>

#include "uvc/KorBufferSource.h"
#include "uvc/KorCheck.h"

namespace android {

using ::korvane::hardware::camera::desktop::V2_0::implementation::Count;

namespace {

constexpr uint32_t kWhatRepeatLatestFrame = 0;
constexpr int32_t kMaxRepeats = 10;
constexpr double kMicrosPerSecond = 1000000.0;

}  // namespace

status_t KorBufferSource::setMaxFps(float maxFps) {
    ALOGD("setMaxFps: maxFps=%lld", static_cast<long long>(maxFps));
    Mutex::Autolock lock(mMutex);
    if (mExecuting) return INVALID_OPERATION;
    mFrameDropper = new FrameDropper;
    const status_t err = mFrameDropper->setMaxFrameRate(maxFps);
    if (err != OK) mFrameDropper.clear();
    return err;
}

status_t KorBufferSource::setSuspend(bool suspend, int64_t suspendStartTimeUs) {
    Mutex::Autolock lock(mMutex);
    if (mStopTimeUs != -1) {
        ALOGE("setSuspend failed as STOP action is pending");
        return INVALID_OPERATION;
    }
    if (suspendStartTimeUs != -1) return scheduleSuspend_l(suspend, suspendStartTimeUs);
    if (suspend) {
        mSuspended = true;
        mStats.count(Count::DROPPED_SUSPENDED, mAvailableBuffers.size() + mUnacquiredCount);
        releaseAllAvailableBuffers_l();
    } else {
        resume_l();
    }
    mStats.setSuspended(suspend);
    return OK;
}

status_t KorBufferSource::scheduleSuspend_l(bool suspend, int64_t timeUs) {
    const int64_t nowUs = systemTime(SYSTEM_TIME_MONOTONIC) / 1000;
    if (timeUs > nowUs) {
        ALOGE("setSuspend failed. %lld is larger than current system time %lld us",
              static_cast<long long>(timeUs), static_cast<long long>(nowUs));
        return INVALID_OPERATION;
    }
    if (mLastActionTimeUs != -1 && timeUs < mLastActionTimeUs) {
        ALOGE("setSuspend failed. %lld is smaller than last action time %lld us",
              static_cast<long long>(timeUs), static_cast<long long>(mLastActionTimeUs));
        return INVALID_OPERATION;
    }
    mLastActionTimeUs = timeUs;
    mActionQueue.push_back({suspend ? ActionItem::PAUSE : ActionItem::RESUME, timeUs});
    return OK;
}

void KorBufferSource::resume_l() {
    mSuspended = false;
    if (!mExecuting || haveAvailableBuffers_l() || !mRepeatBlocked) return;
    if (repeatLatestBuffer_l()) mRepeatBlocked = false;
}

bool KorBufferSource::applyActions_l(int64_t itemTimeUs) {
    if (mActionQueue.empty() || itemTimeUs < mActionQueue.front().mActionTimeUs) return false;
    const ActionItem nextAction = takeDueAction_l(itemTimeUs);
    // Can't fail: only actions that are due are taken.
    KOR_CHECK(665, itemTimeUs >= nextAction.mActionTimeUs);
    switch (nextAction.mAction) {
        case ActionItem::STOP:
            stop_l();
            return true;
        case ActionItem::RESUME:
            mSuspended = false;
            return false;
        case ActionItem::PAUSE:
            mSuspended = true;
            return false;
        default:
            KOR_TRESPASS(691, "Unknown action type");
    }
}

// Takes the actions that are due, up to a stop, and returns the last of them.
KorBufferSource::ActionItem KorBufferSource::takeDueAction_l(int64_t itemTimeUs) {
    ActionItem nextAction = mActionQueue.front();
    mActionQueue.pop_front();
    while (nextAction.mAction != ActionItem::STOP && !mActionQueue.empty() &&
           itemTimeUs >= mActionQueue.front().mActionTimeUs) {
        nextAction = mActionQueue.front();
        mActionQueue.pop_front();
    }
    return nextAction;
}

// Idle: nothing queues a stop.
void KorBufferSource::stop_l() {
    mActionQueue.clear();
    releaseAllAvailableBuffers_l();
    mEndOfStream = true;
    submitEndOfInputStream_l();
}

bool KorBufferSource::calculateCodecTimestamp_l(int64_t timeNs, int64_t* codecTimeUs) {
    const int64_t timeUs = timeNs / 1000 + mInputTimeOffsetUs;
    if (isTimeLapse_l()) return calculateTimeLapseTimestamp_l(timeUs, codecTimeUs);
    if (timeUs <= mPrevFrameUs && !keepBackwardFrame_l()) return false;
    mPrevFrameUs = timeUs;
    *codecTimeUs = timeUs;
    return true;
}

// Never so: nothing sets the two rates, and the two functions below are idle.
bool KorBufferSource::isTimeLapse_l() const {
    return mCaptureFps > 0 && (mFps > 2 * mCaptureFps || mCaptureFps > 2 * mFps);
}

bool KorBufferSource::calculateTimeLapseTimestamp_l(int64_t timeUs, int64_t* codecTimeUs) {
    if (mPrevCaptureUs < 0) {
        mBaseCaptureUs = mPrevCaptureUs = timeUs;
        mFrameCount = 0;
        mBaseFrameUs = mPrevFrameUs = std::llround(mCaptureFps * timeUs / mFps);
        *codecTimeUs = mPrevFrameUs;
        return true;
    }
    if (mSnapTimestamps) return snapTimestamp_l(timeUs, codecTimeUs);

    if (timeUs <= mPrevCaptureUs && !keepBackwardFrame_l()) return false;
    mPrevCaptureUs = timeUs;
    mPrevFrameUs = mBaseFrameUs + std::llround((mCaptureFps / mFps) * (timeUs - mBaseCaptureUs));
    *codecTimeUs = mPrevFrameUs;
    return true;
}

// Puts the frame on the nearest whole interval of the capture rate, at least one past the last.
bool KorBufferSource::snapTimestamp_l(int64_t timeUs, int64_t* codecTimeUs) {
    double nFrames = mCaptureFps * (timeUs - mPrevCaptureUs) / kMicrosPerSecond;
    if (nFrames < 0.45) {
        ALOGD("skipping frame, timeUs %lld", static_cast<long long>(timeUs));
        mStats.count(Count::DROPPED_RATE);
        return false;
    }
    nFrames = std::max(nFrames, 1.0);
    mFrameCount += std::llround(nFrames);
    mPrevCaptureUs = mBaseCaptureUs + std::llround(mFrameCount * kMicrosPerSecond / mCaptureFps);
    mPrevFrameUs = mBaseFrameUs + std::llround(mFrameCount * kMicrosPerSecond / mFps);
    *codecTimeUs = mPrevFrameUs;
    return true;
}

bool KorBufferSource::keepBackwardFrame_l() const {
    if (mFrameDropper != nullptr && mFrameDropper->disabled()) {
        ALOGW("Received frame that's going backward in time");
        return true;
    }
    ALOGW("Dropping frame that's going backward in time");
    mStats.count(Count::DROPPED_BACKWARD);
    return false;
}

// The repetition, from here on, is idle: nothing sets a repeat interval.

void KorBufferSource::startRepeatLooper_l() {
    mReflector = new AHandlerReflector<KorBufferSource>(this);
    mLooper = new ALooper;
    mLooper->registerHandler(mReflector);
    mLooper->start(false, false, 0);
    if (mLatestBuffer.mBuffer != nullptr) queueFrameRepeat_l();
}

void KorBufferSource::setLatestBuffer_l(const VideoBuffer& buffer) {
    mLatestBuffer = buffer;
    mLatestBuffer.mTimestampNs += mRepeatIntervalUs * 1000;
    mLatestBuffer.mArrivedNs = 0;  // a repetition doesn't arrive
    mOutstandingRepeatCount = kMaxRepeats;
    queueFrameRepeat_l();
}

void KorBufferSource::queueFrameRepeat_l() {
    mRepeatBlocked = false;
    if (mReflector == nullptr) return;
    const sp<AMessage> msg = new AMessage(kWhatRepeatLatestFrame, mReflector);
    msg->setInt32("generation", ++mRepeatGeneration);
    msg->post(mRepeatIntervalUs);
}

bool KorBufferSource::repeatLatestBuffer_l() {
    KOR_CHECK(749, mExecuting && !haveAvailableBuffers_l());
    if (mLatestBuffer.mBuffer == nullptr || mSuspended) return false;
    if (mFreeCodecBuffers.empty()) return false;
    if (submitBuffer_l(mLatestBuffer) != OK) return false;
    mStats.count(Count::FRAMES_REPEATED);
    --mOutstandingRepeatCount;
    if (mOutstandingRepeatCount > 0) {
        mLatestBuffer.mTimestampNs += mRepeatIntervalUs * 1000;
        queueFrameRepeat_l();
    }
    return true;
}

void KorBufferSource::onMessageReceived(const sp<AMessage>& msg) {
    if (msg->what() != kWhatRepeatLatestFrame) KOR_TRESPASS(1483, "");
    Mutex::Autolock lock(mMutex);
    int32_t generation = 0;
    KOR_CHECK(1461, msg->findInt32("generation", &generation));
    if (generation != mRepeatGeneration || !mExecuting || haveAvailableBuffers_l()) return;
    if (!repeatLatestBuffer_l()) mRepeatBlocked = true;
}

}  // namespace android
