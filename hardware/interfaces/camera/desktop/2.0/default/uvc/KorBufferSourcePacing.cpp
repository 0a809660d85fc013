// SPDX-License-Identifier: Apache-2.0
// When frames are lent: the maximum rate, pauses, and the repetition of the latest frame.
#define LOG_TAG "KorBufferSource"

#include "uvc/KorBufferSource.h"

#include <log/log.h>
#include <utils/Timers.h>

#include "uvc/KorCheck.h"
#include "uvc/Truncate.h"

namespace android {

using ::korvane::hardware::camera::desktop::V2_0::implementation::Count;
using ::korvane::hardware::camera::desktop::V2_0::implementation::truncateTo;

namespace {

constexpr uint32_t kWhatRepeatLatestFrame = 0;

}  // namespace

status_t KorBufferSource::setMaxFps(float maxFps) {
    ALOGD("setMaxFps: maxFps=%lld", truncateTo<long long>(maxFps));
    Mutex::Autolock lock(mMutex);
    if (isExecuting_l()) return INVALID_OPERATION;
    return mTimes.setMaxFps(maxFps);
}

status_t KorBufferSource::setSuspend(bool suspend, int64_t suspendStartTimeUs) {
    Mutex::Autolock lock(mMutex);
    if (mActions.isStopPending()) {
        ALOGE("setSuspend failed as STOP action is pending");
        return INVALID_OPERATION;
    }
    if (suspendStartTimeUs != -1) {
        return mActions.schedule(suspend, suspendStartTimeUs,
                                 systemTime(SYSTEM_TIME_MONOTONIC) / 1000);
    }
    mActions.setSuspended(suspend);
    if (suspend) {
        mStats.count(Count::DROPPED_SUSPENDED, mAvailableBuffers.size() + mUnacquiredCount);
        releaseAllAvailableBuffers_l();
    } else {
        resume_l();
    }
    mStats.setSuspended(suspend);
    return OK;
}

void KorBufferSource::resume_l() {
    if (!isExecuting_l() || haveAvailableBuffers_l() || !mRepetition.isBlocked()) return;
    if (repeatLatestBuffer_l()) mRepetition.setBlocked(false);
}

// Idle: nothing queues a stop.
void KorBufferSource::stop_l() {
    releaseAllAvailableBuffers_l();
    mState = State::ENDING;
    submitEndOfInputStream_l();
}

bool KorBufferSource::calculateCodecTimestamp_l(int64_t timeNs, int64_t* codecTimeUs) {
    return mTimes.calculate(timeNs, codecTimeUs);
}

// The repetition, from here on, is idle: nothing sets a repeat interval.

void KorBufferSource::startRepeatLooper_l() {
    mReflector = new AHandlerReflector<KorBufferSource>(this);
    mLooper = new ALooper;
    mLooper->registerHandler(mReflector);
    mLooper->start(false, false, 0);
    if (mRepetition.latest().mBuffer != nullptr) queueFrameRepeat_l();
}

void KorBufferSource::setLatestBuffer_l(const VideoBuffer& buffer) {
    mRepetition.setLatest(buffer);
    queueFrameRepeat_l();
}

void KorBufferSource::queueFrameRepeat_l() {
    mRepetition.setBlocked(false);
    if (mReflector == nullptr) return;
    const sp<AMessage> msg = new AMessage(kWhatRepeatLatestFrame, mReflector);
    mRepetition.cancel();
    msg->setInt32("generation", mRepetition.generation());
    msg->post(mRepetition.intervalUs());
}

bool KorBufferSource::repeatLatestBuffer_l() {
    KOR_CHECK_AS(749, isExecuting_l() && !haveAvailableBuffers_l(),
                 "mExecuting && !haveAvailableBuffers_l()");
    const VideoBuffer& latest = mRepetition.latest();
    if (latest.mBuffer == nullptr || mActions.isSuspended()) return false;
    if (!mCodecBuffers.haveFree()) return false;
    if (submitBuffer_l(latest) != OK) return false;
    mStats.count(Count::FRAMES_REPEATED);
    if (mRepetition.noteRepeated()) queueFrameRepeat_l();
    return true;
}

void KorBufferSource::onMessageReceived(const sp<AMessage>& msg) {
    if (msg->what() != kWhatRepeatLatestFrame) KOR_TRESPASS(1483, "");
    Mutex::Autolock lock(mMutex);
    int32_t generation = 0;
    KOR_CHECK(1461, msg->findInt32("generation", &generation));
    if (generation != mRepetition.generation() || !isExecuting_l() || haveAvailableBuffers_l())
        return;
    if (!repeatLatestBuffer_l()) mRepetition.setBlocked(true);
}

}  // namespace android
