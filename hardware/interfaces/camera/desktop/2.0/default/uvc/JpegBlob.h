// SPDX-License-Identifier: Apache-2.0
// The footer with which the camera says how long the JPEG in a blob is.
#pragma once

#include <cstdint>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Reads the size of the JPEG from the footer in the blob's last 8 bytes, and marks the footer as
 * read by overwriting its size with the capacity.
 *
 * @param blob not necessarily aligned
 * @param capacity bytes of the blob
 * @return the footer's size, which nothing has checked against the capacity; the capacity itself
 *         when the footer gives none or isn't one, which is logged
 */
uint32_t takeJpegSize(uint8_t* blob, uint32_t capacity);

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
