// SPDX-License-Identifier: Apache-2.0
// What a client asks for with "create-surface".
#pragma once

#include <cstdint>

#include <rapidjson/document.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** The fields of a "create-surface" command, as the client sent them: none is checked for sense. */
struct SurfaceRequest {
    int width = 0;          // pixels; bytes for a compressed format
    int height = 0;         // lines
    int consumerUsage = 0;  // usage bits of the graphic buffers
    uint32_t fourcc = 0;    // V4L2 pixel format; 0 when the text was too short for one
    float fps = 0;          // frames per second

    /**
     * Reads the command's value. Returns null when every field is there, else the text of the reply
     * for the first field that is missing or of a wrong type.
     */
    const char* read(const rapidjson::Value& params);
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
