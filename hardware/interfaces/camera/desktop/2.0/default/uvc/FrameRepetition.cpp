// SPDX-License-Identifier: Apache-2.0
#include "uvc/FrameRepetition.h"

namespace android {
namespace {

constexpr int32_t kMaxRepeats = 10;

}  // namespace

void FrameRepetition::setLatest(const VideoBuffer& buffer) {
    mLatest = buffer;
    advance();
    mLatest.mArrivedNs = 0;  // a repetition doesn't arrive
    mOutstandingCount = kMaxRepeats;
}

bool FrameRepetition::noteRepeated() {
    --mOutstandingCount;
    if (mOutstandingCount <= 0) return false;
    advance();
    return true;
}

}  // namespace android
