// SPDX-License-Identifier: Apache-2.0
#include "BareGadget.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include <endian.h>
#include <fcntl.h>
#include <linux/usb/ch9.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>

namespace korvane::bench {
namespace {

// vm/gadget's default.
constexpr uint32_t kMaxPacket = 3072;
constexpr int32_t kStall = -EL2HLT;
constexpr uint32_t kEvents[] = {UVC_EVENT_SETUP, UVC_EVENT_DATA, UVC_EVENT_STREAMON,
                                UVC_EVENT_STREAMOFF, UVC_EVENT_DISCONNECT};

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + strerror(errno));
}

v4l2_buffer bufferOf(uint32_t index) {
    v4l2_buffer buffer = {};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffer.memory = V4L2_MEMORY_MMAP;
    return buffer;
}

}  // namespace

BareGadget::BareGadget(const std::string& node, const BareFormat& format)
    : mFormat(format), mNode(open(node.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) {
    if (!mNode.ok()) fail(node);
    mControl.bmHint = 1;
    mControl.bFormatIndex = 1;
    mControl.bFrameIndex = 1;
    mControl.dwFrameInterval = htole32(333333);
    mControl.dwMaxVideoFrameSize = htole32(format.width * format.height * 2);
    mControl.dwMaxPayloadTransferSize = htole32(kMaxPacket);
    for (const uint32_t type : kEvents) {
        v4l2_event_subscription subscription = {};
        subscription.type = type;
        request(VIDIOC_SUBSCRIBE_EVENT, &subscription, "no events");
    }
}

void BareGadget::request(unsigned long name, void* argument, const char* what) const {
    if (ioctl(mNode.get(), name, argument) < 0) fail(what);
}

void BareGadget::run() {
    const int fd = mNode.get();
    for (;;) {
        fd_set write, except;
        FD_ZERO(&write);
        FD_ZERO(&except);
        FD_SET(fd, &except);
        {
            std::lock_guard<std::mutex> guard(mLock);
            if (mIsStreaming) FD_SET(fd, &write);
        }
        if (select(fd + 1, nullptr, &write, &except, nullptr) < 0) fail("no select");
        if (FD_ISSET(fd, &except)) handleEvent();
        if (FD_ISSET(fd, &write)) takeBack();
    }
}

void BareGadget::handleEvent() {
    v4l2_event event = {};
    request(VIDIOC_DQEVENT, &event, "no event");
    uvc_event payload;
    memcpy(&payload, event.u.data, sizeof(payload));
    switch (event.type) {
        case UVC_EVENT_SETUP:
            answer(payload.req);
            break;
        case UVC_EVENT_DATA:
            take(payload.data);
            break;
        case UVC_EVENT_STREAMON:
            start();
            break;
        default:
            stop();
    }
}

void BareGadget::answer(const usb_ctrlrequest& asked) {
    static constexpr uint8_t kLength[] = {sizeof(uvc_streaming_control), 0};
    static constexpr uint8_t kGetAndSet[] = {3};
    mSelector = le16toh(asked.wValue) >> 8;
    const bool isControl =
            (asked.bRequestType & USB_TYPE_MASK) == USB_TYPE_CLASS &&
            (le16toh(asked.wIndex) & 0xFF) == 1 &&
            (mSelector == UVC_VS_PROBE_CONTROL || mSelector == UVC_VS_COMMIT_CONTROL);
    if (!isControl) return respond(nullptr, kStall);
    switch (asked.bRequest) {
        case UVC_GET_LEN:
            return respond(kLength, sizeof(kLength));
        case UVC_GET_INFO:
            return respond(kGetAndSet, sizeof(kGetAndSet));
        default:
            // A SET request reads into these bytes instead.
            return respond(&mControl, sizeof(mControl));
    }
}

void BareGadget::respond(const void* data, int32_t length) const {
    uvc_request_data response = {};
    response.length = length;
    if (length > 0) memcpy(response.data, data, length);
    request(UVCIOC_SEND_RESPONSE, &response, "no response");
}

void BareGadget::take(const uvc_request_data& data) {
    uvc_streaming_control set;
    memcpy(&set, data.data, sizeof(set));
    mControl.bFormatIndex = set.bFormatIndex;
    mControl.bFrameIndex = set.bFrameIndex;
    mControl.dwFrameInterval = set.dwFrameInterval;
    if (mSelector == UVC_VS_COMMIT_CONTROL) setFormat();
}

void BareGadget::setFormat() const {
    v4l2_format format = {};
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    format.fmt.pix.width = mFormat.width;
    format.fmt.pix.height = mFormat.height;
    format.fmt.pix.pixelformat = mFormat.fourcc;
    format.fmt.pix.field = V4L2_FIELD_ANY;
    format.fmt.pix.sizeimage = mFormat.width * mFormat.height * 2;
    request(VIDIOC_S_FMT, &format, "no format");
}

void BareGadget::start() {
    std::lock_guard<std::mutex> guard(mLock);
    v4l2_requestbuffers buffers = {};
    buffers.count = kBuffers;
    buffers.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffers.memory = V4L2_MEMORY_MMAP;
    request(VIDIOC_REQBUFS, &buffers, "no buffers");
    for (uint32_t i = 0; i < kBuffers; ++i) {
        v4l2_buffer asked = bufferOf(i);
        request(VIDIOC_QUERYBUF, &asked, "no buffer");
        void* const memory = mmap(nullptr, asked.length, PROT_READ | PROT_WRITE, MAP_SHARED,
                                  mNode.get(), asked.m.offset);
        if (memory == MAP_FAILED) fail("no memory of a buffer");
        mBuffers[i] = {static_cast<uint8_t*>(memory), asked.length, true};
    }
    uint32_t type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    request(VIDIOC_STREAMON, &type, "no stream");
    mIsStreaming = true;
}

void BareGadget::stop() {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mIsStreaming) return;
    mIsStreaming = false;
    uint32_t type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    request(VIDIOC_STREAMOFF, &type, "no end of the stream");
    for (Buffer& buffer : mBuffers) {
        munmap(buffer.memory, buffer.size);
        buffer = {};
    }
    v4l2_requestbuffers none = {};
    none.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    none.memory = V4L2_MEMORY_MMAP;
    request(VIDIOC_REQBUFS, &none, "no end of the buffers");
    fprintf(stderr, "the stream has ended\n");
}

void BareGadget::takeBack() {
    v4l2_buffer sent = bufferOf(0);
    if (ioctl(mNode.get(), VIDIOC_DQBUF, &sent) < 0) return;
    std::lock_guard<std::mutex> guard(mLock);
    mBuffers[sent.index].isFree = mIsStreaming;
}

bool BareGadget::queue(const Fill& fill) {
    std::lock_guard<std::mutex> guard(mLock);
    for (uint32_t i = 0; i < kBuffers; ++i) {
        if (!mBuffers[i].isFree) continue;
        v4l2_buffer next = bufferOf(i);
        next.bytesused = fill(mBuffers[i].memory, mBuffers[i].size);
        // Refused if the host has just gone.
        mBuffers[i].isFree = ioctl(mNode.get(), VIDIOC_QBUF, &next) != 0;
        return !mBuffers[i].isFree;
    }
    return false;
}

}  // namespace korvane::bench
