// SPDX-License-Identifier: Apache-2.0
// A frame as a picture file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "testcard/Capture.h"

namespace korvane::ctl {

/**
 * Writes a frame as PNG or JPEG, by the path's extension (".png", ".jpg" or ".jpeg"). A JPEG frame
 * goes into a JPEG file byte for byte. False, with the reason in `error`, if the frame is damaged
 * or the file can't be written.
 */
bool writePicture(const std::string& path, const testcard::Frame& frame,
                  testcard::PixelFormat format, uint32_t width, uint32_t height,
                  std::string* error);

/** Whether the path has an extension that writePicture() knows. */
bool isPicturePath(const std::string& path);

}  // namespace korvane::ctl
