// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "UVC-Config"

#include "uvc/UvcFunctionConfig.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include <dirent.h>
#include <linux/videodev2.h>

#include <log/log.h>

#include "uvc/ConfigfsAttribute.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

uint32_t pixelCount(const uvc_function_config_frame& frame) {
    return frame.width * frame.height;
}

// prefix: the directory's path and a slash.
uvc_function_config_frame readFrame(DIR* directory, const std::string& prefix) {
    uvc_function_config_frame frame;
    while (const dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        const std::string attribute = prefix + name;
        if (name == "wWidth") {
            frame.width = readUnsignedAttribute(attribute);
        } else if (name == "wHeight") {
            frame.height = readUnsignedAttribute(attribute);
        } else if (name == "dwFrameInterval") {
            frame.intervals = readUnsignedLines(attribute);
        }
    }
    return frame;
}

void insertByPixelCount(uvc_function_config_frame frame,
                        std::vector<uvc_function_config_frame>* frames) {
    if (pixelCount(frame) == 0 || frame.intervals.empty()) return;
    const auto position = std::upper_bound(
            frames->begin(), frames->end(), pixelCount(frame),
            [](uint32_t pixels, const auto& other) { return pixels < pixelCount(other); });
    frames->insert(position, std::move(frame));
}

void parseStreamingConfig(const std::string& path, uvc_function_config_format& format) {
    const Directory directory(opendir(path.c_str()));
    if (directory == nullptr) {
        ALOGE("opendir (%s) returned null: %s", path.c_str(), strerror(errno));
        return;
    }
    while (const dirent* entry = readdir(directory.get())) {
        if (entry->d_type != DT_DIR) continue;
        const std::string framePath = path + "/" + entry->d_name;
        const Directory frameDirectory(opendir(framePath.c_str()));
        if (frameDirectory == nullptr) {
            ALOGE("opendir returned null: %s", strerror(errno));
            continue;
        }
        insertByPixelCount(readFrame(frameDirectory.get(), framePath + "/"), &format.frames);
    }
}

// The code of a GUID; 0 when it is unknown.
uint32_t fourccOf(const std::string& guid) {
    if (guid.find("NV12") != std::string::npos) return V4L2_PIX_FMT_NV12;
    if (guid.find("YUY2") != std::string::npos) return V4L2_PIX_FMT_YUYV;
    ALOGE("Unknown format found %s", guid.c_str());
    return 0;
}

void addUncompressed(const std::string& path, std::vector<uvc_function_config_format>* formats) {
    uvc_function_config_format format;
    parseStreamingConfig(path, format);
    if (format.frames.empty()) return;
    const int bitsPerPixel = readIntAttribute(path + "/bBitsPerPixel");
    format.bytesPerPixel = static_cast<float>(bitsPerPixel) * 0.125f;
    format.fourcc = fourccOf(readAttribute(path + "/guidFormat"));
    if (format.fourcc != 0) formats->push_back(std::move(format));
}

void addMjpeg(const std::string& path, std::vector<uvc_function_config_format>* formats) {
    uvc_function_config_format format;
    parseStreamingConfig(path, format);
    if (format.frames.empty()) return;
    format.fourcc = V4L2_PIX_FMT_MJPEG;
    format.bytesPerPixel = 1.0f;
    formats->push_back(std::move(format));
}

}  // namespace

std::vector<uvc_function_config_format> readFunctionFormats(const std::string& function) {
    std::vector<uvc_function_config_format> formats;
    addUncompressed(function + "/streaming/uncompressed/u", &formats);
    addMjpeg(function + "/streaming/mjpeg/m", &formats);
    return formats;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
