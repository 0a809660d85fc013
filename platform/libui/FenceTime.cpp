// SPDX-License-Identifier: Apache-2.0
#include "ui/FenceTime.h"

namespace android {

const std::shared_ptr<FenceTime> FenceTime::NO_FENCE =
        std::make_shared<FenceTime>(sp<Fence>(new Fence()));

FenceTime::FenceTime(const sp<Fence>& fence)
    : mValid(fence != nullptr && fence->isValid()),
      mFence(mValid ? fence : nullptr),
      mSignalTime(mValid ? Fence::SIGNAL_TIME_PENDING : Fence::SIGNAL_TIME_INVALID) {}

sp<Fence> FenceTime::fence() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mFence;
}

nsecs_t FenceTime::getSignalTime() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mFence == nullptr) return mSignalTime;
    mSignalTime = mFence->getSignalTime();
    if (mSignalTime != Fence::SIGNAL_TIME_PENDING) mFence.clear();
    return mSignalTime;
}

status_t FenceTime::wait(int timeout) {
    const sp<Fence> waited = fence();
    return waited == nullptr ? status_t{NO_ERROR} : waited->wait(timeout);
}

}  // namespace android
