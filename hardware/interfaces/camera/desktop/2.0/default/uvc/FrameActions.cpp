// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "KorBufferSource"

#include "uvc/FrameActions.h"

#include <log/log.h>

#include "uvc/KorCheck.h"

namespace android {

void FrameActions::reset() {
    mSuspended = false;
    mStopTimeUs = -1;
    mQueue.clear();
}

status_t FrameActions::schedule(bool suspend, int64_t timeUs, int64_t nowUs) {
    if (timeUs > nowUs) {
        ALOGE("setSuspend failed. %lld is larger than current system time %lld us",
              static_cast<long long>(timeUs), static_cast<long long>(nowUs));
        return INVALID_OPERATION;
    }
    if (mLastActionTimeUs != -1 && timeUs < mLastActionTimeUs) {
        ALOGE("setSuspend failed. %lld is smaller than last action time %lld us",
              static_cast<long long>(timeUs), static_cast<long long>(mLastActionTimeUs));
        return INVALID_OPERATION;
    }
    mLastActionTimeUs = timeUs;
    append({suspend ? ActionItem::PAUSE : ActionItem::RESUME, timeUs});
    return OK;
}

bool FrameActions::apply(int64_t itemTimeUs) {
    if (mQueue.empty() || itemTimeUs < mQueue.front().mActionTimeUs) return false;
    const ActionItem nextAction = takeDue(itemTimeUs);
    // Can't fail: only actions that are due are taken.
    KOR_CHECK(665, itemTimeUs >= nextAction.mActionTimeUs);
    switch (nextAction.mAction) {
        case ActionItem::STOP:
            mQueue.clear();
            return true;
        case ActionItem::RESUME:
            mSuspended = false;
            return false;
        case ActionItem::PAUSE:
            mSuspended = true;
            return false;
        default:
            KOR_TRESPASS(691, "Unknown action type");
    }
}

// Takes the actions that are due, up to a stop, and returns the last of them.
ActionItem FrameActions::takeDue(int64_t itemTimeUs) {
    ActionItem nextAction = mQueue.front();
    mQueue.pop_front();
    while (nextAction.mAction != ActionItem::STOP && !mQueue.empty() &&
           itemTimeUs >= mQueue.front().mActionTimeUs) {
        nextAction = mQueue.front();
        mQueue.pop_front();
    }
    return nextAction;
}

}  // namespace android
