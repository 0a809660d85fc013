// SPDX-License-Identifier: Apache-2.0
// Where the service delivers the controller's commands.
#pragma once

#include <korvane/hardware/camera/desktop/1.0/ICameraDesktopCallback.h>

#include "CameraStatus.h"
#include "StreamDemand.h"

namespace korvane::camera {

/**
 * The camera's callback. The controller waits for the answer on the thread that serves the gadget,
 * so all that happens here is to note what is wanted. Called on the HIDL thread.
 */
class CameraCallback : public hardware::camera::desktop::V1_0::ICameraDesktopCallback {
  public:
    /** The answer to a start: any text means that this client takes charge of the camera. */
    static constexpr char kTaken[] = "OK_CAMERA";

    /** Both must live as long as the service may call, which is as long as the process. */
    CameraCallback(StreamDemand& demand, const CameraStatus& status)
        : mDemand(demand), mStatus(status) {}

    /** Answers kTaken to a start and the status to a request for it; otherwise an empty text. */
    ::android::hardware::Return<void> onCommand(const ::android::hardware::hidl_string& command,
                                                onCommand_cb reply) override;

  private:
    StreamDemand& mDemand;
    const CameraStatus& mStatus;
};

}  // namespace korvane::camera
