// SPDX-License-Identifier: Apache-2.0
// The beat on which a stream's frames are drawn.
#pragma once

#include <cstdint>

namespace korvane::camera {

/**
 * A beat of fixed rate from a given start; pure reckoning in monotonic nanoseconds. A frame's
 * timestamp is its beat, not the moment of drawing: what limits the rate behind the surface drops
 * frames that follow each other too closely, as late and punctual ones do by the clock.
 */
class FramePacer {
  public:
    FramePacer(int64_t startNs, double fps) : mStartNs(startNs), mIntervalNs(1e9 / fps) {}

    /** When the next frame is due; in the past if the last ones took too long. */
    int64_t nextBeat() const { return beat(mNext); }

    /**
     * Takes the latest beat that is due at `nowNs`, passing over those that were missed, and at
     * least the next one. Beats taken always rise.
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
