// SPDX-License-Identifier: Apache-2.0
// The scripted node itself: what it gets wrong, the tests of the device would take for right. What
// it answers as the kernel does is GadgetNodeTest's.

#include "support/ScriptedKernel.h"

#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>

using korvane::test::KernelCall;
using korvane::test::KernelMapping;
using korvane::test::ScriptedKernel;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr char kPath[] = "/dev/video77";

v4l2_buffer makeBuffer(uint32_t index) {
    v4l2_buffer buffer = {};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffer.memory = V4L2_MEMORY_MMAP;
    return buffer;
}

class ScriptedKernelTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_GE(mFd, 0); }
    ~ScriptedKernelTest() override { close(mFd); }

    void request(uint32_t count) {
        v4l2_requestbuffers request = {};
        request.count = count;
        request.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
        request.memory = V4L2_MEMORY_MMAP;
        ASSERT_EQ(static_cast<int>(count), ioctl(mFd, VIDIOC_REQBUFS, &request));
    }
    void stream(bool on) {
        uint32_t type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
        ASSERT_EQ(0, ioctl(mFd, on ? VIDIOC_STREAMON : VIDIOC_STREAMOFF, &type));
    }
    int queue(uint32_t index, uint32_t used) {
        v4l2_buffer buffer = makeBuffer(index);
        buffer.bytesused = used;
        return ioctl(mFd, VIDIOC_QBUF, &buffer);
    }
    // Selects on the node for writing and exceptions.
    int wait(timeval timeout) {
        FD_ZERO(&mWrite);
        FD_ZERO(&mExcept);
        FD_SET(mFd, &mWrite);
        FD_SET(mFd, &mExcept);
        return select(mFd + 1, nullptr, &mWrite, &mExcept, &timeout);
    }
    bool writable() const { return FD_ISSET(mFd, &mWrite); }
    bool exceptional() const { return FD_ISSET(mFd, &mExcept); }

    ScriptedKernel mKernel{kPath};
    const int mFd = open(kPath, O_RDWR | O_NONBLOCK);
    fd_set mWrite;
    fd_set mExcept;
};

TEST(ScriptedKernelAloneTest, LeavesOtherPathsToTheSystem) {
    struct stat status;
    {
        ScriptedKernel kernel(kPath);
        EXPECT_EQ(0, stat(kPath, &status));
        const int null = open("/dev/null", O_RDONLY);
        EXPECT_GE(null, 0);
        EXPECT_EQ(0, close(null));
        EXPECT_THAT(kernel.calls(), IsEmpty());
    }
    EXPECT_EQ(-1, stat(kPath, &status));
    EXPECT_EQ(-1, open(kPath, O_RDWR));
}

TEST(ScriptedKernelAloneTest, KeepsTwoNodesApart) {
    ScriptedKernel first("/dev/video77");
    ScriptedKernel second("/dev/video78");
    const int fd = open("/dev/video78", O_RDWR);
    EXPECT_EQ(0u, first.openDescriptors());
    EXPECT_EQ(1u, second.openDescriptors());
    close(fd);
    EXPECT_EQ(0u, second.openDescriptors());
}

TEST_F(ScriptedKernelTest, RecordsCallsWithTheirArgumentsBeforeTheAnswer) {
    v4l2_capability capability = {};
    EXPECT_EQ(0, ioctl(mFd, VIDIOC_QUERYCAP, &capability));
    EXPECT_STREQ("g_uvc", reinterpret_cast<char*>(capability.driver));
    EXPECT_THAT(mKernel.callNames(), ElementsAre("open", "VIDIOC_QUERYCAP"));
    const std::vector<KernelCall> calls = mKernel.calls();
    EXPECT_EQ(O_RDWR | O_NONBLOCK, calls[0].as<int>());
    EXPECT_EQ(0, calls[1].as<v4l2_capability>().driver[0]);
    mKernel.clearCalls();
    EXPECT_THAT(mKernel.calls(), IsEmpty());
}

TEST_F(ScriptedKernelTest, FailsJustTheScriptedCalls) {
    v4l2_format format = {};
    mKernel.fail("VIDIOC_S_FMT", EIO, 1, 2);
    EXPECT_EQ(0, ioctl(mFd, VIDIOC_S_FMT, &format));
    for (int i = 0; i < 2; ++i) {
        errno = 0;
        EXPECT_EQ(-1, ioctl(mFd, VIDIOC_S_FMT, &format));
        EXPECT_EQ(EIO, errno);
    }
    EXPECT_EQ(0, ioctl(mFd, VIDIOC_S_FMT, &format));
    EXPECT_EQ(EIO, mKernel.calls("VIDIOC_S_FMT")[1].error);
}

TEST_F(ScriptedKernelTest, RefusesUnknownRequests) {
    v4l2_input input = {};
    EXPECT_EQ(-1, ioctl(mFd, VIDIOC_ENUMINPUT, &input));
    EXPECT_EQ(ENOTTY, errno);
}

TEST_F(ScriptedKernelTest, MapsWhatItLaterSends) {
    mKernel.setBufferLength(5000);
    request(2);
    v4l2_buffer buffer = makeBuffer(1);
    ASSERT_EQ(0, ioctl(mFd, VIDIOC_QUERYBUF, &buffer));
    EXPECT_EQ(5000u, buffer.length);
    void* memory = mmap(nullptr, 5000, PROT_READ | PROT_WRITE, MAP_SHARED, mFd, buffer.m.offset);
    ASSERT_NE(MAP_FAILED, memory);
    EXPECT_EQ(static_cast<off_t>(buffer.m.offset),
              mKernel.calls("mmap")[0].as<KernelMapping>().offset);
    memcpy(memory, "frame", 5);
    EXPECT_EQ(0, queue(1, 5));
    EXPECT_THAT(mKernel.sentFrames(), ElementsAre(ElementsAre('f', 'r', 'a', 'm', 'e')));
    EXPECT_EQ(1u, mKernel.openMappings());
    munmap(memory, 5000);
    EXPECT_EQ(0u, mKernel.openMappings());
}

TEST_F(ScriptedKernelTest, GivesBackOnlyBuffersThatWereSent) {
    request(2);
    stream(true);
    ASSERT_EQ(0, queue(1, 0));
    v4l2_buffer buffer = makeBuffer(0);
    EXPECT_EQ(-1, ioctl(mFd, VIDIOC_DQBUF, &buffer));
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_TRUE(mKernel.send());
    EXPECT_FALSE(mKernel.send());
    EXPECT_EQ(0, ioctl(mFd, VIDIOC_DQBUF, &buffer));
    EXPECT_EQ(1u, buffer.index);
}

TEST_F(ScriptedKernelTest, OnlyTheLastCloseForgetsEventsAndStream) {
    const int second = open(kPath, O_RDWR);
    request(1);
    stream(true);
    mKernel.sendEvent(UVC_EVENT_STREAMON);
    close(second);
    EXPECT_TRUE(mKernel.isStreaming());
    close(mFd);
    EXPECT_FALSE(mKernel.isStreaming());
    const int third = open(kPath, O_RDWR);
    v4l2_event event;
    EXPECT_EQ(-1, ioctl(third, VIDIOC_DQEVENT, &event));
    EXPECT_EQ(ENOENT, errno);
    close(third);
}

TEST_F(ScriptedKernelTest, SelectReportsEventsAndSentBuffers) {
    request(2);
    stream(true);
    EXPECT_EQ(0, wait({0, 0}));
    mKernel.sendEvent(UVC_EVENT_STREAMON);
    EXPECT_EQ(1, wait({0, 0}));
    EXPECT_TRUE(exceptional());
    EXPECT_FALSE(writable());
    mKernel.setAutoSend(true);
    ASSERT_EQ(0, queue(0, 0));
    EXPECT_EQ(2, wait({0, 0}));
    EXPECT_TRUE(writable());
}

TEST_F(ScriptedKernelTest, SelectWakesUpForAnEvent) {
    request(1);
    stream(true);
    std::thread sender([&] { mKernel.sendEvent(UVC_EVENT_DISCONNECT); });
    EXPECT_EQ(1, wait({10, 0}));
    EXPECT_TRUE(exceptional());
    sender.join();
}

TEST_F(ScriptedKernelTest, SelectStillWatchesOtherDescriptors) {
    request(1);
    stream(true);
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ASSERT_EQ(1, write(ends[1], "x", 1));
    fd_set read;
    FD_ZERO(&read);
    FD_SET(ends[0], &read);
    FD_SET(mFd, &read);
    EXPECT_EQ(1, select(std::max(ends[0], mFd) + 1, &read, nullptr, nullptr, nullptr));
    EXPECT_TRUE(FD_ISSET(ends[0], &read));
    EXPECT_FALSE(FD_ISSET(mFd, &read));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(ScriptedKernelTest, SelectLooksBelowItsWidthOnly) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ASSERT_EQ(1, write(ends[1], "x", 1));
    fd_set read;
    FD_ZERO(&read);
    FD_SET(ends[0], &read);
    timeval none = {0, 0};
    EXPECT_EQ(0, select(ends[0], &read, nullptr, nullptr, &none));
    EXPECT_FALSE(FD_ISSET(ends[0], &read));
    close(ends[0]);
    close(ends[1]);
}

TEST_F(ScriptedKernelTest, SelectFailsWhenScriptedTo) {
    mKernel.fail("select", EINTR);
    errno = 0;
    EXPECT_EQ(-1, wait({10, 0}));
    EXPECT_EQ(EINTR, errno);
}

TEST_F(ScriptedKernelTest, AnUnpluggedNodeIsGone) {
    mKernel.remove();
    struct stat status;
    EXPECT_EQ(-1, stat(kPath, &status));
    EXPECT_EQ(-1, open(kPath, O_RDWR));
    EXPECT_EQ(ENOENT, errno);
    v4l2_event event;
    EXPECT_EQ(-1, ioctl(mFd, VIDIOC_DQEVENT, &event));
    EXPECT_EQ(ENODEV, errno);
    EXPECT_EQ(2, wait({0, 0}));
}

TEST_F(ScriptedKernelTest, LeavesNoTraceOfFramesWhileItIsQuiet) {
    mKernel.setQuiet(true);
    request(2);
    stream(true);
    mKernel.clearCalls();
    EXPECT_EQ(0, queue(1, 5));
    EXPECT_TRUE(mKernel.send());
    v4l2_buffer buffer = makeBuffer(0);
    EXPECT_EQ(0, ioctl(mFd, VIDIOC_DQBUF, &buffer));
    EXPECT_EQ(1u, buffer.index);
    EXPECT_EQ(-1, ioctl(mFd, VIDIOC_DQBUF, &buffer));
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_THAT(mKernel.calls(), IsEmpty());
    EXPECT_THAT(mKernel.sentFrames(), IsEmpty());
}

TEST_F(ScriptedKernelTest, IsIdleOnceAllIsTakenAndSomebodyWaits) {
    request(1);
    stream(true);
    ASSERT_EQ(0, queue(0, 1));
    ASSERT_TRUE(mKernel.send());
    std::thread taker([this] {
        v4l2_buffer buffer = makeBuffer(0);
        while (wait({10, 0}) == 1 && ioctl(mFd, VIDIOC_DQBUF, &buffer) == 0) {
        }
    });
    mKernel.waitUntilIdle();
    EXPECT_EQ(1u, mKernel.calls("VIDIOC_DQBUF").size());
    EXPECT_EQ(0, mKernel.calls("VIDIOC_DQBUF").front().result);
    mKernel.fail("select", EINTR);
    taker.join();
}

}  // namespace
