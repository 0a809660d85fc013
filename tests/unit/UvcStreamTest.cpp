// SPDX-License-Identifier: Apache-2.0
// A stream's life: start, stop, write failures, and faults at every call of it.

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
const Names kStopCalls{"VIDIOC_STREAMOFF", "munmap", "munmap",
                       "munmap",           "munmap", "VIDIOC_REQBUFS"};

class UvcStreamTest : public UvcDeviceTest {
  protected:
    LogLine error(const std::string& text) const { return {ANDROID_LOG_ERROR, kTag, text}; }

    void stream() { UvcDeviceTest::stream(kUncompressed, kSmallFrame, 614400); }

    // One write that fails, or doesn't.
    int failingWrite() {
        mKernel.fail("VIDIOC_DQBUF", EIO);
        return writable();
    }
    int successfulWrite() {
        mKernel.answerNext("VIDIOC_DQBUF", [](void* block) {
            static_cast<v4l2_buffer*>(block)->index = 0;
            return 0;
        });
        return writable();
    }
};

// --- Start and stop ---

TEST_F(UvcStreamTest, StreamOnMapsAllBuffersThenStreamsThenTells) {
    mCtrl->open();
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
    mCtrl->open();
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
    mCtrl->open();
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
    mCtrl->open();
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
    mCtrl->open();
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
    mCtrl->open();
    event(UVC_EVENT_STREAMON);
    successfulWrite();
    event(UVC_EVENT_STREAMOFF);
    EXPECT_THAT(mListener.events, ElementsAre("start", "emptied", "stop"));
    EXPECT_FALSE(queuedDuringStop);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_WARN, kTag, "Not streaming, quit early"));
}

TEST_F(UvcStreamTest, TheListenerMayCloseTheDeviceFromWithinAFrameItGotBack) {
    stream();
    mListener.onEmptied = [&](UvcBufInfo*) { mCtrl->close(); };
    EXPECT_EQ(0, successfulWrite());
    EXPECT_THAT(mListener.events, ElementsAre("emptied", "stop"));
    EXPECT_EQ(-1, mCtrl->fd);
    EXPECT_EQ(0u, mKernel.openMappings());
}

TEST_F(UvcStreamTest, ADeviceWithoutAListenerStreamsAllTheSame) {
    mCtrl->setEventListener(nullptr);
    mCtrl->open();
    event(UVC_EVENT_STREAMON);
    EXPECT_TRUE(mCtrl->isStreaming());
    EXPECT_EQ(0, successfulWrite());
    event(UVC_EVENT_STREAMOFF);
    EXPECT_FALSE(mCtrl->isStreaming());
}

TEST_F(UvcStreamTest, StartsAndStopsAnyNumberOfTimes) {
    mCtrl->open();
    for (int i = 0; i < 3; ++i) {
        event(UVC_EVENT_STREAMON);
        event(UVC_EVENT_STREAMOFF);
    }
    EXPECT_EQ(6u, mListener.events.size());
    EXPECT_EQ(0u, mKernel.openMappings());
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

// --- Write failures ---

TEST_F(UvcStreamTest, FiveFailingWritesInARowStopTheStreamOnce) {
    stream();
    for (int i = 0; i < 4; ++i) EXPECT_EQ(0, failingWrite());
    EXPECT_TRUE(mCtrl->isStreaming());
    mKernel.clearCalls();
    EXPECT_EQ(-1, failingWrite());
    Names expected = kStopCalls;
    expected.insert(expected.begin(), "VIDIOC_DQBUF");
    EXPECT_EQ(expected, mKernel.callNames());
    EXPECT_THAT(mListener.events, ElementsAre("stop"));
    EXPECT_THAT(mLog.lines(kTag),
                ElementsAre(error("Too many streaming errors, forcing it to stop.")));
    EXPECT_GE(mCtrl->fd, 0);
}

TEST_F(UvcStreamTest, TheCountStartsAnewAfterItStoppedAStream) {
    stream();
    for (int i = 0; i < 5; ++i) failingWrite();
    for (int i = 0; i < 4; ++i) EXPECT_EQ(0, failingWrite());
    EXPECT_EQ(-1, failingWrite());
    EXPECT_THAT(mListener.events, ElementsAre("stop"));  // nothing streamed the second time
}

TEST_F(UvcStreamTest, ASuccessfulWriteResetsTheCount) {
    stream();
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 4; ++i) EXPECT_EQ(0, failingWrite());
        EXPECT_EQ(0, successfulWrite());
    }
    EXPECT_TRUE(mCtrl->isStreaming());
}

TEST_F(UvcStreamTest, TheCountIsTheProcessesNotTheDevices) {
    stream();
    for (int i = 0; i < 4; ++i) EXPECT_EQ(0, failingWrite());
    makeDevice("YUY2");
    stream();
    EXPECT_EQ(-1, failingWrite());
    EXPECT_THAT(mListener.events, ElementsAre("stop"));
}

// --- Faults ---

struct Fault {
    std::string name;
    int calls;  // in the life that the test lives
};

class UvcFaultTest : public UvcStreamTest, public testing::WithParamInterface<Fault> {};

TEST_P(UvcFaultTest, NoSingleFailureLeaksOrLeavesTheDeviceUnusable) {
    for (int passing = 0; passing < GetParam().calls; ++passing) {
        mKernel.fail(GetParam().name, EIO, passing);
        mCtrl->open();
        event(UVC_EVENT_STREAMON);
        event(UVC_EVENT_STREAMOFF);
        mCtrl->close();
        EXPECT_EQ(0u, mKernel.openDescriptors()) << passing;
        EXPECT_EQ(0u, mKernel.openMappings()) << passing;

        EXPECT_EQ(0, mCtrl->open());
        event(UVC_EVENT_STREAMON);
        EXPECT_TRUE(mCtrl->isStreaming()) << passing;
        mCtrl->close();
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, UvcFaultTest,
                         testing::Values(Fault{"open", 1}, Fault{"VIDIOC_SUBSCRIBE_EVENT", 6},
                                         Fault{"VIDIOC_S_FMT", 1}, Fault{"VIDIOC_DQEVENT", 2},
                                         Fault{"VIDIOC_REQBUFS", 2}, Fault{"VIDIOC_QUERYBUF", 4},
                                         Fault{"mmap", 4}, Fault{"VIDIOC_STREAMON", 1},
                                         Fault{"VIDIOC_STREAMOFF", 1}, Fault{"close", 1}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
