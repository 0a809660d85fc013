// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UVC-V4l2CtrlBase"

#include "uvc/V4l2CtrlBase.h"

#include <cerrno>
#include <cstring>

#include <sys/ioctl.h>

#include <log/log.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

int32_t V4l2CtrlBase::control(int node, unsigned long request, const char* failure,
                              void* argument) {
    const int32_t result = ioctl(node, request, argument);
    if (result != 0) {
        onFailure();
        ALOGE(failure, errno);
    }
    return result;
}

int32_t V4l2CtrlBase::setFormat(v4l2_format* fmt) {
    return control(getV4l2DeviceFd(), VIDIOC_S_FMT, "VIDIOC_S_FMT failed %d", fmt);
}

int32_t V4l2CtrlBase::streamOn() {
    const int node = getV4l2DeviceFd();
    uint32_t type = getV4l2BufferType();
    return control(node, VIDIOC_STREAMON, "VIDIOC_STREAMON failed %d", &type);
}

int32_t V4l2CtrlBase::streamOff() {
    const int node = getV4l2DeviceFd();
    uint32_t type = getV4l2BufferType();
    return control(node, VIDIOC_STREAMOFF, "VIDIOC_STREAMOFF failed %d", &type);
}

int32_t V4l2CtrlBase::subscribe(int type) {
    v4l2_event_subscription subscription = {};
    subscription.type = type;
    return control(getV4l2DeviceFd(), VIDIOC_SUBSCRIBE_EVENT, "VIDIOC_SUBSCRIBE_EVENT failed %d",
                   &subscription);
}

int32_t V4l2CtrlBase::dqevent(v4l2_event* ev) {
    return control(getV4l2DeviceFd(), VIDIOC_DQEVENT, "VIDIOC_DQEVENT failed %d", ev);
}

int32_t V4l2CtrlBase::requestBuffer(unsigned int count, v4l2_memory memory) {
    const int node = getV4l2DeviceFd();
    v4l2_requestbuffers request = {};
    request.count = count;
    request.type = getV4l2BufferType();
    request.memory = memory;
    // The gadget's driver returns the number of buffers, so a value above 0 isn't a failure here.
    const int32_t result = ioctl(node, VIDIOC_REQBUFS, &request);
    if (result < 0) {
        onFailure();
        ALOGE("VIDIOC_REQBUFS failed %d:  %s (%d)", result, strerror(errno), errno);
    }
    return result;
}

int32_t V4l2CtrlBase::queryBuffer(v4l2_buffer* buf) {
    return control(getV4l2DeviceFd(), VIDIOC_QUERYBUF, "VIDIOC_QUERYBUF failed %d", buf);
}

int32_t V4l2CtrlBase::queueBuffer(v4l2_buffer* buf) {
    return control(getV4l2DeviceFd(), VIDIOC_QBUF, "VIDIOC_QBUF failed %d", buf);
}

int32_t V4l2CtrlBase::dequeBuffer(v4l2_buffer* buf) {
    return control(getV4l2DeviceFd(), VIDIOC_DQBUF, "VIDIOC_DQBUF failed %d", buf);
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
