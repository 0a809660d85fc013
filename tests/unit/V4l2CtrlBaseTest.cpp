// SPDX-License-Identifier: Apache-2.0
// The ioctl wrappers: one ioctl each, its block, its result, one log line when it fails.

#include "uvc/V4l2CtrlBase.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "support/LogRecorder.h"
#include "support/ScriptedKernel.h"

using korvane::hardware::camera::desktop::V2_0::implementation::V4l2CtrlBase;
using korvane::test::LogLine;
using korvane::test::LogRecorder;
using korvane::test::ScriptedKernel;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kTag[] = "UVC-V4l2CtrlBase";
constexpr char kPath[] = "/dev/video77";

class TestCtrl : public V4l2CtrlBase {
  public:
    explicit TestCtrl(int fd, uint32_t type = V4L2_BUF_TYPE_VIDEO_OUTPUT) : mFd(fd), mType(type) {}
    const char* getV4l2DevName() override { return kPath; }
    uint32_t getV4l2BufferType() override {
        asked.emplace_back("type");
        return mType;
    }
    int getV4l2DeviceFd() override {
        asked.emplace_back("descriptor");
        return mFd;
    }

    // What a wrapper has asked the subclass for, in order.
    std::vector<std::string> asked;

  private:
    const int mFd;
    const uint32_t mType;
};

struct Wrapper {
    std::string ioctl;
    std::function<int32_t(V4l2CtrlBase&)> call;
};

std::ostream& operator<<(std::ostream& out, const Wrapper& wrapper) {
    return out << wrapper.ioctl;
}

template <typename T>
std::vector<uint8_t> bytesOf(const T& value) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
    return {bytes, bytes + sizeof(value)};
}

class V4l2CtrlBaseTest : public testing::TestWithParam<Wrapper> {
  protected:
    ~V4l2CtrlBaseTest() override { close(mFd); }

    // The only ioctl so far, as the caller passed it.
    template <typename T>
    T onlyBlock(const std::string& name) {
        const auto calls = mKernel.calls();
        EXPECT_EQ(2u, calls.size());  // the first is the open
        EXPECT_EQ(name, calls.back().name);
        EXPECT_EQ(mFd, calls.back().fd);
        return calls.back().as<T>();
    }

    LogRecorder mLog;
    ScriptedKernel mKernel{kPath};
    const int mFd = open(kPath, O_RDWR);
    TestCtrl mCtrl{mFd};
};

TEST_F(V4l2CtrlBaseTest, SetFormatPassesTheCallersBlock) {
    v4l2_format format = {};
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    format.fmt.pix.width = 640;
    const auto before = bytesOf(format);
    EXPECT_EQ(0, mCtrl.setFormat(&format));
    EXPECT_EQ(before, bytesOf(onlyBlock<v4l2_format>("VIDIOC_S_FMT")));
}

TEST_F(V4l2CtrlBaseTest, SetFormatHandsTheDriversChangesBack) {
    mKernel.answerNext("VIDIOC_S_FMT", [](void* block) {
        static_cast<v4l2_format*>(block)->fmt.pix.sizeimage = 1234;
        return 0;
    });
    v4l2_format format = {};
    EXPECT_EQ(0, mCtrl.setFormat(&format));
    EXPECT_EQ(1234u, format.fmt.pix.sizeimage);
}

TEST_F(V4l2CtrlBaseTest, StreamOnPassesTheBufferType) {
    EXPECT_EQ(1, mCtrl.requestBuffer(1, V4L2_MEMORY_MMAP));
    EXPECT_EQ(0, mCtrl.streamOn());
    ASSERT_EQ(1u, mKernel.calls("VIDIOC_STREAMON").size());
    EXPECT_EQ(2u, mKernel.calls("VIDIOC_STREAMON")[0].as<uint32_t>());
}

TEST_F(V4l2CtrlBaseTest, StreamOffPassesTheBufferType) {
    EXPECT_EQ(0, mCtrl.streamOff());
    EXPECT_EQ(2u, onlyBlock<uint32_t>("VIDIOC_STREAMOFF"));
}

TEST_F(V4l2CtrlBaseTest, SubscribePassesTheTypeAndZeros) {
    v4l2_event_subscription expected = {};
    expected.type = 0x08000004;
    EXPECT_EQ(0, mCtrl.subscribe(0x08000004));
    EXPECT_EQ(bytesOf(expected),
              bytesOf(onlyBlock<v4l2_event_subscription>("VIDIOC_SUBSCRIBE_EVENT")));
}

TEST_F(V4l2CtrlBaseTest, DqeventFillsTheCallersEvent) {
    mKernel.sendEvent(0x08000002);
    v4l2_event event = {};
    EXPECT_EQ(0, mCtrl.dqevent(&event));
    EXPECT_EQ(0x08000002u, event.type);
}

TEST_F(V4l2CtrlBaseTest, RequestBufferPassesCountTypeMemoryAndZeros) {
    v4l2_requestbuffers expected = {};
    expected.count = 4;
    expected.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    expected.memory = V4L2_MEMORY_MMAP;
    EXPECT_EQ(4, mCtrl.requestBuffer(4, V4L2_MEMORY_MMAP));
    EXPECT_EQ(bytesOf(expected), bytesOf(onlyBlock<v4l2_requestbuffers>("VIDIOC_REQBUFS")));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(V4l2CtrlBaseTest, TheBufferTypeIsTheSubclassesToSay) {
    TestCtrl capture(mFd, V4L2_BUF_TYPE_VIDEO_CAPTURE);
    // The gadget's node is for output.
    EXPECT_EQ(-1, capture.requestBuffer(4, V4L2_MEMORY_USERPTR));
    EXPECT_EQ(-1, capture.streamOn());
    EXPECT_EQ(-1, capture.streamOff());
    const auto request = mKernel.calls("VIDIOC_REQBUFS")[0].as<v4l2_requestbuffers>();
    EXPECT_EQ(uint32_t{V4L2_BUF_TYPE_VIDEO_CAPTURE}, request.type);
    EXPECT_EQ(uint32_t{V4L2_MEMORY_USERPTR}, request.memory);
    EXPECT_EQ(uint32_t{V4L2_BUF_TYPE_VIDEO_CAPTURE},
              mKernel.calls("VIDIOC_STREAMON")[0].as<uint32_t>());
    EXPECT_EQ(uint32_t{V4L2_BUF_TYPE_VIDEO_CAPTURE},
              mKernel.calls("VIDIOC_STREAMOFF")[0].as<uint32_t>());
}

TEST_F(V4l2CtrlBaseTest, TheDescriptorIsAskedForBeforeTheBufferType) {
    EXPECT_EQ(4, mCtrl.requestBuffer(4, V4L2_MEMORY_MMAP));
    EXPECT_EQ(0, mCtrl.streamOn());
    EXPECT_EQ(0, mCtrl.streamOff());
    EXPECT_THAT(mCtrl.asked,
                ElementsAre("descriptor", "type", "descriptor", "type", "descriptor", "type"));
}

TEST_P(V4l2CtrlBaseTest, AsksForTheDescriptorFirstAndOnce) {
    GetParam().call(mCtrl);
    ASSERT_FALSE(mCtrl.asked.empty());
    EXPECT_EQ("descriptor", mCtrl.asked.front());
    EXPECT_EQ(1, std::count(mCtrl.asked.begin(), mCtrl.asked.end(), "descriptor"));
}

TEST_F(V4l2CtrlBaseTest, RequestBufferReturnsFewerAsTheyAre) {
    mKernel.answerNext("VIDIOC_REQBUFS", [](void*) { return 3; });
    EXPECT_EQ(3, mCtrl.requestBuffer(4, V4L2_MEMORY_MMAP));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(V4l2CtrlBaseTest, FreeingTheBuffersIsNotLogged) {
    EXPECT_EQ(0, mCtrl.requestBuffer(0, V4L2_MEMORY_MMAP));
    EXPECT_THAT(mLog.lines(), IsEmpty());
}

TEST_F(V4l2CtrlBaseTest, RequestBufferLogsResultTextAndErrnoAndDoesNotRetry) {
    mKernel.fail("VIDIOC_REQBUFS", EBUSY);
    EXPECT_EQ(-1, mCtrl.requestBuffer(4, V4L2_MEMORY_MMAP));
    EXPECT_EQ(1u, mKernel.calls("VIDIOC_REQBUFS").size());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                    "VIDIOC_REQBUFS failed -1:  Device or resource busy (16)"}));
}

TEST_F(V4l2CtrlBaseTest, AClosedNodeFailsRequestBuffer) {
    TestCtrl closed(-1);
    EXPECT_EQ(-1, closed.requestBuffer(4, V4L2_MEMORY_MMAP));
    EXPECT_EQ(EBADF, errno);
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag,
                                    "VIDIOC_REQBUFS failed -1:  Bad file descriptor (9)"}));
}

TEST_F(V4l2CtrlBaseTest, QueryBufferPassesTheBlockThroughBothWays) {
    mKernel.setBufferLength(777);
    EXPECT_EQ(2, mCtrl.requestBuffer(2, V4L2_MEMORY_MMAP));
    mKernel.clearCalls();
    v4l2_buffer buffer = {};
    buffer.index = 1;
    buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffer.memory = V4L2_MEMORY_MMAP;
    const auto before = bytesOf(buffer);
    EXPECT_EQ(0, mCtrl.queryBuffer(&buffer));
    EXPECT_EQ(before, mKernel.calls("VIDIOC_QUERYBUF")[0].argument);
    EXPECT_EQ(777u, buffer.length);
}

TEST_F(V4l2CtrlBaseTest, QueueAndDequeuePassTheBlockThrough) {
    EXPECT_EQ(2, mCtrl.requestBuffer(2, V4L2_MEMORY_MMAP));
    EXPECT_EQ(0, mCtrl.streamOn());
    v4l2_buffer buffer = {};
    buffer.index = 1;
    buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.sequence = 5;
    const auto before = bytesOf(buffer);
    EXPECT_EQ(0, mCtrl.queueBuffer(&buffer));
    EXPECT_EQ(before, mKernel.calls("VIDIOC_QBUF")[0].argument);
    mKernel.send();
    v4l2_buffer sent = {};
    sent.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    const auto empty = bytesOf(sent);
    EXPECT_EQ(0, mCtrl.dequeBuffer(&sent));
    EXPECT_EQ(empty, mKernel.calls("VIDIOC_DQBUF")[0].argument);
    EXPECT_EQ(1u, sent.index);
}

TEST_P(V4l2CtrlBaseTest, LogsTheErrnoOfAFailureAndDoesNotRetry) {
    mKernel.fail(GetParam().ioctl, EIO);
    EXPECT_EQ(-1, GetParam().call(mCtrl));
    EXPECT_EQ(1u, mKernel.calls(GetParam().ioctl).size());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag, GetParam().ioctl + " failed 5"}));
}

TEST_P(V4l2CtrlBaseTest, FailsOnAClosedNode) {
    TestCtrl closed(-1);
    EXPECT_EQ(-1, GetParam().call(closed));
    EXPECT_EQ(EBADF, errno);
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag, GetParam().ioctl + " failed 9"}));
}

TEST_P(V4l2CtrlBaseTest, TakesAnyResultButZeroForAFailure) {
    mKernel.answerNext(GetParam().ioctl, [](void*) {
        errno = 0;
        return 7;
    });
    errno = 0;
    EXPECT_EQ(7, GetParam().call(mCtrl));
    EXPECT_THAT(mLog.lines(),
                ElementsAre(LogLine{ANDROID_LOG_ERROR, kTag, GetParam().ioctl + " failed 0"}));
}

// All but requestBuffer, whose result is a count.
INSTANTIATE_TEST_SUITE_P(
        Wrappers, V4l2CtrlBaseTest,
        testing::Values(
                Wrapper{"VIDIOC_S_FMT",
                        [](V4l2CtrlBase& ctrl) {
                            v4l2_format block = {};
                            return ctrl.setFormat(&block);
                        }},
                Wrapper{"VIDIOC_STREAMON", [](V4l2CtrlBase& ctrl) { return ctrl.streamOn(); }},
                Wrapper{"VIDIOC_STREAMOFF", [](V4l2CtrlBase& ctrl) { return ctrl.streamOff(); }},
                Wrapper{"VIDIOC_SUBSCRIBE_EVENT",
                        [](V4l2CtrlBase& ctrl) { return ctrl.subscribe(1); }},
                Wrapper{"VIDIOC_DQEVENT",
                        [](V4l2CtrlBase& ctrl) {
                            v4l2_event block = {};
                            return ctrl.dqevent(&block);
                        }},
                Wrapper{"VIDIOC_QUERYBUF",
                        [](V4l2CtrlBase& ctrl) {
                            v4l2_buffer block = {};
                            return ctrl.queryBuffer(&block);
                        }},
                Wrapper{"VIDIOC_QBUF",
                        [](V4l2CtrlBase& ctrl) {
                            v4l2_buffer block = {};
                            return ctrl.queueBuffer(&block);
                        }},
                Wrapper{"VIDIOC_DQBUF",
                        [](V4l2CtrlBase& ctrl) {
                            v4l2_buffer block = {};
                            return ctrl.dequeBuffer(&block);
                        }}),
        [](const auto& info) { return info.param.ioctl; });

}  // namespace
