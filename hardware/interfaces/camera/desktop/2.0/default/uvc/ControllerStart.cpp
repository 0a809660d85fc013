// SPDX-License-Identifier: Apache-2.0
#include "uvc/ControllerStart.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

bool ControllerStart::wait(std::chrono::steady_clock::duration delay) {
    const auto end = std::chrono::steady_clock::now() + delay;
    std::lock_guard<std::mutex> guard(mLock);
    while (mState != State::STOPPED) {
        if (mStopped.wait_until(mLock, end) == std::cv_status::timeout) break;
    }
    return mState != State::STOPPED;
}

bool ControllerStart::beginPolling() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mState == State::STOPPED) return false;
    mState = State::POLLING;
    return true;
}

bool ControllerStart::stop() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mState == State::POLLING) return false;
    mState = State::STOPPED;
    mStopped.notify_all();
    return true;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
