// SPDX-License-Identifier: Apache-2.0
#include "support/BareNode.h"

#include <algorithm>
#include <stdexcept>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>

#include "support/Samples.h"

namespace korvane::bench {
namespace {

constexpr uint32_t kBuffers = 4;

v4l2_buffer buffer(uint32_t index = 0) {
    v4l2_buffer buffer = {};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffer.memory = V4L2_MEMORY_MMAP;
    return buffer;
}

}  // namespace

BareNode::BareNode() : mFd(open(mNode.path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) {
    v4l2_requestbuffers buffers = {};
    buffers.count = kBuffers;
    buffers.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffers.memory = V4L2_MEMORY_MMAP;
    request(VIDIOC_REQBUFS, &buffers);
    uint32_t type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    request(VIDIOC_STREAMON, &type);
    if (pipe2(mEnd, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    mNode.setQuiet(true);
    mThread = std::thread([this] { takeBack(); });
    pthread_getcpuclockid(mThread.native_handle(), &mThreadTime);
}

BareNode::~BareNode() {
    close(mEnd[1]);
    mThread.join();
    close(mEnd[0]);
    close(mFd);
}

int64_t BareNode::pass() {
    const int64_t cpu = timed(CLOCK_THREAD_CPUTIME_ID, [&] { queue(); });
    return cpu + timed(mThreadTime, [&] {
               if (!mNode.send()) throw std::runtime_error("the buffer was not queued");
               mNode.waitUntilIdle();
           });
}

void BareNode::request(unsigned long name, void* argument) const {
    if (ioctl(mFd, name, argument) < 0) throw std::runtime_error("the node refuses a request");
}

void BareNode::queue() {
    v4l2_buffer next = buffer(mPassed++ % kBuffers);
    request(VIDIOC_QBUF, &next);
}

void BareNode::takeBack() const {
    while (true) {
        fd_set read, write, except;
        FD_ZERO(&read);
        FD_ZERO(&write);
        FD_ZERO(&except);
        FD_SET(mEnd[0], &read);
        FD_SET(mFd, &write);
        FD_SET(mFd, &except);
        select(std::max(mFd, mEnd[0]) + 1, &read, &write, &except, nullptr);
        if (FD_ISSET(mEnd[0], &read)) return;
        v4l2_buffer sent = buffer();
        if (FD_ISSET(mFd, &write)) request(VIDIOC_DQBUF, &sent);
    }
}

}  // namespace korvane::bench
