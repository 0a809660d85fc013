// SPDX-License-Identifier: Apache-2.0
// Writes that fail, and the count of them that ends a stream.

#include <cerrno>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "support/UvcBufferOutputTest.h"

using namespace korvane::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class UvcWriteFailureTest : public UvcBufferOutputTest {
  protected:
    int failingWrite(int errorNumber = EIO) {
        mKernel.fail("VIDIOC_DQBUF", errorNumber);
        return writable();
    }
    void failFourTimes() {
        for (int i = 0; i < 4; ++i) EXPECT_EQ(0, failingWrite());
    }
};

// This one comes first, so that the count starts where the process does.
TEST_F(UvcWriteFailureTest, TheFirstFourFailuresOfTheProcessDoNoHarm) {
    streamJpeg();
    failFourTimes();
    EXPECT_TRUE(mCtrl->isStreaming());
    EXPECT_THAT(mListener.events, IsEmpty());
    EXPECT_THAT(mLog.lines(kTag), IsEmpty());
    EXPECT_EQ(0, giveBack(0));
}

TEST_F(UvcWriteFailureTest, FiveInARowStopTheStreamOnce) {
    streamJpeg();
    failFourTimes();
    EXPECT_TRUE(mCtrl->isStreaming());
    mKernel.clearCalls();
    EXPECT_EQ(-1, failingWrite());
    auto expected = kStopCalls;
    expected.insert(expected.begin(), "VIDIOC_DQBUF");
    EXPECT_EQ(expected, mKernel.callNames());
    EXPECT_THAT(mListener.events, ElementsAre("stop"));
    EXPECT_THAT(mLog.lines(kTag),
                ElementsAre(error("Too many streaming errors, forcing it to stop.")));
    EXPECT_GE(mCtrl->fd, 0);
}

TEST_F(UvcWriteFailureTest, TheReasonIsLoggedBeforeTheStreamStops) {
    streamJpeg();
    failFourTimes();
    mLog.clear();
    std::vector<LogLine> lines;
    mListener.onStop = [&] { lines = mLog.lines(kTag); };
    EXPECT_EQ(-1, failingWrite());
    EXPECT_THAT(lines, ElementsAre(error("Too many streaming errors, forcing it to stop.")));
}

TEST_F(UvcWriteFailureTest, WhyTheyFailDoesNotMatter) {
    for (int errorNumber : {EAGAIN, EBADF, EINVAL, EIO, ENODEV, ESHUTDOWN}) {
        streamJpeg();
        for (int i = 0; i < 5; ++i) EXPECT_EQ(i < 4 ? 0 : -1, failingWrite(errorNumber));
        EXPECT_THAT(mListener.events, ElementsAre("stop")) << errorNumber;
        EXPECT_EQ(5u, mLog.count(ANDROID_LOG_ERROR, "UVC-V4l2CtrlBase",
                                 "VIDIOC_DQBUF failed " + std::to_string(errorNumber)));
        mCtrl->close();
        EXPECT_EQ(0u, mKernel.openDescriptors());
    }
}

TEST_F(UvcWriteFailureTest, TheStreamThatTheyEndGivesUpItsFramesAndTheNextOneWorks) {
    streamJpeg();
    const auto blob = makeJpeg(100, 50);
    queue(0, blob);
    failFourTimes();
    EXPECT_EQ(-1, failingWrite());
    EXPECT_EQ(1, blob->getStrongCount());
    EXPECT_EQ(0, takeLocks(blob));
    EXPECT_EQ(0u, mKernel.openMappings());

    event(UVC_EVENT_STREAMON);
    EXPECT_TRUE(queue(0, blob));
    sendOne();
    EXPECT_THAT(mListener.events, ElementsAre("stop", "start", "emptied"));
}

TEST_F(UvcWriteFailureTest, TheCountRestartsAfterItHasStoppedAStream) {
    streamJpeg();
    for (int i = 0; i < 5; ++i) failingWrite();
    failFourTimes();
    EXPECT_EQ(-1, failingWrite());
    EXPECT_THAT(mListener.events, ElementsAre("stop"));  // nothing streamed the second time
}

TEST_F(UvcWriteFailureTest, ASuccessfulWriteResetsTheCount) {
    streamJpeg();
    for (int round = 0; round < 3; ++round) {
        failFourTimes();
        EXPECT_EQ(0, giveBack(0));
    }
    EXPECT_TRUE(mCtrl->isStreaming());
}

TEST_F(UvcWriteFailureTest, TheCountIsTheProcessesNotTheDevices) {
    streamJpeg();
    failFourTimes();
    makeDevice("YUY2");
    streamJpeg();
    EXPECT_EQ(-1, failingWrite());
    EXPECT_THAT(mListener.events, ElementsAre("stop"));
}

TEST_F(UvcWriteFailureTest, ANewStreamDoesNotResetTheCount) {
    streamJpeg();
    failFourTimes();
    event(UVC_EVENT_STREAMOFF);
    event(UVC_EVENT_STREAMON);
    EXPECT_EQ(-1, failingWrite());
    EXPECT_THAT(mListener.events, ElementsAre("stop", "start", "stop"));
}

}  // namespace
