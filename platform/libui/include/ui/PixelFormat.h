// SPDX-License-Identifier: Apache-2.0
// Pixel formats by the names that native code uses.
#pragma once

#include <stdint.h>

#include <system/graphics.h>

namespace android {

enum {
    PIXEL_FORMAT_UNKNOWN = 0,
    PIXEL_FORMAT_NONE = 0,
    PIXEL_FORMAT_RGBA_8888 = HAL_PIXEL_FORMAT_RGBA_8888,
    PIXEL_FORMAT_RGBX_8888 = HAL_PIXEL_FORMAT_RGBX_8888,
    PIXEL_FORMAT_RGB_888 = HAL_PIXEL_FORMAT_RGB_888,
    PIXEL_FORMAT_RGB_565 = HAL_PIXEL_FORMAT_RGB_565,
    PIXEL_FORMAT_BGRA_8888 = HAL_PIXEL_FORMAT_BGRA_8888,
};

/** One of the above or any HAL_PIXEL_FORMAT_*. */
typedef int32_t PixelFormat;

}  // namespace android
