// SPDX-License-Identifier: Apache-2.0
// The camera's connection to the desktop-camera service.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <gui/IGraphicBufferProducer.h>
#include <hidl/HidlSupport.h>
#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>
#include <utils/StrongPointer.h>

#include "CameraCallback.h"
#include "StreamDemand.h"

namespace korvane::camera {

using hardware::camera::desktop::V2_0::ClientType;
using hardware::camera::desktop::V2_0::ICameraDesktop;

/**
 * Finds the service, registers the camera under its kinds and tells the demand when the service
 * dies. Every call to the service is made on the one thread that uses the connection.
 */
class ServiceConnection {
  public:
    /** `demand` and `status` must live as long as the process. */
    ServiceConnection(StreamDemand& demand, const CameraStatus& status,
                      std::vector<ClientType> kinds);

    /**
     * Connects to the service, replacing a connection to one that has died, and waits until there
     * is one. False if the program is to end first.
     */
    bool connect();

    /** Sends a command to the webcam controller; nothing if the service can't be reached. */
    std::optional<std::string> command(const std::string& text);

    /** The surface that the controller has posted; null if there is none. */
    ::android::sp<::android::IGraphicBufferProducer> surface();

  private:
    class DeathListener;

    bool registerWith(const ::android::sp<ICameraDesktop>& service);

    StreamDemand& mDemand;
    const std::vector<ClientType> mKinds;
    const ::android::sp<CameraCallback> mCallback;
    const ::android::sp<::android::hardware::hidl_death_recipient> mDeathListener;
    ::android::sp<ICameraDesktop> mService;
};

}  // namespace korvane::camera
