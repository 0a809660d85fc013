// SPDX-License-Identifier: Apache-2.0
// A controller owned by the test, next to a service that only records what it is asked.
#pragma once

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/DaemonWorld.h"
#include "support/KeepForGood.h"
#include "support/StubDesktop.h"
#include "uvc/UvcGadgetHandler.h"

namespace korvane::test {

using ::korvane::hardware::camera::desktop::V2_0::implementation::UvcBufInfo;
using ::korvane::hardware::camera::desktop::V2_0::implementation::UvcGadgetHandler;

/** Records what the controller asks of the service; a test may act from inside. Thread-safe. */
class RecordingDesktop : public StubDesktop {
  public:
    Return<void> registerCallback(desktop_v2::ClientType type, const Callback& callback) override {
        note("callback " + std::to_string(static_cast<int>(type)));
        return StubDesktop::registerCallback(type, callback);
    }
    Return<void> sendCommand(desktop_v2::ClientType type, const hidl_string& command,
                             sendCommand_cb reply) override {
        note("told " + std::to_string(static_cast<int>(type)) + ": " + std::string(command));
        if (onCommand) onCommand();
        reply("done");
        return ::android::hardware::Void();
    }
    Return<void> setSurface(desktop_v2::ClientType type, const SurfaceV1& surface) override {
        note((surface == nullptr ? "no surface " : "surface ") +
             std::to_string(static_cast<int>(type)));
        if (onSurface) onSurface(surface);
        return Return<void>(surfaceStatus);
    }

    /** "callback KIND", "told KIND: TEXT", "surface KIND", "no surface KIND", oldest first. */
    std::vector<std::string> calls() {
        std::lock_guard<std::mutex> guard(mLock);
        return mCalls;
    }
    /** Waits for one of these entries; false after ten seconds. */
    bool waitFor(const std::string& call) {
        std::unique_lock<std::mutex> guard(mLock);
        return mNoted.wait_for(guard, std::chrono::seconds(10), [&] {
            return std::find(mCalls.begin(), mCalls.end(), call) != mCalls.end();
        });
    }
    void clear() {
        std::lock_guard<std::mutex> guard(mLock);
        mCalls.clear();
    }

    // Set before they can be needed.
    std::function<void()> onCommand;
    std::function<void(const SurfaceV1&)> onSurface;
    ::android::hardware::Status surfaceStatus;

  private:
    void note(const std::string& call) {
        std::lock_guard<std::mutex> guard(mLock);
        mCalls.push_back(call);
        mNoted.notify_all();
    }

    std::mutex mLock;
    std::condition_variable mNoted;
    std::vector<std::string> mCalls;
};

/**
 * Creates controllers whose interfaces the test calls itself, as the frame source and the device
 * do. Each is never destroyed, as in the daemon; its poll thread ends with the test.
 */
class ControllerTest : public testing::Test {
  protected:
    static constexpr char kPosted[] = "surface 4";
    static constexpr char kCleared[] = "no surface 4";
    inline static const std::string kToldStart = std::string("told 3: ") + DaemonWorld::kStart;
    inline static const std::string kToldStop = std::string("told 3: ") + DaemonWorld::kStop;
    static constexpr char kCreate[] =
            R"({"create-surface":{"width":640,"height":480,"consumer-usage":3,)"
            R"("v4l2-format":"NV12","fps":30}})";

    void SetUp() override {
        if (!mWorld.available()) GTEST_SKIP() << mWorld.whyNot();
    }
    ~ControllerTest() override {
        if (mHandler == nullptr) return;
        mWorld.node.fail("select", EINTR);
        mWorld.waitLog(ANDROID_LOG_ERROR, "select failed");
    }

    template <typename Handler = UvcGadgetHandler>
    ::android::sp<Handler> makeHandler() {
        const ::android::sp<Handler> handler = keepForGood(::android::sp<Handler>(new Handler()));
        mHandler = handler;
        return handler;
    }

    /** A controller that knows the service but has no device. */
    template <typename Handler = UvcGadgetHandler>
    ::android::sp<Handler> startWithoutDevice() {
        mWorld.node.setDriver("uvcvideo");
        mWorld.services.provide("default", mDesktop);
        const ::android::sp<Handler> handler = makeHandler<Handler>();
        EXPECT_TRUE(mDesktop->waitFor("callback 4"));
        EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_QUERYCAP", 1));  // connecting is done
        mDesktop->clear();
        return handler;
    }

    /** A controller whose device is open. */
    void startWithDevice() {
        mWorld.services.provide("default", mDesktop);
        makeHandler();
        ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 1));
        mDesktop->clear();
    }

    /** A controller whose device is streaming. */
    void stream() {
        startWithDevice();
        mWorld.node.sendEvent(UVC_EVENT_STREAMON);
        ASSERT_TRUE(mDesktop->waitFor(kToldStart));
        mDesktop->clear();
        mWorld.log.clear();
    }

    std::vector<v4l2_buffer> queued() {
        std::vector<v4l2_buffer> buffers;
        for (const KernelCall& call : mWorld.node.calls("VIDIOC_QBUF")) {
            buffers.push_back(call.as<v4l2_buffer>());
        }
        return buffers;
    }

    LogLine error(const std::string& message) {
        return {ANDROID_LOG_ERROR, DaemonWorld::kTag, message};
    }

    DaemonWorld mWorld;
    ::android::sp<RecordingDesktop> mDesktop = new RecordingDesktop();
    ::android::sp<UvcGadgetHandler> mHandler;
};

}  // namespace korvane::test
