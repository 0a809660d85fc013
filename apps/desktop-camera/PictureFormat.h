// SPDX-License-Identifier: Apache-2.0
// The format of a stream's pictures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace korvane::camera {

/** Format, size and rate that the host and the service have agreed on. */
struct PictureFormat {
    std::string fourcc;  // NV12, from which the service also makes YUYV, or MJPG
    uint32_t width = 0;
    uint32_t height = 0;
    double fps = 0;

    bool operator==(const PictureFormat& other) const {
        return fourcc == other.fourcc && width == other.width && height == other.height &&
               fps == other.fps;
    }

    bool isJpeg() const { return fourcc == "MJPG"; }

    /** Bytes of the largest JPEG file that the host has room for. */
    size_t jpegLimit() const { return size_t{width} * height; }
};

}  // namespace korvane::camera
