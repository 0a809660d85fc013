// SPDX-License-Identifier: Apache-2.0
// Whether a frame source is paused, and what is to pause, resume or stop it at a time.
#pragma once

#include <cstdint>
#include <list>

#include <utils/Errors.h>

namespace android {

/** One of the actions of a FrameActions. */
struct ActionItem {
    enum Type { PAUSE = 0, RESUME = 1, STOP = 2 };
    int mAction;
    int64_t mActionTimeUs;
};

/**
 * Pauses, resumptions and the stop of a frame source: those that took effect, and the queue of
 * those that do so with the first frame of their time or later. Times are CLOCK_MONOTONIC's, in
 * microseconds.
 *
 * Idle: nothing sets a stop time or queues a stop.
 *
 * Part of a KorBufferSource and guarded by its mutex: it has no lock and no thread of its own.
 */
class FrameActions {
  public:
    /** @param stopTimeUs of the stop that is pending; -1 for none */
    explicit FrameActions(int64_t stopTimeUs = -1) : mStopTimeUs(stopTimeUs) {}

    /** Resumes at once, with nothing queued. The last action's time stays: none may go back. */
    void reset();

    bool isSuspended() const { return mSuspended; }
    /** Pauses or resumes at once; what is queued stays. */
    void setSuspended(bool suspended) { mSuspended = suspended; }

    /** Whether new frames are useless: paused, with nothing queued that would resume. */
    bool isDiscarding() const { return mSuspended && mQueue.empty(); }

    bool isStopPending() const { return mStopTimeUs != -1; }

    /**
     * Queues a pause or a resumption.
     *
     * @param timeUs from when on; not later than nowUs, nor before that of the last one queued
     * @return INVALID_OPERATION for another time
     */
    [[nodiscard]] status_t schedule(bool suspend, int64_t timeUs, int64_t nowUs);

    void append(const ActionItem& action) { mQueue.push_back(action); }

    /**
     * Carries out what is due with a frame of this time: the last of the actions up to it, or up to
     * a stop.
     *
     * @return true when that was a stop, which also empties the queue
     */
    [[nodiscard]] bool apply(int64_t itemTimeUs);

  private:
    ActionItem takeDue(int64_t itemTimeUs);

    bool mSuspended = false;
    int64_t mStopTimeUs;
    int64_t mLastActionTimeUs = -1;
    std::list<ActionItem> mQueue;  // oldest first
};

}  // namespace android
