// SPDX-License-Identifier: Apache-2.0
// How far the webcam controller's poll thread has come: whether it may still be stopped.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <android-base/thread_annotations.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * The start of the controller's poll thread, which ends in one of two ways:
 *
 *                    beginPolling(), by the poll thread
 *     CONNECTING ───────────────────────────────────────► POLLING    for good: it can't be stopped
 *         │
 *         └─────────────────────────────────────────────► STOPPED    the thread ends
 *                    stop(), by who destroys the controller
 *
 * Thread-safe, with a lock of its own that is held over nothing.
 */
class ControllerStart {
  public:
    /** Waits that long, or until stop(). True when it hasn't been stopped. */
    [[nodiscard]] bool wait(std::chrono::steady_clock::duration delay) EXCLUDES(mLock);

    /** True when the thread polls from now on, false when it has been stopped. */
    [[nodiscard]] bool beginPolling() EXCLUDES(mLock);

    /** True when the thread is stopped, false when it polls. */
    [[nodiscard]] bool stop() EXCLUDES(mLock);

  private:
    enum class State { CONNECTING, POLLING, STOPPED };

    std::mutex mLock;
    std::condition_variable_any mStopped;
    State mState GUARDED_BY(mLock) = State::CONNECTING;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
