// SPDX-License-Identifier: Apache-2.0
// What tells one picture of the test card from every other.
#pragma once

#include <cstdint>

namespace korvane::testcard {

/** The frame number and the time of drawing, as a picture carries them. */
struct FrameStamp {
    uint32_t number = 0;
    uint64_t timeUs = 0;  // monotonic clock, microseconds

    bool operator==(const FrameStamp& other) const {
        return number == other.number && timeUs == other.timeUs;
    }
    bool operator!=(const FrameStamp& other) const { return !(*this == other); }
};

}  // namespace korvane::testcard
