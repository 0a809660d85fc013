// SPDX-License-Identifier: Apache-2.0
// The controller's life, and its reactions to the node and to the cable.

#include "uvc/UvcGadgetHandler.h"

#include <atomic>
#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/DaemonWorld.h"

using ::korvane::hardware::camera::desktop::V2_0::implementation::UvcV4l2Ctrl;

namespace {

// What closing a device answers when it has been closed.
std::atomic<int> sCloseResult{0};
// Whether those get no memory who can do without.
std::atomic<bool> sNoMemory{false};

}  // namespace

// The linker sends the controller's calls of UvcV4l2Ctrl::close here (--wrap).
int realClose(UvcV4l2Ctrl* device) __asm__("__real_" CLOSE_DEVICE);
int wrappedClose(UvcV4l2Ctrl* device) __asm__("__wrap_" CLOSE_DEVICE);

int wrappedClose(UvcV4l2Ctrl* device) {
    const int result = realClose(device);
    return sCloseResult != 0 ? sCloseResult.load() : result;
}

void* operator new(size_t size, const std::nothrow_t& /* tag */) noexcept {
    return sNoMemory ? nullptr : ::operator new(size);
}

namespace korvane::test {
namespace {

using ::android::sp;

class UvcGadgetHandlerTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mWorld.available()) GTEST_SKIP() << mWorld.whyNot();
        sCloseResult = 0;
    }

    bool waitDebug(const std::string& message) {
        return mWorld.waitLog(ANDROID_LOG_DEBUG, message);
    }
    bool waitError(const std::string& message) {
        return mWorld.waitLog(ANDROID_LOG_ERROR, message);
    }

    DaemonWorld mWorld;
};

TEST_F(UvcGadgetHandlerTest, OpensANodeThatIsThereAtStart) {
    mWorld.start();
    EXPECT_TRUE(waitDebug("added device: /dev/video0"));
    EXPECT_EQ(mWorld.node.openDescriptors(), 1u);
}

TEST_F(UvcGadgetHandlerTest, OpensANodeThatComesLater) {
    mWorld.node.setDriver("uvcvideo");
    mWorld.create();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QUERYCAP", 1));
    // After a gap, where the scan at the start does not get to.
    ScriptedKernel later("/dev/video5");
    mWorld.raiseAdd("video5");
    EXPECT_TRUE(waitDebug("added device: /dev/video5"));
    EXPECT_TRUE(later.waitForCalls("VIDIOC_S_FMT", 1));
    mWorld.raiseRemove("video5");
    EXPECT_TRUE(waitDebug("removed device: video5"));
    EXPECT_TRUE(later.waitForCalls("close", 2));
    EXPECT_EQ(later.openDescriptors(), 0u);
}

TEST_F(UvcGadgetHandlerTest, RefusesASecondNodeAndKeepsTheFirst) {
    mWorld.start();
    ScriptedKernel second("/dev/video1");
    mWorld.raiseAdd("video1");
    EXPECT_TRUE(mWorld.waitLog(ANDROID_LOG_WARN, "uvc v4l2 already exists"));
    EXPECT_TRUE(waitError("hot plug ctrl handle data failed"));
    EXPECT_EQ(second.openDescriptors(), 0u);
    EXPECT_EQ(mWorld.node.openDescriptors(), 1u);
}

TEST_F(UvcGadgetHandlerTest, KeepsADeviceThatCannotBeOpenedUntilANodeIsRemoved) {
    // Once to look at the driver, once to keep.
    mWorld.node.fail("open", EACCES, 1);
    mWorld.create();
    ASSERT_TRUE(waitError("failed to open uvc v4l2"));
    mWorld.raiseAdd();
    EXPECT_TRUE(mWorld.waitLog(ANDROID_LOG_WARN, "uvc v4l2 already exists"));
    mWorld.raiseRemove();
    mWorld.raiseAdd();
    EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 1));
}

TEST_F(UvcGadgetHandlerTest, TheRemovalOfAnyVideoNodeClosesTheDevice) {
    mWorld.start();
    mWorld.raiseRemove("video7");
    EXPECT_TRUE(waitDebug("removed device: video7"));
    EXPECT_TRUE(mWorld.node.waitForCalls("close", 2));
    EXPECT_EQ(mWorld.node.openDescriptors(), 0u);
}

TEST_F(UvcGadgetHandlerTest, ARemovalEndsTheStreamAndTellsTheCameraOnce) {
    mWorld.start();
    mWorld.startStream();
    mWorld.raiseRemove();
    EXPECT_TRUE(mWorld.node.waitForCalls("close", 2));
    const std::vector<std::string> expected{DaemonWorld::kStart, DaemonWorld::kStop};
    EXPECT_EQ(mWorld.streamClient->commands(), expected);
    EXPECT_EQ(mWorld.node.openMappings(), 0u);
    EXPECT_EQ(mWorld.node.openDescriptors(), 0u);
}

TEST_F(UvcGadgetHandlerTest, ADisconnectedCableEndsTheStreamAndClosesTheDevice) {
    mWorld.start();
    mWorld.startStream();
    mWorld.raiseDisconnected();
    EXPECT_TRUE(waitDebug("Usb disconnected, close out v4l2"));
    EXPECT_TRUE(mWorld.node.waitForCalls("close", 2));
    EXPECT_TRUE(mWorld.streamClient->waitFor(DaemonWorld::kStop));
    EXPECT_EQ(mWorld.node.openDescriptors(), 0u);
    mWorld.settle();
    EXPECT_EQ(mWorld.command(R"({"get-stream-config":1})"), "no v4l2 control");
    for (const char* failure : {"Unable to handle close", "hot plug ctrl handle data failed",
                                "uvc ctrl handle data failed"}) {
        EXPECT_FALSE(mWorld.log.has(ANDROID_LOG_ERROR, DaemonWorld::kTag, failure));
    }
}

TEST_F(UvcGadgetHandlerTest, ADisconnectedCableLeavesAnIdleDeviceOpen) {
    mWorld.start();
    mWorld.raiseDisconnected();
    mWorld.startStream();  // handled after the event, on the same thread
    EXPECT_EQ(mWorld.node.openDescriptors(), 1u);
    EXPECT_FALSE(mWorld.log.has(ANDROID_LOG_DEBUG, DaemonWorld::kTag,
                                "Usb disconnected, close out v4l2"));
}

TEST_F(UvcGadgetHandlerTest, AfterARemovalTheNextNodeStreamsAgain) {
    mWorld.start();
    mWorld.startStream();
    mWorld.raiseRemove();
    ASSERT_TRUE(mWorld.node.waitForCalls("close", 2));
    mWorld.raiseAdd();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 2));
    mWorld.startStream();
    EXPECT_TRUE(mWorld.node.isStreaming());
}

TEST_F(UvcGadgetHandlerTest, ANodeThatVanishesWhileItIsWrittenIsRemoved) {
    mWorld.start();
    mWorld.startStream();
    mWorld.node.fail("VIDIOC_DQBUF", ENODEV, 0, 100);
    mWorld.node.remove();
    EXPECT_TRUE(waitError("UVC device is no longer present"));
    EXPECT_TRUE(waitDebug("removed device: /dev/video0"));
    EXPECT_TRUE(mWorld.streamClient->waitFor(DaemonWorld::kStop));
}

TEST_F(UvcGadgetHandlerTest, AHostThatDisconnectsLeavesTheNodeClosedButKnown) {
    mWorld.start();
    mWorld.startStream();
    mWorld.node.sendEvent(UVC_EVENT_DISCONNECT);
    ASSERT_TRUE(mWorld.streamClient->waitFor(DaemonWorld::kStop));
    ASSERT_TRUE(mWorld.node.waitForCalls("close", 2));
    mWorld.raiseAdd();
    EXPECT_TRUE(mWorld.waitLog(ANDROID_LOG_WARN, "uvc v4l2 already exists"));
    mWorld.raiseRemove();
    mWorld.raiseAdd();
    EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 2));
}

TEST_F(UvcGadgetHandlerTest, DeletesADeviceThatWasRemovedWhateverClosingItSays) {
    mWorld.start();
    sCloseResult = -EIO;
    mWorld.raiseRemove();
    EXPECT_TRUE(waitError("Unable to handle close for video0"));
    mWorld.raiseAdd();
    EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 2));
    EXPECT_EQ(mWorld.node.openDescriptors(), 1u);
}

TEST_F(UvcGadgetHandlerTest, DeletesADisconnectedDeviceWhateverClosingItSays) {
    mWorld.start();
    mWorld.startStream();
    sCloseResult = -EIO;
    mWorld.raiseDisconnected();
    EXPECT_TRUE(waitError("Unable to handle close"));
    mWorld.raiseAdd();
    EXPECT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 2));
    EXPECT_EQ(mWorld.node.openDescriptors(), 1u);
}

// While its poll thread waits to begin, a controller is this thread's alone.
class UvcGadgetReactionsTest : public UvcGadgetHandlerTest {
  protected:
    void SetUp() override {
        UvcGadgetHandlerTest::SetUp();
        mWorld.waits.hold();
        mHandler = new DaemonWorld::Controller();
    }

    bool isStillThere() { return mHandler->onUvcV4l2Added("/dev/video0") == -12; }

    sp<DaemonWorld::Controller> mHandler;
};

TEST_F(UvcGadgetReactionsTest, ReportsWhatBecomesOfAnAddedNode) {
    EXPECT_EQ(mHandler->onUvcV4l2Added("/dev/video0"), 0);
    EXPECT_EQ(mHandler->onUvcV4l2Added("/dev/video1"), -12);
    EXPECT_EQ(mWorld.node.openDescriptors(), 1u);
    EXPECT_EQ(mWorld.log.lines(DaemonWorld::kTag),
              (std::vector<LogLine>{
                      {ANDROID_LOG_DEBUG, DaemonWorld::kTag, "UvcGadgetHandler E"},
                      {ANDROID_LOG_DEBUG, DaemonWorld::kTag, "added device: /dev/video0"},
                      {ANDROID_LOG_DEBUG, DaemonWorld::kTag, "added device: /dev/video1"},
                      {ANDROID_LOG_WARN, DaemonWorld::kTag, "uvc v4l2 already exists"}}));
}

TEST_F(UvcGadgetReactionsTest, KeepsADeviceThatItCannotOpen) {
    mWorld.node.fail("open", EACCES);
    EXPECT_EQ(mHandler->onUvcV4l2Added("/dev/video0"), -5);
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_ERROR, DaemonWorld::kTag, "failed to open uvc v4l2"));
    EXPECT_TRUE(isStillThere());
    EXPECT_EQ(mWorld.node.calls("open").size(), 1u);
}

TEST_F(UvcGadgetReactionsTest, SaysThatThereIsNoMemoryForADevice) {
    sNoMemory = true;
    EXPECT_EQ(mHandler->onUvcV4l2Added("/dev/video0"), -12);
    sNoMemory = false;
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_ERROR, DaemonWorld::kTag, "out of memory"));
    EXPECT_EQ(mHandler->onUvcV4l2Added("/dev/video0"), 0);
}

TEST_F(UvcGadgetReactionsTest, TakesTheRemovalOfANodeWithoutADevice) {
    EXPECT_EQ(mHandler->onV4l2Removed("video3"), 0);
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_DEBUG, DaemonWorld::kTag, "removed device: video3"));
    EXPECT_EQ(mHandler->onUvcV4l2Added("/dev/video0"), 0);
}

TEST_F(UvcGadgetReactionsTest, RemovesADeviceWhateverNodeHasGone) {
    ASSERT_EQ(mHandler->onUvcV4l2Added("/dev/video0"), 0);
    EXPECT_EQ(mHandler->onV4l2Removed("v4l-subdev3"), 0);
    EXPECT_FALSE(mWorld.log.has(ANDROID_LOG_ERROR, DaemonWorld::kTag,
                                "Unable to handle close for v4l-subdev3"));
    EXPECT_EQ(mWorld.node.openDescriptors(), 0u);
    EXPECT_FALSE(isStillThere());
}

TEST_F(UvcGadgetReactionsTest, ADisconnectionLeavesADeviceThatDoesNotStream) {
    EXPECT_EQ(mHandler->onUsbDisconnected(), 0);
    ASSERT_EQ(mHandler->onUvcV4l2Added("/dev/video0"), 0);
    EXPECT_EQ(mHandler->onUsbDisconnected(), 0);
    EXPECT_TRUE(isStillThere());
    EXPECT_EQ(mWorld.node.openDescriptors(), 1u);
}

TEST_F(UvcGadgetReactionsTest, TakesItsDeviceAlongWhenItIsDestroyed) {
    ASSERT_EQ(mHandler->onUvcV4l2Added("/dev/video0"), 0);
    mHandler.clear();
    EXPECT_TRUE(mWorld.log.has(ANDROID_LOG_DEBUG, DaemonWorld::kTag, "~UvcGadgetHandler E"));
    EXPECT_EQ(mWorld.node.openDescriptors(), 0u);
    EXPECT_EQ(mWorld.services.lookUps(), 0);
}

TEST_F(UvcGadgetReactionsTest, IgnoresTheEndOfAStreamAndChangesOfColour) {
    EXPECT_EQ(mHandler->submitEos(0), android::OK);
    mHandler->dispatchDataSpaceChanged(1, 2, 3);
    EXPECT_EQ(mWorld.log.lines().size(), 1u);
}

}  // namespace
}  // namespace korvane::test
