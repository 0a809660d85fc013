// SPDX-License-Identifier: Apache-2.0
// What a client asks for with "create-surface".
#pragma once

#include <cstdint>
#include <string>

#include <rapidjson/document.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** The fields of a "create-surface" command, as the client sent them: none is checked for sense. */
struct SurfaceRequest {
    int width = 0;          // pixels; bytes for a compressed format
    int height = 0;         // lines
    int consumerUsage = 0;  // usage bits of the graphic buffers
    std::string format;     // the V4L2 pixel format's four characters
    float fps = 0;          // frames per second

    /**
     * Reads the command's value. Returns null when every field is there, else the text of the reply
     * for the first field that is missing or of a wrong type.
     */
    const char* read(const rapidjson::Value& params);

    /** The format's code; 0, with a line, when its text is too short for one. */
    uint32_t fourcc() const;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
