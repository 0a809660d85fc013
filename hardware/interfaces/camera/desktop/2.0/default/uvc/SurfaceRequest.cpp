// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UVC-GadgetHandler"

#include "uvc/SurfaceRequest.h"

#include <linux/videodev2.h>

#include <JsonUtils.h>
#include <log/log.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::JsonUtils;

const char* SurfaceRequest::read(const rapidjson::Value& params) {
    if (JsonUtils::parseValue(params, "width", width, -1) != 0) return "width missing";
    if (JsonUtils::parseValue(params, "height", height, -1) != 0) return "height missing";
    if (JsonUtils::parseValue(params, "consumer-usage", consumerUsage, -1) != 0) {
        return "consumer usage missing";
    }
    if (JsonUtils::parseValue(params, "v4l2-format", format, -1) != 0) return "format missing";
    if (JsonUtils::parseValue(params, "fps", fps, -1) != 0) return "fps missing";
    return nullptr;
}

// Longer texts are cut to the four characters of a code.
uint32_t SurfaceRequest::fourcc() const {
    if (format.size() < 4) {
        ALOGE("input format isn't a valid v4l2_fourcc length");
        return 0;
    }
    const auto byte = [this](size_t i) { return static_cast<uint8_t>(format[i]); };
    return v4l2_fourcc(byte(0), byte(1), byte(2), byte(3));
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
