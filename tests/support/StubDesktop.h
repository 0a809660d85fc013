// SPDX-License-Identifier: Apache-2.0
// The simplest implementations of the service's interfaces, for tests of the HIDL runtime.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include <hidl/HidlSupport.h>
#include <hidl/Status.h>
#include <korvane/hardware/camera/desktop/2.0/ICameraDesktop.h>

namespace korvane::test {

namespace desktop_v1 = ::korvane::hardware::camera::desktop::V1_0;
namespace desktop_v2 = ::korvane::hardware::camera::desktop::V2_0;

/** A client whose replies come from the test. */
class StubCallback : public desktop_v1::ICameraDesktopCallback {
  public:
    using Answer = std::function<std::string(const std::string& command)>;

    explicit StubCallback(Answer answer) : mAnswer(std::move(answer)) {}

    ::android::hardware::Return<void> onCommand(const ::android::hardware::hidl_string& command,
                                                onCommand_cb _hidl_cb) override {
        _hidl_cb(mAnswer(command));
        return ::android::hardware::Void();
    }

  private:
    const Answer mAnswer;
};

/** Keeps what is registered, by kind, and echoes every command. */
class StubDesktop : public desktop_v2::ICameraDesktop {
  public:
    using Callback = ::android::sp<desktop_v1::ICameraDesktopCallback>;
    using SurfaceV1 = ::android::sp<
            ::android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer>;
    using SurfaceV2 = ::android::sp<
            ::android::hardware::graphics::bufferqueue::V2_0::IGraphicBufferProducer>;
    template <typename T>
    using Return = ::android::hardware::Return<T>;
    using hidl_string = ::android::hardware::hidl_string;

    Return<void> registerSyncCallback(desktop_v1::ClientTypes type,
                                      const Callback& callback) override {
        return registerCallback(static_cast<desktop_v2::ClientType>(type), callback);
    }
    Return<void> setOutputSurface(const SurfaceV2& surface) override {
        outputSurface = surface;
        return ::android::hardware::Void();
    }
    Return<SurfaceV2> getOutputSurface() override { return outputSurface; }
    Return<void> setCommands(desktop_v1::ClientTypes type, const hidl_string& command,
                             setCommands_cb _hidl_cb) override {
        return sendCommand(static_cast<desktop_v2::ClientType>(type), command, _hidl_cb);
    }
    Return<void> registerCallback(desktop_v2::ClientType type, const Callback& callback) override {
        callbacks[type] = callback;
        return ::android::hardware::Void();
    }
    Return<void> sendCommand(desktop_v2::ClientType /*type*/, const hidl_string& command,
                             sendCommand_cb _hidl_cb) override {
        _hidl_cb(command);
        return ::android::hardware::Void();
    }
    Return<void> setSurface(desktop_v2::ClientType type, const SurfaceV1& surface) override {
        surfaces[type] = surface;
        return ::android::hardware::Void();
    }
    Return<SurfaceV1> getSurface(desktop_v2::ClientType type) override { return surfaces[type]; }

    std::map<desktop_v2::ClientType, Callback> callbacks;
    std::map<desktop_v2::ClientType, SurfaceV1> surfaces;
    SurfaceV2 outputSurface;
};

}  // namespace korvane::test
