// SPDX-License-Identifier: Apache-2.0
// The latest frame of a frame source, kept to be lent again when no other comes.
#pragma once

#include <cstdint>

#include "uvc/VideoBuffer.h"

namespace android {

/**
 * What is to be repeated, how often, and which of the repetitions that were posted still counts.
 *
 * The frame source posts a repetition to its looper with the generation(); when it is due, it
 * counts only if the generation is still the same: cancel() changes it. One that is due without a
 * free codec buffer is blocked: it is tried again when a codec buffer comes back.
 *
 * Idle: nothing sets an interval, so no frame is kept and nothing is repeated.
 *
 * Part of a KorBufferSource and guarded by its mutex, as the frame in it must be: it has no lock
 * and no thread of its own.
 */
class FrameRepetition {
  public:
    /** Repeats nothing. */
    FrameRepetition() = default;
    /** @param intervalUs between repetitions; below 1 for none */
    explicit FrameRepetition(int64_t intervalUs) : mIntervalUs(intervalUs) {}

    bool isOn() const { return mIntervalUs >= 1; }
    int64_t intervalUs() const { return mIntervalUs; }

    /** The frame to repeat, with the time of its next repetition; no buffer in it for none. */
    const VideoBuffer& latest() const { return mLatest; }

    /** Keeps the frame, for ten repetitions. */
    void setLatest(const VideoBuffer& buffer);
    void forgetLatest() { mLatest = {}; }

    /** The generation of a repetition that is posted now. */
    int32_t generation() const { return mGeneration; }
    /** Cancels what has been posted. */
    void cancel() { ++mGeneration; }

    /** Whether a repetition was due but couldn't be made. */
    bool isBlocked() const { return mBlocked; }
    void setBlocked(bool blocked) { mBlocked = blocked; }

    /** Notes that the frame was lent again. True when it is to be so once more, an interval later.
     */
    bool noteRepeated();

  private:
    void advance() { mLatest.mTimestampNs += mIntervalUs * 1000; }

    int64_t mIntervalUs = -1;
    int32_t mGeneration = 0;
    int32_t mOutstandingCount = 0;
    bool mBlocked = false;
    VideoBuffer mLatest;
};

}  // namespace android
