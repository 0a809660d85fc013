// SPDX-License-Identifier: Apache-2.0
// The surface that the camera renders into: its frame source, and its place with the service.
#pragma once

#include <functional>
#include <mutex>

#include <android-base/thread_annotations.h>
#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>
#include <utils/StrongPointer.h>

#include "uvc/KorBufferSource.h"
#include "uvc/ServiceStats.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * The frame source to which frames come back, if there is one, and its producer, which the service
 * has under kind 4. Both change together: a surface that has been withdrawn isn't posted.
 *
 * A source that is returned has no other owner here. It ends with its last reference, and its end
 * calls its camera: so don't drop it under a lock that the camera's answer may need.
 *
 * Thread-safe. Its lock is the inner one of it and the controller's device lock, and is held while
 * the service is told: inside it only the service's own lock is taken, never a frame source's.
 */
class CameraSurface {
  public:
    /** What is wrong with posting the surface, or null; `isCurrent` unless it was withdrawn. */
    using Refuse = std::function<const char*(bool isCurrent)>;

    /** @param stats is told when there is no surface; outlives the object */
    explicit CameraSurface(ServiceStats& stats) : mStats(stats) {}

    /** Null without a surface. */
    ::android::sp<::android::KorBufferSource> source() const EXCLUDES(mLock);

    /** Makes this the source, not posted yet. Returns the one that it replaces, or null. */
    ::android::sp<::android::KorBufferSource> replace(
            const ::android::sp<::android::KorBufferSource>& source) EXCLUDES(mLock);

    /**
     * Posts the source's producer. There is no surface any more if that is refused.
     *
     * @param desktop null without a service, which leaves it unposted
     * @param refuse called under the lock: what stops the stream after that finds the surface here
     * @return null, or what was wrong
     */
    [[nodiscard]] const char* publish(const ::android::sp<ICameraDesktop>& desktop,
                                      const ::android::sp<::android::KorBufferSource>& source,
                                      const Refuse& refuse) EXCLUDES(mLock);

    /** Takes the producer back from the service. Returns the source, or null. */
    ::android::sp<::android::KorBufferSource> withdraw(const ::android::sp<ICameraDesktop>& desktop)
            EXCLUDES(mLock);

  private:
    ServiceStats& mStats;
    mutable std::mutex mLock;
    ::android::sp<::android::KorBufferSource> mSource GUARDED_BY(mLock);
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
