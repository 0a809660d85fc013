// SPDX-License-Identifier: Apache-2.0
// The fixture for testing the service object: one instance, and its calls by plain numbers.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <gui/BufferQueue.h>
#include <gui/bufferqueue/1.0/WGraphicBufferProducer.h>
#include <android/hardware/graphics/bufferqueue/2.0/BpHwGraphicBufferProducer.h>

#include "CameraDesktop.h"
#include "support/LogRecorder.h"
#include "support/RecordingClient.h"
#include "support/ShortWaits.h"

namespace korvane::test {

namespace bufferqueue = ::android::hardware::graphics::bufferqueue;

/** The service with its controller, whose poll thread waits to start and so ends with it. */
class CameraDesktopTest : public testing::Test {
  protected:
    using CameraDesktop = ::korvane::hardware::camera::desktop::V2_0::implementation::CameraDesktop;
    using ClientType = ::korvane::hardware::camera::desktop::V2_0::ClientType;
    using ClientTypes = ::korvane::hardware::camera::desktop::V1_0::ClientTypes;
    using Callback = ::korvane::hardware::camera::desktop::V1_0::ICameraDesktopCallback;
    using OutputSurface = bufferqueue::V2_0::IGraphicBufferProducer;
    using Surface = bufferqueue::V1_0::IGraphicBufferProducer;
    using hidl_string = ::android::hardware::hidl_string;
    template <typename T>
    using Return = ::android::hardware::Return<T>;
    template <typename T>
    using sp = ::android::sp<T>;
    template <typename T>
    using wp = ::android::wp<T>;

    static constexpr char kTag[] = "CameraDesktopHal";

    CameraDesktopTest() {
        mWaits.hold();
        mService = new CameraDesktop();
        mLog.clear();
    }

    template <typename... Args>
    static std::string text(const char* format, Args... args) {
        char buffer[200];
        snprintf(buffer, sizeof(buffer), format, args...);
        return buffer;
    }

    static sp<Surface> makeSurface() {
        sp<::android::IGraphicBufferProducer> producer;
        sp<::android::IGraphicBufferConsumer> consumer;
        ::android::BufferQueue::createBufferQueue(&producer, &consumer, false);
        return new ::android::TWGraphicBufferProducer<Surface>(producer);
    }

    /** A proxy that leads nowhere. */
    static sp<OutputSurface> makeOutputSurface() {
        return new bufferqueue::V2_0::BpHwGraphicBufferProducer(nullptr);
    }

    /** The reply, or nothing if the reply callback was not called. */
    std::optional<std::string> send(int kind, const std::string& command = "command") {
        std::optional<std::string> reply;
        const auto status = mService->sendCommand(static_cast<ClientType>(kind), command,
                                                  [&](const hidl_string& text) {
                                                      EXPECT_FALSE(reply) << "replied twice";
                                                      reply = text;
                                                  });
        EXPECT_TRUE(status.isOk());
        return reply;
    }

    std::optional<std::string> sendSync(int kind, const std::string& command = "command") {
        std::optional<std::string> reply;
        EXPECT_TRUE(mService->setCommands(static_cast<ClientTypes>(kind), command,
                                          [&](const hidl_string& text) { reply = text; })
                            .isOk());
        return reply;
    }

    void registerClient(int kind, const sp<RecordingClient>& client) {
        EXPECT_TRUE(mService->registerCallback(static_cast<ClientType>(kind), client).isOk());
    }

    sp<Surface> surface(int kind) { return mService->getSurface(static_cast<ClientType>(kind)); }

    void setSurface(int kind, const sp<Surface>& surface) {
        EXPECT_TRUE(mService->setSurface(static_cast<ClientType>(kind), surface).isOk());
    }

    ShortWaits mWaits;
    LogRecorder mLog;
    sp<CameraDesktop> mService;
};

}  // namespace korvane::test
