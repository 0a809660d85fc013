// SPDX-License-Identifier: Apache-2.0
// The fixture for testing the UVC device: a function in configfs, a scripted node, a listener.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <linux/usb/g_uvc.h>

#include <gtest/gtest.h>

#include "support/LogRecorder.h"
#include "support/PrivateFiles.h"
#include "support/ScriptedKernel.h"
#include "support/UvcFunctionTree.h"
#include "uvc/UvcV4l2Ctrl.h"

namespace korvane::test {

using ::korvane::hardware::camera::desktop::V2_0::implementation::PollableDev;
using ::korvane::hardware::camera::desktop::V2_0::implementation::ServiceStats;
using ::korvane::hardware::camera::desktop::V2_0::implementation::UvcBufInfo;
using ::korvane::hardware::camera::desktop::V2_0::implementation::UvcV4l2Ctrl;

/** Keeps what the device reports; a test may also act from inside. */
class RecordingUvcListener : public UvcV4l2Ctrl::EventListener {
  public:
    void onFrameEmptied(UvcBufInfo* buf) override {
        emptied.push_back(*buf);
        note("emptied", [&] {
            if (onEmptied) onEmptied(buf);
        });
    }
    void onStreamStart() override {
        note("start", [&] {
            if (onStart) onStart();
        });
    }
    void onStreamStop() override {
        note("stop", [&] {
            if (onStop) onStop();
        });
    }

    std::vector<std::string> events;
    /** Copies of the records as the listener got them. They hold on to their frames. */
    std::vector<UvcBufInfo> emptied;
    std::function<void(UvcBufInfo*)> onEmptied;
    std::function<void()> onStart;
    std::function<void()> onStop;

  private:
    void note(const std::string& event, const std::function<void()>& act) {
        events.push_back(event);
        act();
    }
};

/**
 * A device on a scripted node. The function has an uncompressed format and MJPEG, each with 640x480
 * (frame 1) and 1280x720 (frame 2), at intervals of 333333 and 666666.
 */
class UvcDeviceTest : public testing::Test {
  protected:
    static constexpr char kPath[] = "/dev/video7";
    static constexpr char kTag[] = "UVC-V4l2Ctrl";
    static constexpr int kUncompressed = 1;
    static constexpr int kMjpeg = 2;
    static constexpr int kSmallFrame = 1;
    static constexpr int kLargeFrame = 2;
    static constexpr uint8_t kProbe = 1;
    static constexpr uint8_t kCommit = 2;

    /** What a running stream asks of the kernel when it ends. */
    inline static const std::vector<std::string> kStopCalls{
            "VIDIOC_STREAMOFF", "munmap", "munmap", "munmap", "munmap", "VIDIOC_REQBUFS"};

    static LogLine error(const std::string& text) { return {ANDROID_LOG_ERROR, kTag, text}; }
    static LogLine warning(const std::string& text) { return {ANDROID_LOG_WARN, kTag, text}; }

    void SetUp() override {
        if (!mFiles.available()) GTEST_SKIP() << mFiles.whyNot();
        makeDevice("YUY2");
    }

    /** Recreates the device, over a function whose uncompressed format has this code. */
    void makeDevice(const std::string& code, const std::string& bcdUvc = "272\n") {
        mCtrl.reset();
        UvcFunctionTree function(mFiles);
        function.set("control/header/h/bcdUVC", bcdUvc);
        function.addUncompressed(code);
        function.addMjpeg();
        for (const char* format : {UvcFunctionTree::kUncompressed, UvcFunctionTree::kMjpeg}) {
            function.addFrame(format, "480p", 640, 480);
            function.addFrame(format, "720p", 1280, 720);
        }
        mCtrl = std::make_unique<UvcV4l2Ctrl>(kPath, mStats);
        mCtrl->setEventListener(&mListener);
    }

    int exception() { return mCtrl->handlePendingData(PollableDev::DATA_EXCEPTION); }
    int writable() { return mCtrl->handlePendingData(PollableDev::DATA_WRITABLE); }

    /** The driver returns a buffer, whether it was queued or not; the device's result. */
    int giveBack(uint32_t index) {
        mKernel.answerNext("VIDIOC_DQBUF", [index](void* block) {
            static_cast<v4l2_buffer*>(block)->index = index;
            return 0;
        });
        return writable();
    }

    void event(uint32_t type) {
        mKernel.sendEvent(type);
        EXPECT_EQ(0, exception());
    }

    /** Makes the host send a request; returns the device's response. */
    uvc_request_data request(uint8_t type, uint8_t request, uint16_t value, uint16_t index) {
        const size_t before = mKernel.responses().size();
        mKernel.sendSetup(type, request, value, index, 34);
        EXPECT_EQ(0, exception());
        const std::vector<uvc_request_data> responses = mKernel.responses();
        EXPECT_EQ(before + 1, responses.size());
        return responses.empty() ? uvc_request_data{} : responses.back();
    }

    /** SET_CUR of probe or commit with its data stage. */
    void select(uint8_t selector, int format, int frame, uint32_t interval = 333333) {
        request(0x21, 0x01, selector << 8, 1);
        std::vector<uint8_t> block(34, 0);
        block[2] = static_cast<uint8_t>(format);
        block[3] = static_cast<uint8_t>(frame);
        for (int i = 0; i < 4; ++i) block[4 + i] = static_cast<uint8_t>(interval >> 8 * i);
        mKernel.sendData(block);
        EXPECT_EQ(0, exception());
    }

    /** Opens the device, commits a mode and starts the stream, with buffers of that length. */
    void stream(int format, int frame, uint32_t bufferLength) {
        ASSERT_EQ(0, mCtrl->open());
        select(kCommit, format, frame);
        mKernel.setBufferLength(bufferLength);
        event(UVC_EVENT_STREAMON);
        ASSERT_TRUE(mCtrl->isStreaming());
        mKernel.clearCalls();
        mLog.clear();
        mListener.events.clear();
    }

    PrivateFiles mFiles;
    LogRecorder mLog;
    ScriptedKernel mKernel{kPath};
    RecordingUvcListener mListener;
    ServiceStats mStats;
    std::unique_ptr<UvcV4l2Ctrl> mCtrl;
};

}  // namespace korvane::test
