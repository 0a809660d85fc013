// SPDX-License-Identifier: Apache-2.0
// The controller as the frame source and the device call it: frames in, frames back.

#include <cerrno>
#include <string>
#include <tuple>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "support/ControllerTest.h"
#include "support/DescriptorZero.h"
#include "support/UvcFrames.h"

namespace korvane::test {
namespace {

using ::android::OK;
using ::android::sp;
using ::korvane::hardware::camera::desktop::V2_0::implementation::Count;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int32_t kUnknownError = INT32_MIN;

class UvcGadgetSurfaceFramesTest : public ControllerTest {};

// The fence of a frame. Whether it was closed shows at its other end: its number may long be
// another descriptor's.
class WatchedFence {
  public:
    WatchedFence() { EXPECT_EQ(0, pipe2(mEnds, O_CLOEXEC)); }
    ~WatchedFence() { close(mEnds[0]); }
    WatchedFence(const WatchedFence&) = delete;
    WatchedFence& operator=(const WatchedFence&) = delete;

    /** Whoever gets it has to close it. */
    int fd() const { return mEnds[1]; }
    bool isOpen() const {
        pollfd end = {mEnds[0], POLLIN, 0};
        return poll(&end, 1, 0) == 0;
    }

  private:
    int mEnds[2] = {-1, -1};
};

// --- A frame without a device ---

TEST_F(UvcGadgetSurfaceFramesTest, AFrameWithoutADeviceEndsTheStream) {
    startWithoutDevice();
    const WatchedFence fence;
    mWorld.log.clear();
    EXPECT_EQ(kUnknownError, mHandler->submitBuffer(0, makePicture(64, 32), 0, fence.fd()));
    EXPECT_THAT(mDesktop->calls(), ElementsAre(kCleared, kToldStop));
    EXPECT_THAT(mWorld.log.lines(DaemonWorld::kTag),
                ElementsAre(error("No video device is setup for webcam mode")));
    EXPECT_FALSE(fence.isOpen());
    EXPECT_EQ(1u, mHandler->stats().total(Count::DROPPED_NO_STREAM));
}

TEST_F(UvcGadgetSurfaceFramesTest, AFenceOfDescriptorZeroIsClosedLikeAnyOther) {
    const auto duplicate = [](const WatchedFence& fence) {
        const int lowest = dup(fence.fd());
        close(fence.fd());
        return lowest;
    };
    startWithoutDevice();
    mWorld.node.waitUntilIdle();  // the poll thread has all its descriptors
    const auto picture = makePicture(64, 32);
    const WatchedFence refused;
    const WatchedFence returned;
    const DescriptorZero zero;
    ASSERT_EQ(0, duplicate(refused));
    EXPECT_NE(OK, mHandler->submitBuffer(0, picture, 0, 0));
    EXPECT_FALSE(refused.isOpen());

    ASSERT_EQ(0, duplicate(returned));
    UvcBufInfo info;
    info.fenceFd = 0;
    mHandler->onFrameEmptied(&info);
    EXPECT_FALSE(returned.isOpen());
}

TEST_F(UvcGadgetSurfaceFramesTest, AFrameWithoutADeviceCallsWhateverStopTheControllerHas) {
    struct OwnStop : public UvcGadgetHandler {
        void onStreamStop() override { ++stops; }
        int stops = 0;
    };
    const sp<OwnStop> handler = startWithoutDevice<OwnStop>();
    EXPECT_EQ(kUnknownError, handler->submitBuffer(0, makePicture(64, 32), 0, -1));
    EXPECT_EQ(1, handler->stops);
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
}

TEST_F(UvcGadgetSurfaceFramesTest, TheClientMayAskBackFromWithinTheStopOfAFrameWithoutADevice) {
    startWithoutDevice();
    std::string reply;
    mDesktop->onCommand = [&] { reply = mHandler->handleCommand(R"({"get-stream-config":1})"); };
    EXPECT_NE(OK, mHandler->submitBuffer(0, makePicture(64, 32), 0, -1));
    EXPECT_EQ("no v4l2 control", reply);
}

// --- A frame for the device ---

TEST_F(UvcGadgetSurfaceFramesTest, AFrameGoesIntoTheBufferOfItsId) {
    stream();
    for (int slot : {2, 0, 3, 1}) {
        EXPECT_EQ(OK, mHandler->submitBuffer(slot, makePicture(64, 32), 0, -1));
        EXPECT_EQ(static_cast<uint32_t>(slot), queued().back().index);
    }
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
    EXPECT_THAT(mWorld.log.lines(DaemonWorld::kTag), IsEmpty());
}

TEST_F(UvcGadgetSurfaceFramesTest, ATimeIsSplitIntoSecondsAndMicroseconds) {
    stream();
    mWorld.node.setAutoSend(true);
    for (const auto& [time, seconds, micros] : {std::tuple{int64_t{0}, 0L, 0L},
                                                {999999, 0, 999999},
                                                {1000000, 1, 0},
                                                {1234567890123, 1234567, 890123},
                                                {INT64_MAX, 9223372036854, 775807},
                                                {-1500000, -1, -500000}}) {
        EXPECT_EQ(OK, mHandler->submitBuffer(0, makePicture(64, 32), time, -1));
        EXPECT_EQ(seconds, queued().back().timestamp.tv_sec) << time;
        EXPECT_EQ(micros, queued().back().timestamp.tv_usec) << time;
        mWorld.node.waitUntilIdle();  // the buffer is free again
    }
}

TEST_F(UvcGadgetSurfaceFramesTest, AQueuedFramesFenceIsKept) {
    stream();
    const WatchedFence fence;
    EXPECT_EQ(OK, mHandler->submitBuffer(0, makePicture(64, 32), 0, fence.fd()));
    EXPECT_TRUE(fence.isOpen());
}

TEST_F(UvcGadgetSurfaceFramesTest, AFrameThatTheDriverRefusesIsAnErrorAndNoMore) {
    stream();
    const WatchedFence fence;
    mWorld.node.fail("VIDIOC_QBUF", EIO);
    EXPECT_EQ(kUnknownError, mHandler->submitBuffer(0, makePicture(64, 32), 0, fence.fd()));
    EXPECT_FALSE(fence.isOpen());
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
    EXPECT_THAT(mWorld.log.lines(DaemonWorld::kTag), IsEmpty());
    EXPECT_EQ(OK, mHandler->submitBuffer(0, makePicture(64, 32), 0, -1));
}

TEST_F(UvcGadgetSurfaceFramesTest, AFrameThatTheDeviceDropsIsAnErrorToo) {
    stream();
    const WatchedFence fence;
    const uint32_t capacity = 1280 * 720 * 2 + 1;
    EXPECT_EQ(kUnknownError, mHandler->submitBuffer(0, makeBlob(capacity), 0, fence.fd()));
    EXPECT_FALSE(fence.isOpen());
    EXPECT_THAT(queued(), IsEmpty());
}

TEST_F(UvcGadgetSurfaceFramesTest, AFrameForAnIdleDeviceIsAnErrorAndStopsNothing) {
    startWithDevice();
    EXPECT_EQ(kUnknownError, mHandler->submitBuffer(0, makePicture(64, 32), 0, -1));
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_WARN, "UVC-V4l2Ctrl", "Not streaming, quit early"));
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
}

TEST_F(UvcGadgetSurfaceFramesTest, EndsOfStreamAndDataSpacesAreIgnored) {
    stream();
    mWorld.node.clearCalls();
    EXPECT_EQ(OK, mHandler->submitEos(0));
    mHandler->dispatchDataSpaceChanged(1, 2, 3);
    EXPECT_THAT(mWorld.node.calls(), IsEmpty());
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
    EXPECT_THAT(mWorld.log.lines(), IsEmpty());
}

// --- A frame that came back ---

TEST_F(UvcGadgetSurfaceFramesTest, AFrameThatComesBackGoesToTheSourceByItsIndex) {
    stream();
    ASSERT_EQ("", mHandler->handleCommand(kCreate));
    const WatchedFence fence;
    UvcBufInfo info;
    info.index = 9;
    info.fenceFd = fence.fd();
    mHandler->onFrameEmptied(&info);
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_ERROR, "KorBufferSource",
                               "onInputBufferEmptied: buffer not recognized (bufferId=9)"));
    EXPECT_FALSE(fence.isOpen());
}

TEST_F(UvcGadgetSurfaceFramesTest, ASourceThatCouldNotBeConfiguredStaysInPlace) {
    stream();
    EXPECT_EQ("not configured",
              mHandler->handleCommand(R"({"create-surface":{"width":640,"height":480,)"
                                      R"("consumer-usage":3,"v4l2-format":"YUYV","fps":30}})"));
    UvcBufInfo info;
    mHandler->onFrameEmptied(&info);
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_ERROR, "KorBufferSource",
                               "onInputBufferEmptied: buffer not recognized (bufferId=0)"));
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
}

TEST_F(UvcGadgetSurfaceFramesTest, AFrameThatComesBackToNoSourceOnlyLosesItsFence) {
    startWithoutDevice();
    mWorld.log.clear();
    const WatchedFence fence;
    UvcBufInfo info;
    info.fenceFd = fence.fd();
    mHandler->onFrameEmptied(&info);
    EXPECT_FALSE(fence.isOpen());
    info.fenceFd = -1;
    mHandler->onFrameEmptied(&info);
    EXPECT_THAT(mWorld.log.lines(DaemonWorld::kTag), IsEmpty());
    EXPECT_THAT(mDesktop->calls(), IsEmpty());
}

}  // namespace
}  // namespace korvane::test
