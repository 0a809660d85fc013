// SPDX-License-Identifier: Apache-2.0
#include "media/stagefright/bqhelper/FrameDropper.h"

namespace android {
namespace {

constexpr int64_t kMaxJitterUs = 2000;

}  // namespace

status_t FrameDropper::setMaxFrameRate(float maxFrameRate) {
    if (maxFrameRate < 0) {
        mMinIntervalUs = -1;
        return OK;
    }
    if (maxFrameRate == 0) return BAD_VALUE;
    mMinIntervalUs = static_cast<int64_t>(1000000.0f / maxFrameRate);
    return OK;
}

bool FrameDropper::shouldDrop(int64_t timeUs) {
    if (mMinIntervalUs <= 0) return false;
    if (mDesiredMinTimeUs < 0) {
        mDesiredMinTimeUs = timeUs + mMinIntervalUs;
        return false;
    }
    if (timeUs < mDesiredMinTimeUs - kMaxJitterUs) return true;
    const int64_t behind = (timeUs - mDesiredMinTimeUs + kMaxJitterUs) / mMinIntervalUs;
    mDesiredMinTimeUs += (behind + 1) * mMinIntervalUs;
    return false;
}

bool FrameDropper::disabled() {
    return mMinIntervalUs == -1;
}

}  // namespace android
