// SPDX-License-Identifier: Apache-2.0
// The node and its stream: open and close, the events, start and stop.
#define LOG_TAG "UVC-V4l2Ctrl"

#include "uvc/UvcV4l2Ctrl.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/ioctl.h>

#include <log/log.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::base::unique_fd;

namespace {

constexpr uint32_t kBufferNum = 4;
constexpr int kMaxWriteFailures = 5;

// Consecutive ones, whichever device they came from.
std::atomic<int> sWriteFailures{0};

}  // namespace

UvcV4l2Ctrl::UvcV4l2Ctrl(const char* devName, ServiceStats& stats)
    : mDevName(devName), mStats(stats) {}

UvcV4l2Ctrl::~UvcV4l2Ctrl() {
    mStats.setNode(NodeState::NONE);
    closeNode();
    for (OutputBuffer& buffer : mBuffers) buffer.memory.leave();
}

void UvcV4l2Ctrl::closeNode() {
    unique_fd(std::exchange(fd, -1)).reset();
}

void UvcV4l2Ctrl::onFailure() {
    mStats.count(Count::CALLS_FAILED);
    mStats.note(Event::CALL_FAILED, errno);
}

const char* UvcV4l2Ctrl::getV4l2DevName() {
    return mDevName.c_str();
}

int UvcV4l2Ctrl::getV4l2DeviceFd() {
    return fd;
}

uint32_t UvcV4l2Ctrl::getV4l2BufferType() {
    return V4L2_BUF_TYPE_VIDEO_OUTPUT;
}

uint32_t UvcV4l2Ctrl::getBufferNum() {
    return kBufferNum;
}

StreamSettings UvcV4l2Ctrl::getStreamSettings() const {
    Guard guard(mLock);
    return {mConfig.getWidth(), mConfig.getHeight(), mConfig.getFormat(), mConfig.getFormatName(),
            mConfig.getFrameInterval()};
}

int UvcV4l2Ctrl::open() {
    Guard guard(mLock);
    if (mState != State::CLOSED) {
        ++mFurtherOpens;
        return 0;
    }
    if (fd >= 0) {
        ALOGE("FIX:first open but fd valid");
        return -EINVAL;
    }
    fd = watchable(::open(mDevName.c_str(), O_RDWR | O_NONBLOCK));
    if (fd < 0) {
        ALOGE("open [%s] failed %d", mDevName.c_str(), errno);
        mStats.setNode(NodeState::UNOPENED, mDevName.c_str());
        return -ENODEV;
    }
    subscribeEvents();
    setInitialFormat_l();
    mStats.setNode(NodeState::READY, mDevName.c_str());
    mState = State::READY;
    return 0;
}

void UvcV4l2Ctrl::subscribeEvents() {
    for (int type : {UVC_EVENT_SETUP, UVC_EVENT_DATA, UVC_EVENT_STREAMON, UVC_EVENT_STREAMOFF,
                     UVC_EVENT_CONNECT, UVC_EVENT_DISCONNECT}) {
        (void)subscribe(type);  // logged; the other events come all the same
    }
}

void UvcV4l2Ctrl::setInitialFormat_l() {
    v4l2_format format = {};
    format.type = getV4l2BufferType();
    format.fmt.pix.width = mConfig.getWidth();
    format.fmt.pix.height = mConfig.getHeight();
    format.fmt.pix.pixelformat = mConfig.getFormat();
    format.fmt.pix.field = V4L2_FIELD_NONE;
    (void)setFormat(&format);  // logged; the host chooses its own later
    noteMode_l();
}

void UvcV4l2Ctrl::noteMode_l() {
    mStats.setMode(mConfig.getWidth(), mConfig.getHeight(), mConfig.getFormat(),
                   mConfig.getFrameInterval());
}

int UvcV4l2Ctrl::close() {
    handleStopStream();
    Guard guard(mLock);
    if (mState == State::CLOSED) return 0;
    if (mFurtherOpens > 0) {
        --mFurtherOpens;
        return 0;
    }
    mState = State::CLOSED;
    if (fd >= 0) {
        closeNode();
        mStats.setNode(NodeState::CLOSED);
    } else {
        ALOGE("FIX:close without open");
    }
    return 0;
}

int32_t UvcV4l2Ctrl::handlePendingData(PENDING_DATA_TYPE type) {
    switch (type) {
        case DATA_EXCEPTION:
            handleEvent();
            return 0;
        case DATA_WRITABLE:
            return takeBackOrGiveUp();
        default:
            ALOGW("Unknown data type: %d", type);
            return 0;
    }
}

int UvcV4l2Ctrl::takeBackOrGiveUp() {
    if (handleWrite() != -1) {
        sWriteFailures = 0;
        return 0;
    }
    if (++sWriteFailures < kMaxWriteFailures) return 0;
    ALOGE("Too many streaming errors, forcing it to stop.");
    mStats.note(Event::WRITES_GIVEN_UP);
    sWriteFailures = 0;
    handleStopStream();
    return -1;
}

void UvcV4l2Ctrl::handleEvent() {
    v4l2_event event = {};
    if (dqevent(&event) != 0) return;

    uvc_event payload;
    static_assert(sizeof(payload) <= sizeof(event.u), "the payload is part of the event");
    memcpy(&payload, event.u.data, sizeof(payload));
    switch (event.type) {
        case UVC_EVENT_CONNECT:
            break;
        case UVC_EVENT_DISCONNECT:
            mStats.note(Event::HOST_DISCONNECTED);
            close();
            break;
        case UVC_EVENT_STREAMON:
            handleStartStream();
            break;
        case UVC_EVENT_STREAMOFF:
            handleStopStream();
            break;
        case UVC_EVENT_SETUP:
            handleSetup(payload.req);
            break;
        case UVC_EVENT_DATA:
            handleData(&payload.data);
            break;
        default:
            ALOGW("%s: Unknown event type %d", __func__, event.type);
    }
}

void UvcV4l2Ctrl::handleSetup(const usb_ctrlrequest& request) {
    uvc_request_data response = {};
    response.length = -EL2HLT;  // a stall, unless the request is answered below
    if ((request.bRequestType & USB_TYPE_MASK) == USB_TYPE_CLASS) {
        processClassEvent(&request, &response);
    }
    mStats.count(response.length < 0 ? Count::REQUESTS_STALLED : Count::REQUESTS_ANSWERED);
    if (ioctl(fd, UVCIOC_SEND_RESPONSE, &response) < 0) {
        ALOGE("UVCIOC_SEND_RESPONSE failed: %s (%d)\n", strerror(errno), errno);
    }
}

void UvcV4l2Ctrl::handleStartStream() {
    Guard guard(mLock);
    if (isStreaming()) return;
    if (!allocBuffers_l()) {
        ALOGE("Failed to alloc buffers");
        mStats.note(Event::STREAM_REFUSED);
        return;
    }
    if (streamOn() != 0) {
        mStats.note(Event::STREAM_REFUSED);
        releaseBuffers_l();
        return;
    }
    mState = State::STREAMING;
    mStats.streamStarted(static_cast<uint32_t>(mBuffers.size()));
    notify_l(&EventListener::onStreamStart);
}

void UvcV4l2Ctrl::handleStopStream() {
    Guard guard(mLock);
    if (!isStreaming()) return;
    mState = State::READY;
    mStats.streamStopped();
    notify_l(&EventListener::onStreamStop);
    (void)streamOff();  // logged; the stream is over either way
    releaseBuffers_l();
    mStats.buffersReleased();
    mFrameCount = 0;
    mConverter.release();
    mDumpFile.reset();
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
