// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "Fence"

#include "ui/Fence.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>

#include <log/log.h>
#include <sync/sync.h>

namespace android {
namespace {

constexpr int kPatienceMs = 3000;

}  // namespace

const sp<Fence> Fence::NO_FENCE = sp<Fence>(new Fence());

status_t Fence::wait(int timeout) {
    if (!isValid()) return NO_ERROR;
    return sync_wait(mFenceFd.get(), timeout) == 0 ? NO_ERROR : -errno;
}

status_t Fence::waitForever(const char* logname) {
    const status_t status = wait(kPatienceMs);
    if (status != -ETIME) return status;
    ALOGE("%s: fence %d has not signalled within %d ms", logname, mFenceFd.get(), kPatienceMs);
    return wait(TIMEOUT_NEVER);
}

sp<Fence> Fence::merge(const char* name, const sp<Fence>& f1, const sp<Fence>& f2) {
    if (!f1->isValid() && !f2->isValid()) return NO_FENCE;
    // A lone descriptor is merged with itself, so that the result is always a new one.
    const int fd1 = f1->isValid() ? f1->get() : f2->get();
    const int fd2 = f2->isValid() ? f2->get() : f1->get();
    const int merged = sync_merge(name, fd1, fd2);
    if (merged == -1) {
        ALOGE("merge: %s of fences %d and %d failed: %s (%d)", name, fd1, fd2, strerror(errno),
              errno);
        return NO_FENCE;
    }
    return sp<Fence>(new Fence(merged));
}

sp<Fence> Fence::merge(const String8& name, const sp<Fence>& f1, const sp<Fence>& f2) {
    return merge(name.c_str(), f1, f2);
}

int Fence::dup() const {
    return fcntl(mFenceFd.get(), F_DUPFD_CLOEXEC, 0);
}

nsecs_t Fence::getSignalTime() const {
    if (!isValid()) return SIGNAL_TIME_INVALID;
    if (sync_wait(mFenceFd.get(), 0) != 0) {
        return errno == ETIME ? SIGNAL_TIME_PENDING : SIGNAL_TIME_INVALID;
    }
    int64_t signalTime;
    if (sync_signal_time(mFenceFd.get(), &signalTime)) return signalTime;
    nsecs_t seenAt = SIGNAL_TIME_PENDING;
    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    return mSeenSignalledAt.compare_exchange_strong(seenAt, now) ? now : seenAt;
}

Fence::Status Fence::getStatus() {
    switch (wait(0)) {
        case NO_ERROR:
            return Status::Signaled;
        case -ETIME:
            return Status::Unsignaled;
        default:
            return Status::Invalid;
    }
}

}  // namespace android
