// SPDX-License-Identifier: Apache-2.0
// The device's life: open and close, and the events that are not about the stream.

#include "uvc/UvcV4l2Ctrl.h"

#include <algorithm>
#include <cerrno>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "support/DescriptorZero.h"
#include "support/UvcDeviceTest.h"

using korvane::test::DescriptorZero;
using korvane::test::KernelCall;
using korvane::test::LogLine;
using korvane::test::UvcDeviceTest;
using korvane::test::UvcFunctionTree;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using korvane::test::PollableDev;
using korvane::test::UvcV4l2Ctrl;
using Names = std::vector<std::string>;

class UvcV4l2CtrlTest : public UvcDeviceTest {
  protected:
    void stream() { UvcDeviceTest::stream(kUncompressed, kSmallFrame, 614400); }
};

// --- Construction ---

TEST_F(UvcV4l2CtrlTest, StartsClosed) {
    EXPECT_EQ(-1, mCtrl->fd);
    EXPECT_EQ(-1, mCtrl->getV4l2DeviceFd());
    EXPECT_STREQ(kPath, mCtrl->getV4l2DevName());
    EXPECT_EQ(2u, mCtrl->getV4l2BufferType());
    EXPECT_EQ(4u, mCtrl->getBufferNum());
    EXPECT_FALSE(mCtrl->isStreaming());
    EXPECT_THAT(mKernel.calls(), IsEmpty());
}

TEST_F(UvcV4l2CtrlTest, KeepsACopyOfTheName) {
    std::string name = "/dev/video9";
    UvcV4l2Ctrl ctrl(name.c_str(), mStats);
    name.assign(name.size(), 'x');
    EXPECT_STREQ("/dev/video9", ctrl.getV4l2DevName());
}

// --- Open ---

TEST_F(UvcV4l2CtrlTest, OpenSubscribesInOrderAndSetsTheFirstMode) {
    EXPECT_EQ(0, mCtrl->open());
    const auto calls = mKernel.calls();
    ASSERT_THAT(mKernel.callNames(),
                ElementsAre("open", "VIDIOC_SUBSCRIBE_EVENT", "VIDIOC_SUBSCRIBE_EVENT",
                            "VIDIOC_SUBSCRIBE_EVENT", "VIDIOC_SUBSCRIBE_EVENT",
                            "VIDIOC_SUBSCRIBE_EVENT", "VIDIOC_SUBSCRIBE_EVENT", "VIDIOC_S_FMT"));
    EXPECT_EQ(O_RDWR | O_NONBLOCK, calls[0].as<int>());
    EXPECT_EQ(calls[0].result, mCtrl->getV4l2DeviceFd());

    std::vector<uint32_t> types;
    for (const KernelCall& call : mKernel.calls("VIDIOC_SUBSCRIBE_EVENT")) {
        types.push_back(call.as<v4l2_event_subscription>().type - V4L2_EVENT_PRIVATE_START);
    }
    EXPECT_THAT(types, ElementsAre(4, 5, 2, 3, 0, 1));

    v4l2_format format = {};
    format.type = 2;
    format.fmt.pix.width = 640;
    format.fmt.pix.height = 480;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    format.fmt.pix.field = 1;
    EXPECT_TRUE(calls.back().is(format));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcV4l2CtrlTest, OpenGoesOnWhenSubscribingFails) {
    mKernel.fail("VIDIOC_SUBSCRIBE_EVENT", EBUSY, 0, 6);
    EXPECT_EQ(0, mCtrl->open());
    EXPECT_EQ(6u, mKernel.calls("VIDIOC_SUBSCRIBE_EVENT").size());
    EXPECT_EQ(6u, mLog.count(ANDROID_LOG_ERROR, "UVC-V4l2CtrlBase",
                             "VIDIOC_SUBSCRIBE_EVENT failed 16"));
    EXPECT_EQ(1u, mKernel.calls("VIDIOC_S_FMT").size());
}

TEST_F(UvcV4l2CtrlTest, OpenGoesOnWhenTheFormatIsRefused) {
    mKernel.fail("VIDIOC_S_FMT", EINVAL);
    EXPECT_EQ(0, mCtrl->open());
    EXPECT_GE(mCtrl->fd, 0);
}

TEST_F(UvcV4l2CtrlTest, AFunctionWithoutFormatsIsServedAllTheSame) {
    mFiles.remove(UvcFunctionTree::path() + "/streaming");
    mCtrl = std::make_unique<UvcV4l2Ctrl>(kPath, mStats);
    EXPECT_EQ(0, mCtrl->open());
    mLog.clear();
    v4l2_format format = {};
    format.type = 2;
    format.fmt.pix.field = 1;
    EXPECT_TRUE(mKernel.calls("VIDIOC_S_FMT")[0].is(format));

    select(kCommit, kUncompressed, kSmallFrame);
    EXPECT_EQ(34, request(0xA1, 0x81, kCommit << 8, 1).length);
    EXPECT_TRUE(mLog.has(ANDROID_LOG_ERROR, "UVC-Config", "Invalid format set: 1"));
    EXPECT_TRUE(mLog.has(ANDROID_LOG_DEBUG, kTag,
                         "handleData: commit with fmt: , size: 0x0, fps: 15.00"));
}

TEST_F(UvcV4l2CtrlTest, ANodeThatCannotBeOpenedIsNoDevice) {
    mKernel.fail("open", EACCES);
    EXPECT_EQ(-19, mCtrl->open());
    EXPECT_THAT(mKernel.callNames(), ElementsAre("open"));
    EXPECT_THAT(mLog.lines(), ElementsAre(error("open [/dev/video7] failed 13")));
    EXPECT_LT(mCtrl->fd, 0);
}

TEST_F(UvcV4l2CtrlTest, AFailedOpenDoesNotCount) {
    mKernel.fail("open", EACCES);
    ASSERT_EQ(-ENODEV, mCtrl->open());
    EXPECT_EQ(0, mCtrl->open());
    mCtrl->close();
    EXPECT_EQ(0u, mKernel.openDescriptors());
}

TEST_F(UvcV4l2CtrlTest, AFirstOpenWithAValidDescriptorIsRefused) {
    mCtrl->fd = open(kPath, O_RDWR);
    mKernel.clearCalls();
    EXPECT_EQ(-22, mCtrl->open());
    EXPECT_THAT(mLog.lines(), ElementsAre(error("FIX:first open but fd valid")));
    EXPECT_THAT(mKernel.calls(), IsEmpty());
}

TEST_F(UvcV4l2CtrlTest, ASecondOpenOnlyCounts) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.clearCalls();
    EXPECT_EQ(0, mCtrl->open());
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_EQ(0, mCtrl->close());
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_GE(mCtrl->fd, 0);
    EXPECT_EQ(0, mCtrl->close());
    EXPECT_THAT(mKernel.callNames(), ElementsAre("close"));
    EXPECT_EQ(-1, mCtrl->fd);
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

// --- Close ---

TEST_F(UvcV4l2CtrlTest, CloseOfAClosedDeviceDoesNothing) {
    EXPECT_EQ(0, mCtrl->close());
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_THAT(mListener.events, IsEmpty());
    EXPECT_EQ(0, mCtrl->open());
    EXPECT_GE(mCtrl->fd, 0);
}

TEST_F(UvcV4l2CtrlTest, TheLastCloseWithoutADescriptorIsLogged) {
    ASSERT_EQ(0, mCtrl->open());
    ::close(mCtrl->fd);
    mCtrl->fd = -1;
    mKernel.clearCalls();
    EXPECT_EQ(0, mCtrl->close());
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_THAT(mLog.lines(), ElementsAre(error("FIX:close without open")));
    mLog.clear();
    EXPECT_EQ(0, mCtrl->close());
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcV4l2CtrlTest, CloseStopsTheStreamFirst) {
    stream();
    EXPECT_EQ(0, mCtrl->close());
    Names expected = kStopCalls;
    expected.push_back("close");
    EXPECT_EQ(expected, mKernel.callNames());
    EXPECT_THAT(mListener.events, ElementsAre("stop"));
    EXPECT_FALSE(mCtrl->isStreaming());
}

TEST_F(UvcV4l2CtrlTest, AnyCloseStopsTheStream) {
    stream();
    ASSERT_EQ(0, mCtrl->open());
    EXPECT_EQ(0, mCtrl->close());
    EXPECT_EQ(kStopCalls, mKernel.callNames());
    EXPECT_GE(mCtrl->fd, 0);
}

TEST_F(UvcV4l2CtrlTest, DestructionOnlyClosesTheNode) {
    stream();
    mCtrl.reset();
    EXPECT_THAT(mKernel.callNames(), ElementsAre("close"));
    EXPECT_THAT(mListener.events, IsEmpty());
}

TEST_F(UvcV4l2CtrlTest, DestructionOfAClosedDeviceTouchesNothing) {
    mCtrl.reset();
    EXPECT_THAT(mKernel.calls(), IsEmpty());
}

TEST_F(UvcV4l2CtrlTest, OpensAndClosesOfSeveralThreadsAddUp) {
    const auto openAndClose = [&] {
        for (int i = 0; i < 3000; ++i) {
            EXPECT_EQ(0, mCtrl->open());
            EXPECT_EQ(0, mCtrl->close());
        }
    };
    std::thread other(openAndClose);
    openAndClose();
    other.join();
    EXPECT_EQ(-1, mCtrl->fd);
    EXPECT_EQ(0u, mKernel.openDescriptors());
    EXPECT_EQ(mKernel.calls("open").size(), mKernel.calls("close").size());
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

// A daemon that was started without a standard input gets its descriptor.
TEST_F(UvcV4l2CtrlTest, DescriptorZeroIsTreatedLikeAnyOther) {
    const DescriptorZero zero;
    EXPECT_EQ(0, mCtrl->open());
    EXPECT_EQ(0, mCtrl->fd);
    EXPECT_EQ(0, mCtrl->close());
    EXPECT_EQ(0u, mKernel.openDescriptors());
    ASSERT_EQ(0, mCtrl->open());
    EXPECT_EQ(0, mCtrl->fd);
    mCtrl.reset();
    EXPECT_EQ(0u, mKernel.openDescriptors());
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcV4l2CtrlTest, AFirstOpenWithDescriptorZeroOpenIsRefusedToo) {
    mCtrl->fd = 0;
    EXPECT_EQ(-22, mCtrl->open());
    EXPECT_THAT(mLog.lines(), ElementsAre(error("FIX:first open but fd valid")));
    mCtrl->fd = -1;
}

// --- Events ---

TEST_F(UvcV4l2CtrlTest, AnUnknownReadinessIsIgnored) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.clearCalls();
    EXPECT_EQ(0, mCtrl->handlePendingData(PollableDev::DATA_READABLE));
    EXPECT_EQ(0, mCtrl->handlePendingData(static_cast<PollableDev::PENDING_DATA_TYPE>(0)));
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(warning("Unknown data type: 2"), warning("Unknown data type: 0")));
}

TEST_F(UvcV4l2CtrlTest, AnEventThatCannotBeTakenIsDropped) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.clearCalls();
    EXPECT_EQ(0, exception());
    EXPECT_THAT(mKernel.callNames(), ElementsAre("VIDIOC_DQEVENT"));
    EXPECT_THAT(mLog.lines(), ElementsAre(LogLine{ANDROID_LOG_ERROR, "UVC-V4l2CtrlBase",
                                                  "VIDIOC_DQEVENT failed 2"}));
}

TEST_F(UvcV4l2CtrlTest, OneEventIsTakenAtATimeIntoAZeroedBlock) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.sendEvent(UVC_EVENT_CONNECT);
    mKernel.sendEvent(UVC_EVENT_CONNECT);
    exception();
    const auto calls = mKernel.calls("VIDIOC_DQEVENT");
    ASSERT_EQ(1u, calls.size());
    EXPECT_TRUE(std::all_of(calls[0].argument.begin(), calls[0].argument.end(),
                            [](uint8_t byte) { return byte == 0; }));
}

TEST_F(UvcV4l2CtrlTest, ConnectChangesNothing) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.clearCalls();
    event(UVC_EVENT_CONNECT);
    EXPECT_THAT(mKernel.callNames(), ElementsAre("VIDIOC_DQEVENT"));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(UvcV4l2CtrlTest, AnUnknownEventIsLogged) {
    ASSERT_EQ(0, mCtrl->open());
    event(V4L2_EVENT_PRIVATE_START + 6);
    event(V4L2_EVENT_EOS);
    EXPECT_THAT(mLog.lines(), ElementsAre(warning("handleEvent: Unknown event type 134217734"),
                                          warning("handleEvent: Unknown event type 2")));
}

TEST_F(UvcV4l2CtrlTest, DisconnectClosesTheNode) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.clearCalls();
    event(UVC_EVENT_DISCONNECT);
    EXPECT_THAT(mKernel.callNames(), ElementsAre("VIDIOC_DQEVENT", "close"));
    EXPECT_EQ(-1, mCtrl->fd);
    EXPECT_THAT(mListener.events, IsEmpty());
}

TEST_F(UvcV4l2CtrlTest, DisconnectDropsOneOpenOnly) {
    ASSERT_EQ(0, mCtrl->open());
    ASSERT_EQ(0, mCtrl->open());
    event(UVC_EVENT_DISCONNECT);
    EXPECT_GE(mCtrl->fd, 0);
    event(UVC_EVENT_DISCONNECT);
    EXPECT_EQ(-1, mCtrl->fd);
}

TEST_F(UvcV4l2CtrlTest, DisconnectEndsAStream) {
    stream();
    event(UVC_EVENT_DISCONNECT);
    Names expected = kStopCalls;
    expected.insert(expected.begin(), "VIDIOC_DQEVENT");
    expected.push_back("close");
    EXPECT_EQ(expected, mKernel.callNames());
    EXPECT_THAT(mListener.events, ElementsAre("stop"));
}

TEST_F(UvcV4l2CtrlTest, ADisconnectedDeviceIsClosedAndOpenedWithoutComplaint) {
    stream();
    event(UVC_EVENT_DISCONNECT);
    EXPECT_EQ(0, mCtrl->close());
    EXPECT_THAT(mListener.events, ElementsAre("stop"));
    EXPECT_EQ(0, mCtrl->open());
    EXPECT_GE(mCtrl->fd, 0);
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

}  // namespace
