// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UVC-Config"

#include "uvc/UvcConfig.h"

#include <cstddef>
#include <cstring>

#include <linux/usb/g_uvc.h>

#include <log/log.h>

#include "uvc/ConfigfsAttribute.h"
#include "uvc/Truncate.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

constexpr char kFunction[] = "/config/usb_gadget/g1/functions/uvc.0";

// Everything up to bMaxVersion: what a UVC 1.1 host knows. A longer control keeps its tail.
constexpr size_t kControlSize = 34;
static_assert(offsetof(uvc_streaming_control, bMaxVersion) + 1 == kControlSize);

// The entry, or one of zeros where there is none.
template <typename T>
const T& entryOrZeros(const std::vector<T>& entries, size_t position) {
    static const T sZeros{};
    return position < entries.size() ? entries[position] : sZeros;
}

uint32_t firstInterval(const uvc_function_config_frame& frame) {
    return frame.intervals.empty() ? 0 : frame.intervals.front();
}

uint32_t lastInterval(const uvc_function_config_frame& frame) {
    return frame.intervals.empty() ? 0 : frame.intervals.back();
}

uint32_t frameSize(const uvc_function_config_format& format,
                   const uvc_function_config_frame& frame) {
    return truncateTo<uint32_t>(static_cast<float>(frame.width * frame.height) *
                                format.bytesPerPixel);
}

// The current control takes the product as a signed number, the others don't.
uint32_t currentFrameSize(const uvc_function_config_format& format,
                          const uvc_function_config_frame& frame) {
    const auto pixels = static_cast<int32_t>(frame.width * frame.height);
    return truncateTo<uint32_t>(static_cast<float>(pixels) * format.bytesPerPixel);
}

}  // namespace

UvcConfig::UvcConfig() {
    buildDataStruct();
}

UvcConfig::~UvcConfig() = default;

void UvcConfig::buildDataStruct() {
    const std::string function = kFunction;
    mStreamingInterval = readUnsignedAttribute(function + "/streaming_interval");
    mStreamingMaxBurst = readUnsignedAttribute(function + "/streaming_maxburst");
    mStreamingMaxPacket = readUnsignedAttribute(function + "/streaming_maxpacket");
    mBcdUVC = readUnsignedAttribute(function + "/control/header/h/bcdUVC");
    mFormats = readFunctionFormats(function);
}

void UvcConfig::setControlSelector(int32_t selector) {
    mControlSelector = selector;
    mActiveSlot = selector == UVC_VS_COMMIT_CONTROL ? 1 : 0;
    if (selector != UVC_VS_PROBE_CONTROL && selector != UVC_VS_COMMIT_CONTROL) {
        ALOGE("Unsupported control selector set: %d!", selector);
    }
}

bool UvcConfig::setVideoStreamConfig(int32_t format, int32_t frame, uint32_t interval) {
    if (format < 1 || static_cast<size_t>(format) > mFormats.size()) {
        ALOGE("Invalid format set: %d", format);
        return false;
    }
    if (frame < 1 || static_cast<size_t>(frame) > mFormats[format - 1].frames.size()) {
        ALOGE("Invalid frameIndex(%d) for format(%d) set", frame, format);
        return false;
    }
    mFormatIndex[mActiveSlot] = format - 1;
    mFrameIndex[mActiveSlot] = frame - 1;
    mFrameInterval[mActiveSlot] = interval;
    return true;
}

const uvc_function_config_format& UvcConfig::selectedFormat() const {
    return entryOrZeros(mFormats, mFormatIndex[mActiveSlot]);
}

const uvc_function_config_frame& UvcConfig::selectedFrame() const {
    return entryOrZeros(selectedFormat().frames, mFrameIndex[mActiveSlot]);
}

uint32_t UvcConfig::getWidth() const {
    return selectedFrame().width;
}

uint32_t UvcConfig::getHeight() const {
    return selectedFrame().height;
}

uint32_t UvcConfig::getFrameInterval() const {
    return mFrameInterval[mActiveSlot];
}

uint32_t UvcConfig::getFormat() const {
    return selectedFormat().fourcc;
}

std::string UvcConfig::getFormatName() const {
    std::string name;
    for (uint32_t code = getFormat(); code != 0; code >>= 8) {
        name += static_cast<char>(code & 0xff);
    }
    return name;
}

void UvcConfig::fillCommon(uvc_streaming_control* ctrl) const {
    memset(ctrl, 0, kControlSize);
    ctrl->bmHint = 1;
    ctrl->bFormatIndex = mFormatIndex[mActiveSlot] + 1;
    ctrl->dwMaxPayloadTransferSize = mStreamingMaxPacket;
    ctrl->bmFramingInfo = 3;
    ctrl->bPreferedVersion = 1;
    ctrl->bMaxVersion = 1;
}

void UvcConfig::fillMinCtrl(uvc_streaming_control* ctrl) const {
    const auto& smallest = entryOrZeros(selectedFormat().frames, 0);
    fillCommon(ctrl);
    ctrl->bFrameIndex = 1;
    ctrl->dwFrameInterval = lastInterval(smallest);
    ctrl->dwMaxVideoFrameSize = frameSize(selectedFormat(), smallest);
}

void UvcConfig::fillMaxCtrl(uvc_streaming_control* ctrl) const {
    const size_t count = entryOrZeros(mFormats, 0).frames.size();
    const auto& largest = entryOrZeros(selectedFormat().frames, count - 1);
    fillCommon(ctrl);
    ctrl->bFrameIndex = static_cast<uint8_t>(count);
    ctrl->dwFrameInterval = firstInterval(largest);
    ctrl->dwMaxVideoFrameSize = frameSize(selectedFormat(), largest);
}

void UvcConfig::fillCurCtrl(uvc_streaming_control* ctrl) const {
    fillCommon(ctrl);
    ctrl->bFrameIndex = mFrameIndex[mActiveSlot] + 1;
    ctrl->dwFrameInterval = getFrameInterval();
    ctrl->dwMaxVideoFrameSize = currentFrameSize(selectedFormat(), selectedFrame());
}

std::string UvcConfig::ctrlValsToString(const uvc_streaming_control* ctrl) {
    return "bmHint: " + std::to_string(ctrl->bmHint) +
           " bFormatIndex: " + std::to_string(ctrl->bFormatIndex) +
           " bFrameIndex: " + std::to_string(ctrl->bFrameIndex) +
           " dwFrameInterval: " + std::to_string(ctrl->dwFrameInterval) +
           " dwMaxVideoFrameSize: " + std::to_string(ctrl->dwMaxVideoFrameSize) +
           " dwMaxPayloadTransferSize: " + std::to_string(ctrl->dwMaxPayloadTransferSize) +
           " bmFrameInfo: " + std::to_string(ctrl->bmFramingInfo) +
           " bPreferedVersion: " + std::to_string(ctrl->bPreferedVersion) +
           " bMaxVersion: " + std::to_string(ctrl->bMaxVersion);
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
