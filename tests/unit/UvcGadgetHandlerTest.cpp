// SPDX-License-Identifier: Apache-2.0
// The controller's connection to the service, its poll thread and its reactions to the node.

#include "uvc/UvcGadgetHandler.h"

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/DaemonWorld.h"

namespace korvane::test {
namespace {

class UvcGadgetHandlerTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mWorld.available()) GTEST_SKIP() << mWorld.whyNot();
    }

    bool waitDebug(const std::string& message) {
        return mWorld.waitLog(ANDROID_LOG_DEBUG, message);
    }
    bool waitError(const std::string& message) {
        return mWorld.waitLog(ANDROID_LOG_ERROR, message);
    }

    DaemonWorld mWorld;
};

TEST_F(UvcGadgetHandlerTest, SaysThatItIsThere) {
    mWorld.start();
    EXPECT_TRUE(waitDebug("UvcGadgetHandler E"));
}

TEST_F(UvcGadgetHandlerTest, FindsTheServiceAndRegistersAsItsWebcamController) {
    mWorld.start();
    EXPECT_TRUE(waitDebug("Trying to get service"));
    EXPECT_EQ(mWorld.services.lookUps(), 1);
    EXPECT_EQ(mWorld.waits.steppedOver(), 1);
    EXPECT_EQ(mWorld.command("{}"), "OK_WEBCAM_HAL");
}

TEST_F(UvcGadgetHandlerTest, TriesThreeTimesToFindTheServiceBeforeItWatchesForDevices) {
    mWorld.create();
    mWorld.services.provide("default", nullptr);
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_S_FMT", 1));
    EXPECT_LE(mWorld.services.lookUps(), 3);
    EXPECT_EQ(mWorld.services.lookUps(), mWorld.waits.steppedOver());
}

TEST_F(UvcGadgetHandlerTest, OpensANodeThatIsThereAtStart) {
    mWorld.start();
    EXPECT_TRUE(waitDebug("added device: /dev/video0"));
    EXPECT_EQ(mWorld.node.openDescriptors(), 1u);
}

TEST_F(UvcGadgetHandlerTest, AFunctionThatCannotBeReadEndsTheProcess) {
    mWorld.function.remove("streaming_maxpacket");
    EXPECT_DEATH(
            {
                mWorld.create();
                mWorld.node.waitForCalls("VIDIOC_S_FMT", 1);
            },
            "terminate called.*invalid_argument");
}

TEST_F(UvcGadgetHandlerTest, OpensANodeThatComesLater) {
    mWorld.node.setDriver("uvcvideo");
    mWorld.create();
    ASSERT_TRUE(mWorld.node.waitForCalls("VIDIOC_QUERYCAP", 1));
    // Behind a gap, where the scan at the start does not get to.
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

TEST_F(UvcGadgetHandlerTest, AFailingSelectEndsThePollThread) {
    mWorld.start();
    mWorld.node.fail("select", EINTR);
    EXPECT_TRUE(waitError("select failed"));
}

TEST_F(UvcGadgetHandlerTest, IsGoneQuicklyWhileItStillWaitsForTheService) {
    mWorld.services.hold();
    ::android::sp<::korvane::hardware::camera::desktop::V2_0::implementation::UvcGadgetHandler>
            handler = new ::korvane::hardware::camera::desktop::V2_0::implementation::
                    UvcGadgetHandler();
    mWorld.services.release();
    handler.clear();
    EXPECT_TRUE(waitDebug("~UvcGadgetHandler E"));
    EXPECT_EQ(mWorld.node.openDescriptors(), 0u);
}

}  // namespace
}  // namespace korvane::test
