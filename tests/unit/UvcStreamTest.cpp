// SPDX-License-Identifier: Apache-2.0
// A stream's life: start and stop, and what its listener may do meanwhile.

#include <cerrno>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/UvcDeviceTest.h"

using korvane::test::LogLine;
using korvane::test::UvcDeviceTest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using korvane::test::UvcBufInfo;
using Names = std::vector<std::string>;

const Names kStartCalls{"VIDIOC_REQBUFS", "VIDIOC_QUERYBUF", "mmap", "VIDIOC_QUERYBUF",
                        "mmap",           "VIDIOC_QUERYBUF", "mmap", "VIDIOC_QUERYBUF",
                        "mmap",           "VIDIOC_STREAMON"};

class UvcStreamTest : public UvcDeviceTest {
  protected:
    void stream() { UvcDeviceTest::stream(kUncompressed, kSmallFrame, 614400); }
};

// --- Start and stop ---

TEST_F(UvcStreamTest, StreamOnMapsAllBuffersThenStreamsThenTells) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.clearCalls();
    mListener.onStart = [&] {
        EXPECT_TRUE(mCtrl->isStreaming());
        EXPECT_TRUE(mKernel.isStreaming());
        EXPECT_EQ(4u, mKernel.openMappings());
    };
    event(UVC_EVENT_STREAMON);
    Names expected = kStartCalls;
    expected.insert(expected.begin(), "VIDIOC_DQEVENT");
    EXPECT_EQ(expected, mKernel.callNames());
    EXPECT_EQ(2u, mKernel.calls("VIDIOC_STREAMON")[0].as<uint32_t>());
    EXPECT_THAT(mListener.events, ElementsAre("start"));
}

TEST_F(UvcStreamTest, StreamOnOfARunningStreamDoesNothing) {
    stream();
    event(UVC_EVENT_STREAMON);
    EXPECT_THAT(mKernel.callNames(), ElementsAre("VIDIOC_DQEVENT"));
    EXPECT_THAT(mListener.events, IsEmpty());
    EXPECT_TRUE(mCtrl->isStreaming());
}

TEST_F(UvcStreamTest, ARefusedStreamOnReleasesTheBuffers) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.clearCalls();
    mKernel.fail("VIDIOC_STREAMON", EPIPE);
    event(UVC_EVENT_STREAMON);
    Names expected = kStartCalls;
    expected.insert(expected.begin(), "VIDIOC_DQEVENT");
    expected.insert(expected.end(), kStopCalls.begin() + 1, kStopCalls.end());
    EXPECT_EQ(expected, mKernel.callNames());
    EXPECT_FALSE(mCtrl->isStreaming());
    EXPECT_THAT(mListener.events, IsEmpty());
    EXPECT_THAT(mLog.lines(), ElementsAre(LogLine{ANDROID_LOG_ERROR, "UVC-V4l2CtrlBase",
                                                  "VIDIOC_STREAMON failed 32"}));
}

TEST_F(UvcStreamTest, AStreamThatGotNoBuffersDoesNotStart) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.clearCalls();
    mKernel.fail("VIDIOC_REQBUFS", ENOMEM);
    event(UVC_EVENT_STREAMON);
    EXPECT_THAT(mKernel.callNames(), ElementsAre("VIDIOC_DQEVENT", "VIDIOC_REQBUFS"));
    EXPECT_FALSE(mCtrl->isStreaming());
    EXPECT_THAT(mListener.events, IsEmpty());
    EXPECT_THAT(mLog.lines(kTag),
                ElementsAre(error("request buffer failed"), error("Failed to alloc buffers")));
}

TEST_F(UvcStreamTest, AStreamStartsAfterOneThatCouldNot) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.fail("VIDIOC_STREAMON", EPIPE);
    event(UVC_EVENT_STREAMON);
    event(UVC_EVENT_STREAMON);
    EXPECT_TRUE(mCtrl->isStreaming());
    EXPECT_THAT(mListener.events, ElementsAre("start"));
}

TEST_F(UvcStreamTest, StreamOffTellsWhileTheBuffersAreStillThere) {
    stream();
    mListener.onStop = [&] {
        EXPECT_FALSE(mCtrl->isStreaming());
        EXPECT_TRUE(mKernel.isStreaming());
        EXPECT_EQ(4u, mKernel.openMappings());
    };
    event(UVC_EVENT_STREAMOFF);
    Names expected = kStopCalls;
    expected.insert(expected.begin(), "VIDIOC_DQEVENT");
    EXPECT_EQ(expected, mKernel.callNames());
    EXPECT_EQ(0u, mKernel.calls("VIDIOC_REQBUFS")[0].as<v4l2_requestbuffers>().count);
    EXPECT_EQ(0u, mKernel.openMappings());
    EXPECT_THAT(mListener.events, ElementsAre("stop"));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcStreamTest, StreamOffOfAnIdleDeviceDoesNothing) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.clearCalls();
    event(UVC_EVENT_STREAMOFF);
    EXPECT_THAT(mKernel.callNames(), ElementsAre("VIDIOC_DQEVENT"));
    EXPECT_THAT(mListener.events, IsEmpty());
}

TEST_F(UvcStreamTest, AFailingStreamOffStillReleasesTheBuffers) {
    stream();
    mKernel.fail("VIDIOC_STREAMOFF", EIO);
    event(UVC_EVENT_STREAMOFF);
    EXPECT_EQ(0u, mKernel.openMappings());
    EXPECT_FALSE(mCtrl->isStreaming());
}

// Each of these would hang if the lock were held.
TEST_F(UvcStreamTest, TheListenerMayCallBackIntoTheDevice) {
    UvcBufInfo frame;
    bool queuedDuringStop = true;
    mListener.onStart = [&] { mCtrl->getStreamSettings(); };
    mListener.onEmptied = [&](UvcBufInfo*) { mCtrl->getStreamSettings(); };
    mListener.onStop = [&] {
        queuedDuringStop = mCtrl->queueBuffer(&frame);
        mCtrl->getStreamSettings();
    };
    ASSERT_EQ(0, mCtrl->open());
    event(UVC_EVENT_STREAMON);
    giveBack(0);
    event(UVC_EVENT_STREAMOFF);
    EXPECT_THAT(mListener.events, ElementsAre("start", "emptied", "stop"));
    EXPECT_FALSE(queuedDuringStop);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_WARN, kTag, "Not streaming, quit early"));
}

TEST_F(UvcStreamTest, TheListenerMayCloseTheDeviceFromWithinAFrameItGotBack) {
    stream();
    mListener.onEmptied = [&](UvcBufInfo*) { mCtrl->close(); };
    EXPECT_EQ(0, giveBack(0));
    EXPECT_THAT(mListener.events, ElementsAre("emptied", "stop"));
    EXPECT_EQ(-1, mCtrl->fd);
    EXPECT_EQ(0u, mKernel.openMappings());
}

TEST_F(UvcStreamTest, ADeviceWithoutAListenerStreamsAllTheSame) {
    mCtrl->setEventListener(nullptr);
    ASSERT_EQ(0, mCtrl->open());
    event(UVC_EVENT_STREAMON);
    EXPECT_TRUE(mCtrl->isStreaming());
    EXPECT_EQ(0, giveBack(0));
    event(UVC_EVENT_STREAMOFF);
    EXPECT_FALSE(mCtrl->isStreaming());
}

TEST_F(UvcStreamTest, StartsAndStopsAnyNumberOfTimes) {
    ASSERT_EQ(0, mCtrl->open());
    for (int i = 0; i < 3; ++i) {
        event(UVC_EVENT_STREAMON);
        event(UVC_EVENT_STREAMOFF);
    }
    EXPECT_EQ(6u, mListener.events.size());
    EXPECT_EQ(0u, mKernel.openMappings());
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

}  // namespace
