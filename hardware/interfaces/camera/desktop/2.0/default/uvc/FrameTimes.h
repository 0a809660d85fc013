// SPDX-License-Identifier: Apache-2.0
// How a frame's time is made, and which frames their times drop.
#pragma once

#include <cstdint>

#include <media/stagefright/bqhelper/FrameDropper.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include "uvc/ServiceStats.h"

namespace android {

/**
 * Times and rates of a frame source's frames. Each frame that is to be lent goes through three
 * steps, in this order, any of which may drop it:
 *
 *   1. skip(): is it from before the time to skip to? If not, its time counts from there.
 *   2. isTooSoon(): does it come faster than the maximum rate?
 *   3. calculate(): is it later than the one before? Its time in whole microseconds, plus the
 *      offset, is the time to lend it with; with a capture rate far from the frame rate
 *      (time-lapse, slow motion) that time is scaled, or put on whole intervals.
 *
 * Times are the queue items' (CLOCK_MONOTONIC): nanoseconds going in, microseconds coming out. What
 * is dropped for its rate or its direction is counted.
 *
 * Part of a KorBufferSource and guarded by its mutex: it has no lock and no thread of its own.
 */
class FrameTimes {
  public:
    using ServiceStats = ::korvane::hardware::camera::desktop::V2_0::implementation::ServiceStats;

    /** Idle: the service leaves all of them as they are here. */
    struct Settings {
        int64_t skipFramesBeforeNs = -1;  // below 0: skips none
        int64_t inputTimeOffsetUs = 0;
        double captureFps = -1.0;  // frames per second in front of the camera; -1 for no time-lapse
        double fps = -1.0;         // frames per second as they are lent
        bool snapTimestamps = true;  // puts frames of a time-lapse on whole intervals
    };

    /** @param stats counts what is dropped; outlives the object */
    explicit FrameTimes(ServiceStats& stats) : FrameTimes(stats, Settings()) {}
    FrameTimes(ServiceStats& stats, const Settings& settings)
        : mStats(&stats), mSettings(settings) {}

    /**
     * Sets the maximum rate, in frames per second. A negative one drops no frame, not even one
     * whose time goes backward.
     *
     * @return BAD_VALUE for 0, after which there is no maximum
     */
    [[nodiscard]] status_t setMaxFps(float maxFps);

    /** Forgets the rates and all frames; only the setting for snapping stays. */
    void reset();

    /** True to drop the frame; otherwise `timeNs` counts from the time skipped to. */
    [[nodiscard]] bool skip(int64_t* timeNs) const;

    /** True to drop the frame, which counts as handled all the same. */
    [[nodiscard]] bool isTooSoon(int64_t timeNs);

    /** Makes the time to lend the frame with; false to drop it. */
    [[nodiscard]] bool calculate(int64_t timeNs, int64_t* codecTimeUs);

  private:
    bool isTimeLapse() const;
    [[nodiscard]] bool calculateTimeLapse(int64_t timeUs, int64_t* codecTimeUs);
    [[nodiscard]] bool snap(int64_t timeUs, int64_t* codecTimeUs);
    bool keepBackwardFrame() const;

    // As captured and as lent, in microseconds. -1 before the first frame.
    struct Progress {
        int64_t baseCaptureUs = -1;
        int64_t baseFrameUs = -1;
        int64_t frameCount = 0;
        int64_t prevCaptureUs = -1;
        int64_t prevFrameUs = -1;
    };

    ServiceStats* mStats;
    Settings mSettings;
    Progress mProgress;
    sp<FrameDropper> mFrameDropper;  // null without a maximum rate
};

}  // namespace android
