// SPDX-License-Identifier: Apache-2.0
#include "FramePacer.h"

#include <algorithm>

namespace korvane::camera {

int64_t FramePacer::takeBeat(int64_t nowNs) {
    auto due = static_cast<int64_t>(static_cast<double>(nowNs - mStartNs) / mIntervalNs);
    if (beat(due) > nowNs) --due;  // rounded up where a beat falls just after now
    const int64_t taken = std::max(due, mNext);
    mNext = taken + 1;
    return beat(taken);
}

}  // namespace korvane::camera
