// SPDX-License-Identifier: Apache-2.0
// Decides which frames exceed a maximum frame rate.
#pragma once

#include <cstdint>

#include <media/stagefright/foundation/ABase.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

/**
 * Keeps at most one frame for each interval of the maximum rate, on a grid that starts at the first
 * frame; a frame may be up to 2 ms early for its place on the grid. Until a rate is set, every
 * frame is kept. Not thread-safe.
 */
struct FrameDropper : public RefBase {
    FrameDropper() = default;

    /**
     * Sets the maximum rate in frames per second; a negative one disables dropping. The grid stays
     * where it was.
     *
     * @return OK, or BAD_VALUE for 0, which changes nothing.
     */
    status_t setMaxFrameRate(float maxFrameRate);

    /** Whether the frame of this time, in microseconds, is to be dropped. */
    bool shouldDrop(int64_t timeUs);

    /** Whether dropping was disabled by a negative rate. */
    bool disabled();

  protected:
    ~FrameDropper() override = default;

  private:
    int64_t mDesiredMinTimeUs = -1;  // the earliest time of the next frame; -1 before the first
    int64_t mMinIntervalUs = 0;      // -1 when disabled

    DISALLOW_EVIL_CONSTRUCTORS(FrameDropper);
};

}  // namespace android
