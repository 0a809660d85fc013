// SPDX-License-Identifier: Apache-2.0
// What the gadget's UVC function offers, as configfs describes it: formats, frame sizes, intervals.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** One frame size of a format. */
struct uvc_function_config_frame {
    /** In pixels. */
    uint32_t width = 0;
    uint32_t height = 0;
    /** In units of 100 ns, in the order in which the function lists them. */
    std::vector<uint32_t> intervals;
};

/** One streaming format. */
struct uvc_function_config_format {
    /** V4L2 code of the pixel format; 0 while unknown. */
    uint32_t fourcc = 0;
    /** Factor from the pixel count to the largest frame size in bytes; 1 for MJPEG. */
    float bytesPerPixel = 0;
    /** By ascending pixel count; the position plus 1 is the host's frame index. */
    std::vector<uvc_function_config_frame> frames;
};

/**
 * Reads the formats of a UVC function: the uncompressed one named "u", then the MJPEG one named
 * "m", each only if it has at least one usable frame size. Other format folders are not looked at.
 *
 * An attribute that doesn't begin with a decimal number is logged, and the conversion's exception
 * ends the process: nothing catches it.
 *
 * @param function the function's folder in configfs
 * @return at most two formats; the position plus 1 is the host's format index
 */
std::vector<uvc_function_config_format> readFunctionFormats(const std::string& function);

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
