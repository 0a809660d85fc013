// SPDX-License-Identifier: Apache-2.0
// The webcam controller as a client of the desktop-camera service.
#pragma once

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <korvane/hardware/camera/desktop/1.0/ICameraDesktopCallback.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

class UvcGadgetHandler;

/**
 * Hands the commands that clients send to the controller's kind on to the controller.
 *
 * The handler owns this object and must outlive it; it is held here by a plain pointer.
 */
class CamDesktopCallback : public V1_0::ICameraDesktopCallback {
  public:
    explicit CamDesktopCallback(UvcGadgetHandler* handler) : mHandler(handler) {}

    /** Calls `reply` once, with the controller's answer. Runs on the sender's thread. */
    ::android::hardware::Return<void> onCommand(const ::android::hardware::hidl_string& command,
                                                onCommand_cb reply) override;

  private:
    UvcGadgetHandler* const mHandler;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
