// SPDX-License-Identifier: Apache-2.0
// What a gadget's video node answers, right or wrong use. The same tests run over the scripted node
// and, in the test machine, over the kernel's own, so that the two can't drift apart.

#include "support/GadgetNode.h"

#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/usb/g_uvc.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <unistd.h>

#include <android-base/unique_fd.h>
#include <gmock/gmock.h>

#include "support/LogRecorder.h"
#include "support/UvcFrames.h"
#include "uvc/UvcV4l2Ctrl.h"

using namespace korvane::test;
using android::base::unique_fd;
using korvane::hardware::camera::desktop::V2_0::implementation::PollableDev;
using korvane::hardware::camera::desktop::V2_0::implementation::ServiceStats;
using korvane::hardware::camera::desktop::V2_0::implementation::UvcBufInfo;
using korvane::hardware::camera::desktop::V2_0::implementation::UvcV4l2Ctrl;

namespace {

constexpr uint32_t kOutput = V4L2_BUF_TYPE_VIDEO_OUTPUT;
constexpr uint32_t kCapture = V4L2_BUF_TYPE_VIDEO_CAPTURE;
constexpr uint32_t kMmap = V4L2_MEMORY_MMAP;

v4l2_buffer makeBuffer(uint32_t index, uint32_t used = 0) {
    v4l2_buffer buffer = {};
    buffer.index = index;
    buffer.type = kOutput;
    buffer.memory = kMmap;
    buffer.bytesused = used;
    return buffer;
}

class NodeTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!mNode->whyNot().empty()) GTEST_SKIP() << mNode->whyNot();
    }

    virtual int node() const = 0;

    // Each answers with the errno of a refusal, else 0.
    int call(unsigned long request, void* argument) const {
        return ioctl(node(), request, argument) < 0 ? errno : 0;
    }
    int query(v4l2_buffer* buffer) const { return call(VIDIOC_QUERYBUF, buffer); }
    int queue(v4l2_buffer buffer) const { return call(VIDIOC_QBUF, &buffer); }
    int dequeue(v4l2_buffer* buffer) const { return call(VIDIOC_DQBUF, buffer); }
    int dequeue() const {
        v4l2_buffer buffer = makeBuffer(0);
        return dequeue(&buffer);
    }
    int stream(unsigned long request, uint32_t type = kOutput) const {
        return call(request, &type);
    }
    // How many were granted, or minus the errno.
    int request(uint32_t count, uint32_t type = kOutput, uint32_t memory = kMmap) const {
        v4l2_requestbuffers buffers = {};
        buffers.count = count;
        buffers.type = type;
        buffers.memory = memory;
        const int result = ioctl(node(), VIDIOC_REQBUFS, &buffers);
        return result < 0 ? -errno : result;
    }
    v4l2_buffer state(uint32_t index) const {
        v4l2_buffer buffer = makeBuffer(index);
        EXPECT_EQ(0, query(&buffer));
        return buffer;
    }
    bool writable() const {
        fd_set nodes;
        FD_ZERO(&nodes);
        FD_SET(node(), &nodes);
        timeval now = {0, 0};
        return select(node() + 1, nullptr, &nodes, nullptr, &now) == 1;
    }

    LogRecorder mLog;
    const std::unique_ptr<GadgetNode> mNode = GadgetNode::make();
};

class NullListener : public UvcV4l2Ctrl::EventListener {
  public:
    void onFrameEmptied(UvcBufInfo* buf) override { returned.push_back(buf->index); }
    void onStreamStart() override {}
    void onStreamStop() override {}

    std::vector<uint32_t> returned;
};

// A device that answers the host, makes the buffers and streams.
class Stream {
  public:
    bool start() {
        mCtrl.setEventListener(&listener);
        if (mCtrl.open() != 0) return false;
        mNode.startCapture();
        serveUntil(true);
        return mCtrl.isStreaming();
    }
    // The host ends it: up to 6.8 the gadget's driver may crash where the device does.
    void end() {
        mNode.endCapture();
        serveUntil(false);
        mCtrl.close();
    }
    explicit Stream(GadgetNode& node) : mNode(node), mCtrl(node.path().c_str(), mStats) {}

    UvcV4l2Ctrl& device() { return mCtrl; }

    NullListener listener;

  private:
    void serveUntil(bool streaming) {
        while (mCtrl.isStreaming() != streaming && mNode.waitForEvent(mCtrl.fd)) {
            EXPECT_EQ(0, mCtrl.handlePendingData(PollableDev::DATA_EXCEPTION));
        }
    }

    GadgetNode& mNode;
    ServiceStats mStats;
    UvcV4l2Ctrl mCtrl;
};

// --- A node that nothing streams from ---

class IdleNodeTest : public NodeTest {
  protected:
    // The driver of 6.1 divides by the size of the endpoint's packets when it is asked for buffers,
    // which it has from the first stream on.
    static void SetUpTestSuite() {
        const auto node = GadgetNode::make();
        if (!node->whyNot().empty()) return;
        const LogRecorder log;
        Stream stream(*node);
        ASSERT_TRUE(stream.start());
        stream.end();
    }
    void SetUp() override {
        NodeTest::SetUp();
        if (IsSkipped()) return;
        mFd.reset(open(mNode->path().c_str(), O_RDWR | O_NONBLOCK));
        ASSERT_TRUE(mFd.ok());
    }
    // Closing the node does this only for a program that subscribed to the host's requests.
    void TearDown() override {
        if (!mFd.ok()) return;
        EXPECT_EQ(0, stream(VIDIOC_STREAMOFF));
        EXPECT_EQ(0, request(0));
    }
    int node() const override { return mFd.get(); }

    // The errno of a mapping that is refused, else 0.
    int map(size_t length, int protection, int flags, off_t offset) const {
        void* memory = mmap(nullptr, length, protection, flags, node(), offset);
        if (memory == MAP_FAILED) return errno;
        munmap(memory, length);
        return 0;
    }

    unique_fd mFd;
};

TEST_F(IdleNodeTest, GrantsTheBuffersAskedForAndSaysHowMany) {
    EXPECT_EQ(4, request(4));
    EXPECT_EQ(2, request(2));
    EXPECT_EQ(0, request(0));
    EXPECT_EQ(0, request(0));
}

TEST_F(IdleNodeTest, GrantsNoMoreThanThirtyTwoBuffers) {
    EXPECT_EQ(32, request(33));
    EXPECT_EQ(0, request(0));
}

TEST_F(IdleNodeTest, RefusesBuffersOfAnotherTypeOrAnUnknownMemory) {
    EXPECT_EQ(-EINVAL, request(4, kCapture));
    EXPECT_EQ(-EINVAL, request(4, 0));
    EXPECT_EQ(-EINVAL, request(4, kOutput, 0));
    EXPECT_EQ(-EINVAL, request(4, kOutput, 77));
}

TEST_F(IdleNodeTest, DescribesEachBuffer) {
    ASSERT_EQ(3, request(3));
    const size_t page = sysconf(_SC_PAGESIZE);
    const v4l2_buffer first = state(0);
    EXPECT_GT(first.length, 0u);
    std::set<uint32_t> offsets;
    for (uint32_t i = 0; i < 3; ++i) {
        const v4l2_buffer buffer = state(i);
        EXPECT_EQ(i, buffer.index);
        EXPECT_EQ(kOutput, buffer.type);
        EXPECT_EQ(kMmap, buffer.memory);
        EXPECT_EQ(first.length, buffer.length);
        EXPECT_EQ(0u, buffer.m.offset % page);
        EXPECT_TRUE(offsets.insert(buffer.m.offset).second) << "that of another buffer";
        EXPECT_EQ(0u, buffer.flags & (V4L2_BUF_FLAG_QUEUED | V4L2_BUF_FLAG_DONE));
    }
}

TEST_F(IdleNodeTest, RefusesToDescribeABufferThatDoesNotExist) {
    v4l2_buffer buffer = makeBuffer(0);
    EXPECT_EQ(EINVAL, query(&buffer));
    ASSERT_EQ(2, request(2));
    buffer = makeBuffer(2);
    EXPECT_EQ(EINVAL, query(&buffer));
    buffer = makeBuffer(0);
    buffer.type = kCapture;
    EXPECT_EQ(EINVAL, query(&buffer));
    ASSERT_EQ(0, request(0));
    buffer = makeBuffer(0);
    EXPECT_EQ(EINVAL, query(&buffer));
}

TEST_F(IdleNodeTest, MapsItsBuffersForWritingAndSharedOnly) {
    ASSERT_EQ(2, request(2));
    const v4l2_buffer buffer = state(1);
    EXPECT_EQ(0, map(buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, buffer.m.offset));
    EXPECT_EQ(0, map(buffer.length, PROT_WRITE, MAP_SHARED, buffer.m.offset));
    EXPECT_EQ(EINVAL, map(buffer.length, PROT_READ, MAP_SHARED, buffer.m.offset));
    EXPECT_EQ(EINVAL, map(buffer.length, PROT_READ | PROT_WRITE, MAP_PRIVATE, buffer.m.offset));
}

TEST_F(IdleNodeTest, MapsNothingBeyondItsBuffers) {
    ASSERT_EQ(2, request(2));
    const v4l2_buffer last = state(1);
    const size_t page = sysconf(_SC_PAGESIZE);
    const int access = PROT_READ | PROT_WRITE;
    EXPECT_EQ(EINVAL, map(last.length + page, access, MAP_SHARED, last.m.offset));
    EXPECT_EQ(EINVAL, map(page, access, MAP_SHARED, last.m.offset + page));
    EXPECT_EQ(EINVAL, map(page, access, MAP_SHARED, off_t{2} * last.m.offset));
    ASSERT_EQ(0, request(0));
    EXPECT_EQ(EINVAL, map(last.length, access, MAP_SHARED, last.m.offset));
}

TEST_F(IdleNodeTest, MayBeAskedForNewBuffersWhileTheOldOnesAreMapped) {
    ASSERT_EQ(1, request(1));
    const v4l2_buffer buffer = state(0);
    void* memory = mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, node(),
                        buffer.m.offset);
    ASSERT_NE(MAP_FAILED, memory);
    EXPECT_EQ(0, request(0));
    EXPECT_EQ(2, request(2));
    munmap(memory, buffer.length);
}

TEST_F(IdleNodeTest, QueuesBuffersThatNobodyHasMapped) {
    ASSERT_EQ(2, request(2));
    EXPECT_EQ(0, queue(makeBuffer(1, 5)));
    EXPECT_EQ(5u, state(1).bytesused);
    EXPECT_NE(0u, state(1).flags & V4L2_BUF_FLAG_QUEUED);
    EXPECT_EQ(0u, state(0).flags & V4L2_BUF_FLAG_QUEUED);
}

TEST_F(IdleNodeTest, RefusesToQueueABufferThatDoesNotExist) {
    EXPECT_EQ(EINVAL, queue(makeBuffer(0, 5)));
    ASSERT_EQ(2, request(2));
    EXPECT_EQ(EINVAL, queue(makeBuffer(2, 5)));
    EXPECT_EQ(EINVAL, queue(makeBuffer(0xFFFFFFFF, 5)));
    ASSERT_EQ(0, request(0));
    EXPECT_EQ(EINVAL, queue(makeBuffer(0, 5)));
}

TEST_F(IdleNodeTest, RefusesToQueueABufferOfAnotherTypeOrMemory) {
    ASSERT_EQ(2, request(2));
    v4l2_buffer buffer = makeBuffer(0, 5);
    buffer.type = kCapture;
    EXPECT_EQ(EINVAL, queue(buffer));
    for (uint32_t memory : {uint32_t{0}, uint32_t{V4L2_MEMORY_USERPTR}, uint32_t{77}}) {
        buffer = makeBuffer(0, 5);
        buffer.memory = memory;
        EXPECT_EQ(EINVAL, queue(buffer)) << memory;
    }
    EXPECT_EQ(0, queue(makeBuffer(0, 5)));
}

TEST_F(IdleNodeTest, QueuesABufferOnce) {
    ASSERT_EQ(2, request(2));
    EXPECT_EQ(0, queue(makeBuffer(0, 5)));
    EXPECT_EQ(EINVAL, queue(makeBuffer(0, 6)));
    EXPECT_EQ(5u, state(0).bytesused);
    EXPECT_EQ(0, queue(makeBuffer(1, 5)));
}

TEST_F(IdleNodeTest, QueuesNoMoreBytesThanABufferHas) {
    ASSERT_EQ(2, request(2));
    const uint32_t length = state(0).length;
    EXPECT_EQ(EINVAL, queue(makeBuffer(0, length + 1)));
    EXPECT_EQ(EINVAL, queue(makeBuffer(0, 0xFFFFFFFF)));
    EXPECT_EQ(0u, state(0).flags & V4L2_BUF_FLAG_QUEUED);
    EXPECT_EQ(0, queue(makeBuffer(0, length)));
    EXPECT_EQ(length, state(0).bytesused);
}

TEST_F(IdleNodeTest, TakesNoBytesForAllOfABuffer) {
    ASSERT_EQ(1, request(1));
    EXPECT_EQ(0, queue(makeBuffer(0, 0)));
    EXPECT_EQ(state(0).length, state(0).bytesused);
}

TEST_F(IdleNodeTest, QueuesNoFieldsOfWhichItIsNotSaidWhichOneTheyAre) {
    ASSERT_EQ(1, request(1));
    v4l2_buffer buffer = makeBuffer(0, 5);
    buffer.field = V4L2_FIELD_ALTERNATE;
    EXPECT_EQ(EINVAL, queue(buffer));
}

TEST_F(IdleNodeTest, GivesNoBufferBack) {
    EXPECT_EQ(EINVAL, dequeue());
    ASSERT_EQ(2, request(2));
    EXPECT_EQ(EINVAL, dequeue());
    EXPECT_EQ(0, queue(makeBuffer(0, 5)));
    EXPECT_EQ(EINVAL, dequeue());
}

TEST_F(IdleNodeTest, RefusesToStreamWithoutBuffers) {
    EXPECT_EQ(EINVAL, stream(VIDIOC_STREAMON));
}

TEST_F(IdleNodeTest, RefusesToStartOrStopAStreamOfAnotherType) {
    ASSERT_EQ(2, request(2));
    EXPECT_EQ(EINVAL, stream(VIDIOC_STREAMON, kCapture));
    EXPECT_EQ(EINVAL, stream(VIDIOC_STREAMOFF, kCapture));
}

TEST_F(IdleNodeTest, AStopForgetsWhatIsQueued) {
    ASSERT_EQ(2, request(2));
    EXPECT_EQ(0, queue(makeBuffer(0, 5)));
    EXPECT_EQ(0, stream(VIDIOC_STREAMOFF));
    EXPECT_EQ(0u, state(0).flags & V4L2_BUF_FLAG_QUEUED);
    EXPECT_EQ(0, queue(makeBuffer(0, 5)));
}

TEST_F(IdleNodeTest, IsWritable) {
    EXPECT_TRUE(writable());
    ASSERT_EQ(2, request(2));
    EXPECT_TRUE(writable());
}

TEST_F(IdleNodeTest, HasNoEventThatNobodySubscribedTo) {
    v4l2_event event = {};
    EXPECT_EQ(ENOENT, call(VIDIOC_DQEVENT, &event));
}

TEST_F(IdleNodeTest, HasNoEventsButTheGadgets) {
    v4l2_event_subscription subscription = {};
    for (const uint32_t type :
         {uint32_t{V4L2_EVENT_EOS}, uint32_t{UVC_EVENT_FIRST - 1}, uint32_t{UVC_EVENT_LAST + 1}}) {
        subscription.type = type;
        EXPECT_EQ(EINVAL, call(VIDIOC_SUBSCRIBE_EVENT, &subscription)) << type;
    }
    subscription.type = UVC_EVENT_CONNECT;
    EXPECT_EQ(0, call(VIDIOC_SUBSCRIBE_EVENT, &subscription));
}

TEST_F(IdleNodeTest, RefusesRequestsThatItDoesNotKnow) {
    v4l2_input input = {};
    EXPECT_EQ(ENOTTY, call(VIDIOC_ENUMINPUT, &input));
}

// --- A node that the host streams from ---

class StreamingNodeTest : public NodeTest {
  protected:
    void SetUp() override {
        NodeTest::SetUp();
        if (IsSkipped()) return;
        mStream.emplace(*mNode);
        ASSERT_TRUE(mStream->start());
    }
    void TearDown() override {
        if (mStream) mStream->end();
    }
    int node() const override { return mStream->device().fd; }

    UvcV4l2Ctrl& device() { return mStream->device(); }

    // Queues a buffer and waits until the host has it.
    v4l2_buffer sent(v4l2_buffer buffer) {
        EXPECT_EQ(0, queue(buffer));
        EXPECT_TRUE(mNode->takeFrame(node()));
        v4l2_buffer back = makeBuffer(0);
        EXPECT_EQ(0, dequeue(&back));
        return back;
    }

    mutable std::optional<Stream> mStream;
};

TEST_F(StreamingNodeTest, GivesBackWhatWasSentAsItWasQueued) {
    EXPECT_EQ(EAGAIN, dequeue());
    EXPECT_FALSE(writable());
    v4l2_buffer other = makeBuffer(0);
    other.type = kCapture;
    EXPECT_EQ(EINVAL, dequeue(&other));

    v4l2_buffer buffer = makeBuffer(2, state(2).length);
    buffer.timestamp = {12, 345678};
    const v4l2_buffer back = sent(buffer);
    EXPECT_EQ(2u, back.index);
    EXPECT_EQ(kOutput, back.type);
    EXPECT_EQ(kMmap, back.memory);
    EXPECT_EQ(state(2).length, back.bytesused);
    EXPECT_EQ(state(2).length, back.length);
    EXPECT_EQ(state(2).m.offset, back.m.offset);
    EXPECT_EQ(0u, back.flags & (V4L2_BUF_FLAG_QUEUED | V4L2_BUF_FLAG_DONE | V4L2_BUF_FLAG_ERROR));
    EXPECT_EQ(EAGAIN, dequeue());
    EXPECT_EQ(0, queue(buffer));
}

TEST_F(StreamingNodeTest, KeepsItsBuffersAndRefusesWhatAnIdleOneRefuses) {
    EXPECT_EQ(-EBUSY, request(4));
    EXPECT_EQ(-EBUSY, request(0));
    const uint32_t length = state(1).length;
    EXPECT_EQ(EINVAL, queue(makeBuffer(4, 5)));
    EXPECT_EQ(EINVAL, queue(makeBuffer(1, length + 1)));
    EXPECT_EQ(length, sent(makeBuffer(1, 0)).bytesused);
    EXPECT_EQ(EAGAIN, dequeue());
}

// --- The device on such a node ---

TEST_F(StreamingNodeTest, TheDevicesFramesComeBack) {
    const auto picture = makePicture(640, 480);
    for (uint32_t index : {3, 0}) {
        UvcBufInfo frame = makeFrame(index, picture);
        EXPECT_TRUE(device().queueBuffer(&frame));
        EXPECT_TRUE(mNode->takeFrame(node()));
        EXPECT_EQ(0, device().handlePendingData(PollableDev::DATA_WRITABLE));
    }
    EXPECT_THAT(mStream->listener.returned, testing::ElementsAre(3, 0));
    EXPECT_EQ(1, picture->getStrongCount());
}

TEST_F(StreamingNodeTest, ThePictureThatDoesNotFitIsRefusedAndTheNextOneIsNot) {
    const auto tooLarge = makePicture(642, 480);
    const auto picture = makePicture(640, 480);
    mLog.clear();
    UvcBufInfo frame = makeFrame(0, tooLarge);
    EXPECT_FALSE(device().queueBuffer(&frame));
    EXPECT_THAT(mLog.lines(),
                testing::ElementsAre(
                        LogLine{ANDROID_LOG_WARN, "UVC-V4l2Ctrl",
                                "Size too large for buffer allocated, drop frame!"},
                        LogLine{ANDROID_LOG_ERROR, "UVC-V4l2CtrlBase", "VIDIOC_QBUF failed 22"},
                        LogLine{ANDROID_LOG_ERROR, "UVC-V4l2Ctrl", "Failed queue for buffer: 0"}));
    mLog.clear();
    frame = makeFrame(0, picture);
    EXPECT_TRUE(device().queueBuffer(&frame));
    EXPECT_THAT(mLog.lines(), testing::IsEmpty());
    EXPECT_TRUE(mNode->takeFrame(node()));
    EXPECT_EQ(0, device().handlePendingData(PollableDev::DATA_WRITABLE));
    EXPECT_EQ(1, tooLarge->getStrongCount());
}

}  // namespace
