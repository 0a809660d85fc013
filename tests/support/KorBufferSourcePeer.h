// SPDX-License-Identifier: Apache-2.0
// The frame source's only friend: reaches what nobody can see from outside.
#pragma once

#include <cstdint>
#include <vector>

#include <utils/Mutex.h>

#include "uvc/KorBufferSource.h"

namespace android {

/**
 * Gives access to one source: to its parts, which a test sets up in ways the service never does,
 * and to the steps that are taken with its lock held. Use it only while no other thread is inside
 * the source.
 */
class KorBufferSourcePeer {
  public:
    using State = KorBufferSource::State;

    explicit KorBufferSourcePeer(KorBufferSource* source) : mSource(*source) {}

    Mutex& mutex() { return mSource.mMutex; }
    /** What the queue's callbacks go through. */
    sp<BufferQueue::ConsumerListener> consumerProxy() const { return mSource.mConsumerProxy; }

    State& state() { return mSource.mState; }
    FrameActions& actions() { return mSource.mActions; }
    FrameTimes& times() { return mSource.mTimes; }
    FrameRepetition& repetition() { return mSource.mRepetition; }
    const FrameRepetition& repetition() const { return mSource.mRepetition; }
    CodecBuffers& codecBuffers() { return mSource.mCodecBuffers; }
    std::vector<VideoBuffer>& availableBuffers() { return mSource.mAvailableBuffers; }

    int32_t unacquiredCount() const { return mSource.mUnacquiredCount; }
    int32_t outstandingAcquires() const { return mSource.mSlots.outstandingAcquires(); }
    uint32_t lastDataSpace() const { return mSource.mLastDataSpace; }
    int64_t lastFrameTimestampUs() const { return mSource.mLastFrameTimestampUs; }
    const sp<ALooper>& looper() const { return mSource.mLooper; }

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
    /** What a posted repetition does once it is due. */
    void onMessageReceived(const sp<AMessage>& msg) { mSource.onMessageReceived(msg); }

  private:
    KorBufferSource& mSource;
};

}  // namespace android
