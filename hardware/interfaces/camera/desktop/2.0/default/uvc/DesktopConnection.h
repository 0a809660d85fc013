// SPDX-License-Identifier: Apache-2.0
// The webcam controller's connection to the desktop-camera service.
#pragma once

#include <mutex>

#include <android-base/thread_annotations.h>
#include <korvane/hardware/camera/desktop/1.0/ICameraDesktopCallback.h>
#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>
#include <utils/StrongPointer.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Finds the service "default" and registers the controller with it, under kind 4. A service that
 * has been found is kept for good, whatever becomes of it.
 *
 * Thread-safe. Its lock is held while the service is looked up and registered with: inside it only
 * the service's own lock and that of ClientEvents are taken.
 */
class DesktopConnection {
  public:
    /** @param callback takes the commands that clients send to the controller */
    explicit DesktopConnection(const ::android::sp<V1_0::ICameraDesktopCallback>& callback)
        : mCallback(callback) {}

    /** Looks for the service unless it has been found before. False while there is none. */
    [[nodiscard]] bool connect() EXCLUDES(mLock);

    /** The service; null until it has been found. */
    ::android::sp<ICameraDesktop> service() const EXCLUDES(mLock);

  private:
    const ::android::sp<V1_0::ICameraDesktopCallback> mCallback;
    mutable std::mutex mLock;
    ::android::sp<ICameraDesktop> mService GUARDED_BY(mLock);
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
