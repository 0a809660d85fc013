// SPDX-License-Identifier: Apache-2.0
// A condition of the buffer queue, waited for with a mutex that clang can see is held.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <android-base/thread_annotations.h>

namespace android {

/**
 * A std::condition_variable for callers that hold the mutex through a std::lock_guard, which
 * clang's analysis of locks can follow, unlike a std::unique_lock. It costs no more: a
 * std::condition_variable_any would lock a mutex of its own in every call, for every frame.
 *
 * A wait releases the mutex and holds it again when it returns, which it may do spuriously.
 * Concurrent waits must use the same mutex.
 */
class QueueCondition {
  public:
    void wait(std::mutex& mutex) REQUIRES(mutex);

    /** False once that time is up, by a clock that nobody sets. */
    [[nodiscard]] bool waitFor(std::mutex& mutex, std::chrono::nanoseconds timeout) REQUIRES(mutex);

    void notifyAll() { mCondition.notify_all(); }

  private:
    std::condition_variable mCondition;
};

inline void QueueCondition::wait(std::mutex& mutex) {
    std::unique_lock<std::mutex> lock(mutex, std::adopt_lock);
    mCondition.wait(lock);
    (void)lock.release();  // still the caller's
}

inline bool QueueCondition::waitFor(std::mutex& mutex, std::chrono::nanoseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex, std::adopt_lock);
    const std::cv_status status = mCondition.wait_for(lock, timeout);
    (void)lock.release();  // still the caller's
    return status == std::cv_status::no_timeout;
}

}  // namespace android
