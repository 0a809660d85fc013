// SPDX-License-Identifier: Apache-2.0
// A descriptor that says when a buffer may be touched.
#pragma once

#include <atomic>
#include <cstdint>

#include <android-base/unique_fd.h>
#include <utils/Errors.h>
#include <utils/LightRefBase.h>
#include <utils/String8.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

namespace android {

/**
 * Owns one descriptor that polls readable once the fence has signalled, or none (-1), which counts
 * as signalled. Immutable; thread-safe.
 */
class Fence : public LightRefBase<Fence> {
  public:
    /** Holds no descriptor. Other fences may hold none as well: ask isValid(). */
    static const sp<Fence> NO_FENCE;

    static constexpr nsecs_t SIGNAL_TIME_PENDING = INT64_MAX;
    static constexpr nsecs_t SIGNAL_TIME_INVALID = -1;
    static constexpr int TIMEOUT_NEVER = -1;

    static bool isValidTimestamp(nsecs_t time) { return time >= 0 && time < INT64_MAX; }

    Fence() = default;
    /** Takes `fd`. */
    explicit Fence(int fd) : mFenceFd(fd) {}
    explicit Fence(base::unique_fd fd) : mFenceFd(std::move(fd)) {}
    Fence(const Fence&) = delete;
    Fence& operator=(const Fence&) = delete;

    /** Whether it holds a descriptor. */
    bool isValid() const { return mFenceFd.get() != -1; }

    /**
     * Waits for the signal, for at most `timeout` milliseconds or, with TIMEOUT_NEVER, for ever.
     * @return NO_ERROR, also without a descriptor; -ETIME when the time ran out; -EINVAL when the
     *         descriptor is in error.
     */
    status_t wait(int timeout);

    /** Waits without end, but logs an error under `logname` after three seconds. */
    status_t waitForever(const char* logname);

    /**
     * A fence that signals when both have. Neither may be null; if neither holds a descriptor it is
     * NO_FENCE, as it is when merging fails, which is logged.
     */
    static sp<Fence> merge(const char* name, const sp<Fence>& f1, const sp<Fence>& f2);
    static sp<Fence> merge(const String8& name, const sp<Fence>& f1, const sp<Fence>& f2);

    /** A duplicate that the caller owns; -1 with errno (EBADF without a descriptor). */
    int dup() const;

    /** The descriptor, which stays the fence's own, or -1. */
    int get() const { return mFenceFd.get(); }

    /**
     * CLOCK_MONOTONIC time of the signal; SIGNAL_TIME_PENDING before it; SIGNAL_TIME_INVALID
     * without a descriptor or on error. A descriptor that carries no time counts as signalled when
     * this was first seen.
     */
    virtual nsecs_t getSignalTime() const;

    enum class Status { Invalid, Signaled, Unsignaled };

    /** Signaled also without a descriptor; Invalid when the descriptor is in error. */
    virtual Status getStatus();

  private:
    friend class LightRefBase<Fence>;
    virtual ~Fence() = default;

    base::unique_fd mFenceFd;
    mutable std::atomic<nsecs_t> mSeenSignalledAt{SIGNAL_TIME_PENDING};
};

}  // namespace android
