// SPDX-License-Identifier: Apache-2.0
// The signal time of a fence, remembered once it is known.
#pragma once

#include <memory>
#include <mutex>

#include <android-base/thread_annotations.h>
#include <ui/Fence.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

namespace android {

/** Shared by whoever reports a frame's times. Thread-safe. */
class FenceTime {
  public:
    /** The time of a fence without a descriptor. */
    static const std::shared_ptr<FenceTime> NO_FENCE;

    explicit FenceTime(const sp<Fence>& fence);
    FenceTime(const FenceTime&) = delete;
    FenceTime& operator=(const FenceTime&) = delete;

    /** Whether there is, or ever was, a fence with a descriptor. */
    bool isValid() const { return mValid; }

    /** As Fence::getSignalTime(). Lets go of the fence once the time is known. */
    nsecs_t getSignalTime() EXCLUDES(mMutex);

    /** As Fence::wait(). */
    status_t wait(int timeout) EXCLUDES(mMutex);

  private:
    sp<Fence> fence() const EXCLUDES(mMutex);

    const bool mValid;
    mutable std::mutex mMutex;
    /** Null once mSignalTime is final. */
    sp<Fence> mFence GUARDED_BY(mMutex);
    nsecs_t mSignalTime GUARDED_BY(mMutex);
};

}  // namespace android
