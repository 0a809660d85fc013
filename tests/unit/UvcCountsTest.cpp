// SPDX-License-Identifier: Apache-2.0
// What the gadget's device counts, and what it says of the node, its mode and its buffers.

#include <cerrno>
#include <memory>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "support/UvcBufferOutputTest.h"

namespace korvane::test {
namespace {

namespace impl = ::korvane::hardware::camera::desktop::V2_0::implementation;
using impl::BufferState;
using impl::Count;
using impl::Event;
using impl::EventHistory;
using impl::NodeState;
using testing::ElementsAre;

class UvcCountsTest : public UvcBufferOutputTest {
  protected:
    uint64_t count(Count what) const { return mStats.total(what); }

    std::vector<Event> events() const {
        std::array<EventHistory::Entry, EventHistory::kEvents> entries;
        const size_t number = mStats.events().read(&entries);
        std::vector<Event> result;
        for (size_t i = 0; i < number; ++i) result.push_back(entries[i].event);
        return result;
    }
};

// --- The node ---

TEST_F(UvcCountsTest, TheNodeIsReadyOnceOpenAndGoesWithItsObject) {
    EXPECT_EQ(NodeState::NONE, mStats.node());
    ASSERT_EQ(0, mCtrl->open());
    EXPECT_EQ(NodeState::READY, mStats.node());
    EXPECT_EQ(640u, mStats.mode().width);
    EXPECT_EQ(480u, mStats.mode().height);
    mCtrl->close();
    EXPECT_EQ(NodeState::CLOSED, mStats.node());
    mCtrl.reset();
    EXPECT_EQ(NodeState::NONE, mStats.node());
    EXPECT_THAT(events(), ElementsAre(Event::NODE_OPENED, Event::NODE_REMOVED));
}

TEST_F(UvcCountsTest, ANodeThatCannotBeOpenedIsThereUnopened) {
    mKernel.fail("open", EACCES);
    ASSERT_NE(0, mCtrl->open());
    EXPECT_EQ(NodeState::UNOPENED, mStats.node());
    EXPECT_THAT(events(), ElementsAre(Event::NODE_UNOPENED));
}

TEST_F(UvcCountsTest, ADisconnectedNodeIsClosed) {
    ASSERT_EQ(0, mCtrl->open());
    event(UVC_EVENT_DISCONNECT);
    EXPECT_EQ(NodeState::CLOSED, mStats.node());
    EXPECT_THAT(events(), ElementsAre(Event::NODE_OPENED, Event::HOST_DISCONNECTED));
}

TEST_F(UvcCountsTest, ANodeIsOpenedOnceItsFormatWasSet) {
    mKernel.fail("VIDIOC_S_FMT", EBUSY);
    ASSERT_EQ(0, mCtrl->open());
    EXPECT_THAT(events(), ElementsAre(Event::CALL_FAILED, Event::NODE_OPENED));
}

TEST_F(UvcCountsTest, AHostsDisconnectComesBeforeTheEndOfItsStream) {
    streamJpeg();
    event(UVC_EVENT_DISCONNECT);
    const auto all = events();
    EXPECT_EQ(Event::HOST_DISCONNECTED, all[all.size() - 2]);
    EXPECT_EQ(Event::STREAM_STOPPED, all.back());
}

TEST_F(UvcCountsTest, TheModeIsTheCommittedOne) {
    ASSERT_EQ(0, mCtrl->open());
    select(kProbe, kMjpeg, 2);
    EXPECT_EQ(640u, mStats.mode().width);
    select(kCommit, kMjpeg, 2, 666666);
    EXPECT_EQ(1280u, mStats.mode().width);
    EXPECT_EQ(720u, mStats.mode().height);
    EXPECT_EQ(uint32_t{V4L2_PIX_FMT_MJPEG}, mStats.mode().format);
    EXPECT_EQ(666666u, mStats.interval());
}

// --- The stream ---

TEST_F(UvcCountsTest, AStreamRestartsTheSecondCountAndHasBuffers) {
    streamJpeg();
    EXPECT_EQ(NodeState::STREAMING, mStats.node());
    for (int i = 0; i < 4; ++i) EXPECT_EQ(BufferState::FREE, mStats.buffer(i));
    queue(1, makeJpeg(1000, 500));
    EXPECT_EQ(BufferState::QUEUED, mStats.buffer(1));
    EXPECT_EQ(1u, count(Count::FRAMES_SENT));
    sendOne();
    EXPECT_EQ(BufferState::FREE, mStats.buffer(1));
    EXPECT_EQ(1u, count(Count::FRAMES_RETURNED));

    event(UVC_EVENT_STREAMOFF);
    EXPECT_EQ(NodeState::READY, mStats.node());
    EXPECT_EQ(BufferState::NONE, mStats.buffer(0));
    EXPECT_EQ(1u, mStats.sinceStream(Count::FRAMES_SENT));
    event(UVC_EVENT_STREAMON);
    EXPECT_EQ(0u, mStats.sinceStream(Count::FRAMES_SENT));
    EXPECT_EQ(1u, count(Count::FRAMES_SENT));
}

TEST_F(UvcCountsTest, AStreamThatIsRefusedIsNotedNotStarted) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.fail("VIDIOC_STREAMON", EIO);
    event(UVC_EVENT_STREAMON);
    mKernel.fail("VIDIOC_REQBUFS", EIO);
    event(UVC_EVENT_STREAMON);
    EXPECT_EQ(NodeState::READY, mStats.node());
    EXPECT_EQ(2u, count(Count::CALLS_FAILED));
    EXPECT_THAT(events(), ElementsAre(Event::NODE_OPENED, Event::CALL_FAILED, Event::STREAM_REFUSED,
                                      Event::CALL_FAILED, Event::STREAM_REFUSED));
}

TEST_F(UvcCountsTest, AStreamIsRefusedBeforeItsBuffersGo) {
    ASSERT_EQ(0, mCtrl->open());
    mKernel.fail("VIDIOC_STREAMON", EIO);
    mKernel.fail("VIDIOC_REQBUFS", EBUSY, 1);
    event(UVC_EVENT_STREAMON);
    EXPECT_THAT(events(), ElementsAre(Event::NODE_OPENED, Event::CALL_FAILED, Event::STREAM_REFUSED,
                                      Event::CALL_FAILED));
}

TEST_F(UvcCountsTest, WritesThatKeepFailingAreGivenUp) {
    streamJpeg();
    for (int i = 0; i < 5; ++i) writable();
    EXPECT_EQ(5u, count(Count::CALLS_FAILED));
    const auto all = events();
    EXPECT_EQ(Event::WRITES_GIVEN_UP, all[all.size() - 2]);
    EXPECT_EQ(Event::STREAM_STOPPED, all.back());
}

// --- Frames that don't leave ---

TEST_F(UvcCountsTest, AFrameWithoutAStreamIsDropped) {
    ASSERT_EQ(0, mCtrl->open());
    queue(0, makeJpeg(1000, 500));
    EXPECT_EQ(1u, count(Count::DROPPED_NO_STREAM));
    EXPECT_EQ(0u, count(Count::FRAMES_SENT));
}

TEST_F(UvcCountsTest, ABlobTooLargeForTheBufferIsDropped) {
    streamJpeg();
    queue(0, makeJpeg(kBlobLength * 2, kBlobLength * 2));
    EXPECT_EQ(1u, count(Count::DROPPED_TOO_LARGE));
    EXPECT_EQ(0u, count(Count::FRAMES_SENT));
}

TEST_F(UvcCountsTest, APictureTooLargeForTheBufferIsDropped) {
    streamYuyv(100);
    queue(0, makePicture(640, 480));
    EXPECT_EQ(1u, count(Count::DROPPED_TOO_LARGE));
    EXPECT_EQ(0u, count(Count::FRAMES_STALE));
    EXPECT_EQ(0u, count(Count::FRAMES_SENT));
    EXPECT_EQ(0u, count(Count::DROPPED_REFUSED));
}

TEST_F(UvcCountsTest, AFrameThatTheDriverRefusesIsDropped) {
    streamJpeg();
    mKernel.fail("VIDIOC_QBUF", ENODEV);
    queue(0, makeJpeg(1000, 500));
    queue(4, makeJpeg(1000, 500));
    EXPECT_EQ(2u, count(Count::DROPPED_REFUSED));
    EXPECT_EQ(1u, count(Count::CALLS_FAILED));
    EXPECT_EQ(BufferState::FREE, mStats.buffer(0));
}

TEST_F(UvcCountsTest, ABlobThatJustFitsIsNotTooLargeForADriverThatRefusesIt) {
    streamJpeg();
    mKernel.fail("VIDIOC_QBUF", ENODEV);
    queue(0, makeJpeg(kBlobLength + 100, kBlobLength));
    EXPECT_EQ(1u, count(Count::DROPPED_REFUSED));
    EXPECT_EQ(0u, count(Count::DROPPED_TOO_LARGE));
}

TEST_F(UvcCountsTest, ABlobThatTheCpuMayNotSeeIsDropped) {
    streamJpeg();
    queue(0, new GraphicBuffer(1000, 1, HAL_PIXEL_FORMAT_BLOB, 1, GraphicBuffer::USAGE_HW_TEXTURE));
    EXPECT_EQ(1u, count(Count::DROPPED_UNREADABLE));
    EXPECT_EQ(0u, count(Count::FRAMES_SENT));
}

TEST_F(UvcCountsTest, APictureThatTheCpuMayNotSeeIsSentStale) {
    streamYuyv();
    queue(1, new GraphicBuffer(640, 480, HAL_PIXEL_FORMAT_YCbCr_420_888, 1,
                               GraphicBuffer::USAGE_HW_TEXTURE));
    EXPECT_EQ(1u, count(Count::FRAMES_STALE));
    EXPECT_EQ(1u, count(Count::FRAMES_SENT));
}

// --- The host's requests ---

TEST_F(UvcCountsTest, RequestsAreAnsweredOrStalled) {
    ASSERT_EQ(0, mCtrl->open());
    request(0xa1, UVC_GET_CUR, kProbe << 8, 1);
    request(0xa1, UVC_GET_CUR, 2 << 8, 0);  // of a control unit
    request(0x21, UVC_SET_CUR, kProbe << 8, 1);
    EXPECT_EQ(2u, count(Count::REQUESTS_ANSWERED));
    EXPECT_EQ(1u, count(Count::REQUESTS_STALLED));
}

// --- The dump ---

class UvcDumpCountsTest : public UvcCountsTest {
  protected:
    static FILE* file() { return fdopen(memfd_create("dump", MFD_CLOEXEC), "w"); }
};

TEST_F(UvcDumpCountsTest, ASecondDumpIsRefusedAndTheFirstGoesOn) {
    streamJpeg();
    const int first = memfd_create("dump", MFD_CLOEXEC);
    EXPECT_TRUE(mCtrl->dumpFramesTo(fdopen(dup(first), "w")));
    EXPECT_FALSE(mCtrl->dumpFramesTo(file()));
    queue(0, makeJpeg(1000, 500));
    EXPECT_TRUE(mCtrl->dumpFramesTo(nullptr));
    queue(1, makeJpeg(1000, 500));
    event(UVC_EVENT_STREAMOFF);
    EXPECT_EQ(500, lseek(first, 0, SEEK_END));
    EXPECT_TRUE(mCtrl->dumpFramesTo(file()));
    ::close(first);
}

}  // namespace
}  // namespace korvane::test
