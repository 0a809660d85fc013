// SPDX-License-Identifier: Apache-2.0
// The frame source's one friend: reaches the state for which it has no setters.
#pragma once

#include <cstdint>
#include <list>
#include <memory>

#include <utils/Mutex.h>

#include "uvc/KorBufferSource.h"

namespace android {

/** Of one source. A test uses it while no other thread is inside the source. */
class KorBufferSourcePeer {
  public:
    using ActionItem = KorBufferSource::ActionItem;
    using VideoBuffer = KorBufferSource::VideoBuffer;

    explicit KorBufferSourcePeer(KorBufferSource* source) : mSource(*source) {}

    status_t initCheck() const { return mSource.mInitCheck; }
    Mutex& mutex() { return mSource.mMutex; }
    /** What the queue's callbacks go through. */
    sp<BufferQueue::ConsumerListener> consumerProxy() const { return mSource.mConsumerProxy; }
    const sp<ComponentWrapper>& component() const { return mSource.mComponent; }
    std::vector<VideoBuffer>& availableBuffers() { return mSource.mAvailableBuffers; }
    int32_t& unacquiredCount() { return mSource.mUnacquiredCount; }
    int32_t outstandingAcquires() const { return mSource.mOutstandingAcquires; }
    std::vector<int>& freeCodecBuffers() { return mSource.mFreeCodecBuffers; }
    bool& endOfStream() { return mSource.mEndOfStream; }
    bool& endOfStreamSent() { return mSource.mEndOfStreamSent; }
    uint32_t lastDataSpace() const { return mSource.mLastDataSpace; }
    bool& executing() { return mSource.mExecuting; }
    bool& suspended() { return mSource.mSuspended; }
    int64_t lastFrameTimestampUs() const { return mSource.mLastFrameTimestampUs; }
    int64_t& stopTimeUs() { return mSource.mStopTimeUs; }
    int64_t& lastActionTimeUs() { return mSource.mLastActionTimeUs; }
    std::list<ActionItem>& actionQueue() { return mSource.mActionQueue; }
    int64_t& skipFramesBeforeNs() { return mSource.mSkipFramesBeforeNs; }
    sp<FrameDropper>& frameDropper() { return mSource.mFrameDropper; }
    sp<ALooper>& looper() { return mSource.mLooper; }
    int64_t& repeatIntervalUs() { return mSource.mRepeatIntervalUs; }
    int32_t& repeatGeneration() { return mSource.mRepeatGeneration; }
    int32_t& outstandingRepeatCount() { return mSource.mOutstandingRepeatCount; }
    bool& repeatBlocked() { return mSource.mRepeatBlocked; }
    VideoBuffer& latestBuffer() { return mSource.mLatestBuffer; }
    double& fps() { return mSource.mFps; }
    double& captureFps() { return mSource.mCaptureFps; }
    bool& snapTimestamps() { return mSource.mSnapTimestamps; }
    int64_t& baseCaptureUs() { return mSource.mBaseCaptureUs; }
    int64_t& baseFrameUs() { return mSource.mBaseFrameUs; }
    int64_t& frameCount() { return mSource.mFrameCount; }
    int64_t& prevCaptureUs() { return mSource.mPrevCaptureUs; }
    int64_t& prevFrameUs() { return mSource.mPrevFrameUs; }
    int64_t& inputTimeOffsetUs() { return mSource.mInputTimeOffsetUs; }

    /** Makes a lent codec buffer look like one without a frame. */
    void forgetFrameOf(int bufferId) {
        Mutex::Autolock lock(mSource.mMutex);
        mSource.findSubmitted_l(bufferId)->mBuffer.reset();
    }

    bool fillCodecBuffer() {
        Mutex::Autolock lock(mSource.mMutex);
        return mSource.fillCodecBuffer_l();
    }
    status_t submitBuffer(const VideoBuffer& buffer) {
        Mutex::Autolock lock(mSource.mMutex);
        return mSource.submitBuffer_l(buffer);
    }
    void submitEndOfInputStream() {
        Mutex::Autolock lock(mSource.mMutex);
        mSource.submitEndOfInputStream_l();
    }
    bool repeatLatestBuffer() {
        Mutex::Autolock lock(mSource.mMutex);
        return mSource.repeatLatestBuffer_l();
    }
    /** What a posted repeat does once it is due. */
    void onMessageReceived(const sp<AMessage>& msg) { mSource.onMessageReceived(msg); }

  private:
    KorBufferSource& mSource;
};

}  // namespace android
