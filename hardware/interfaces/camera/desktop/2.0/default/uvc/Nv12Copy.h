// SPDX-License-Identifier: Apache-2.0
// Copying a YCbCr 4:2:0 frame as NV12, strides and all.
#pragma once

#include <cstdint>

#include <system/graphics.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** The bytes that copyNv12() fills: rows keep the strides that they have in the frame. */
uint64_t nv12Size(const android_ycbcr& planes, uint32_t height);

/**
 * Copies the luma and, right after it, the chroma, taken as one interleaved plane that starts at
 * cb. In a frame that has cr first, the last byte of that plane would lie past the frame's end; it
 * is left as it was.
 *
 * @param out takes nv12Size() bytes
 */
void copyNv12(const android_ycbcr& planes, uint32_t height, uint8_t* out);

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
