// SPDX-License-Identifier: Apache-2.0
// The time from one frame to the next, which UVC counts in units of 100 ns.
#pragma once

#include <cstdint>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

constexpr float kIntervalsPerSecond = 1e7f;

/**
 * Frames per second, in single precision like the host's own figure; 0 for an interval of 0, since
 * JSON has no infinity.
 */
inline float framesPerSecond(uint32_t interval) {
    return interval == 0 ? 0.0f : kIntervalsPerSecond / static_cast<float>(interval);
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
