// SPDX-License-Identifier: Apache-2.0
// The host's class requests: probe and commit are answered, everything else stalls.
#define LOG_TAG "UVC-V4l2Ctrl"
// 0 to see every block that the host sends.
#define LOG_NDEBUG 1

#include "uvc/UvcV4l2Ctrl.h"

#include <cstring>

#include <endian.h>
#include <linux/usb/video.h>

#include <log/log.h>

#include "uvc/FrameInterval.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

// The function's interface numbers as its driver passes them on.
constexpr uint8_t kControlInterface = 0;
constexpr uint8_t kStreamingInterface = 1;

constexpr uint32_t kUvc15 = 0x0150;
constexpr int32_t kControlLength = 34;
constexpr int32_t kControlLengthUvc15 = 48;
constexpr uint8_t kSupportsGetAndSet = 0x03;

bool isProbeOrCommit(uint8_t selector) {
    return selector == UVC_VS_PROBE_CONTROL || selector == UVC_VS_COMMIT_CONTROL;
}

// False for a request that has no control block.
bool fillControl(const UvcConfig& config, uint8_t request, uvc_streaming_control* control) {
    switch (request) {
        case UVC_GET_CUR:
        case UVC_GET_RES:  // there are no steps: the resolution is the current value
            config.fillCurCtrl(control);
            return true;
        case UVC_GET_MIN:
            config.fillMinCtrl(control);
            return true;
        case UVC_GET_MAX:
            config.fillMaxCtrl(control);
            return true;
        case UVC_GET_DEF:
            config.fillDefaultCtrl(control);
            return true;
        default:
            return false;
    }
}

}  // namespace

void UvcV4l2Ctrl::processClassEvent(const usb_ctrlrequest* request, uvc_request_data* response) {
    if ((request->bRequestType & USB_RECIP_MASK) != USB_RECIP_INTERFACE) return;
    const uint8_t interface = le16toh(request->wIndex) & 0xFF;
    const uint8_t selector = le16toh(request->wValue) >> 8;
    switch (interface) {
        case kStreamingInterface:
            processStreamingEvent(request->bRequest, selector, response);
            break;
        case kControlInterface:
            processControlEvent(request->bRequest, selector);
            break;
    }
}

// Every request stalls, since there are no camera or processing-unit controls: this only logs.
void UvcV4l2Ctrl::processControlEvent(uint8_t request, uint8_t selector) {
    if (selector != 1 && selector != 2) return;
    switch (request) {
        case UVC_SET_CUR:
        case UVC_GET_MIN:
        case UVC_GET_MAX:
        case UVC_GET_RES:
        case UVC_GET_LEN:
        case UVC_GET_INFO:
        case UVC_GET_DEF:
            break;
        case UVC_GET_CUR:
            ALOGD("%s: GET_CUR ", __func__);
            break;
        default:
            ALOGW("%s: Unknown req %d", __func__, request);
    }
}

void UvcV4l2Ctrl::processStreamingEvent(uint8_t request, uint8_t selector,
                                        uvc_request_data* response) {
    if (!isProbeOrCommit(selector)) return;
    Guard guard(mLock);
    response->length = mConfig.getBcdUVC() == kUvc15 ? kControlLengthUvc15 : kControlLength;

    uvc_streaming_control control = {};
    static_assert(sizeof(control) == kControlLength, "the rest of a longer control stays zero");
    if (fillControl(mConfig, request, &control)) {
        memcpy(response->data, &control, sizeof(control));
        return;
    }
    switch (request) {
        case UVC_GET_LEN:
            // Hosts have always been given these two bytes, whatever the version.
            response->data[0] = 0x00;
            response->data[1] = 0x22;
            response->length = 2;
            break;
        case UVC_GET_INFO:
            response->data[0] = kSupportsGetAndSet;
            response->length = 1;
            break;
        case UVC_SET_CUR:
            mConfig.setControlSelector(selector);
            break;
        default:
            ALOGW("%s: Unknown req %d", __func__, request);
    }
}

void UvcV4l2Ctrl::handleData(const uvc_request_data* data) {
    uvc_streaming_control control;
    memcpy(&control, data->data, sizeof(control));
    ALOGV("%s: %s", __func__, UvcConfig::ctrlValsToString(&control).c_str());

    Guard guard(mLock);
    const int32_t selector = mConfig.getControlSelector();
    if (selector != UVC_VS_PROBE_CONTROL && selector != UVC_VS_COMMIT_CONTROL) {
        ALOGD("setting unknown control, length = %d\n", data->length);
        return;
    }
    // An index that doesn't exist changes nothing: the host reads the previous choice back.
    (void)mConfig.setVideoStreamConfig(control.bFormatIndex, control.bFrameIndex,
                                       le32toh(control.dwFrameInterval));
    if (selector == UVC_VS_PROBE_CONTROL) {
        ALOGD("setting probe control, length = %d", data->length);
        return;
    }
    ALOGD("setting commit control, length = %d", data->length);
    commitFormat_l();
}

void UvcV4l2Ctrl::commitFormat_l() {
    v4l2_format format = {};
    format.type = getV4l2BufferType();
    v4l2_pix_format& pix = format.fmt.pix;
    pix.width = mConfig.getWidth();
    pix.height = mConfig.getHeight();
    pix.pixelformat = mConfig.getFormat();
    pix.field = V4L2_FIELD_ANY;
    if (pix.pixelformat == V4L2_PIX_FMT_MJPEG) pix.sizeimage = pix.width * pix.height * 2;
    // The text names the caller.
    ALOGD("%s: commit with fmt: %s, size: %dx%d, fps: %.2f", "handleData",
          mConfig.getFormatName().c_str(), pix.width, pix.height,
          kIntervalsPerSecond / static_cast<float>(mConfig.getFrameInterval()));
    (void)setFormat(&format);  // logged; the host has had its answer
    noteMode_l();
    mStats.note(Event::MODE_COMMITTED);
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
