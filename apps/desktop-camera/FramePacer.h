// SPDX-License-Identifier: Apache-2.0
// The beat at which a stream's frames are drawn.
#pragma once

#include <cstdint>

namespace korvane::camera {

/**
 * A beat at a fixed rate from a given start; pure arithmetic in monotonic nanoseconds. A frame's
 * timestamp is its beat, not the moment it was drawn: the rate limiter past the surface drops
 * frames that are too close together, as a late frame and a punctual one are by the clock.
 */
class FramePacer {
  public:
    FramePacer(int64_t startNs, double fps) : mStartNs(startNs), mIntervalNs(1e9 / fps) {}

    /** When the next frame is due; in the past if the last ones took too long. */
    int64_t nextBeat() const { return beat(mNext); }

    /**
     * Takes the latest beat that is due at `nowNs`, skipping any that were missed, and at least the
     * next one. Beats taken always increase.
     */
    int64_t takeBeat(int64_t nowNs);

  private:
    int64_t beat(int64_t index) const {
        return mStartNs + static_cast<int64_t>(static_cast<double>(index) * mIntervalNs);
    }

    const int64_t mStartNs;
    const double mIntervalNs;
    int64_t mNext = 0;
};

}  // namespace korvane::camera
