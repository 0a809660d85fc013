// SPDX-License-Identifier: Apache-2.0
// How a frame's crop and transform look to whoever draws it as a texture.
#pragma once

#include <cstdint>

#include <ui/Rect.h>

namespace android {

/**
 * The 4x4 matrix, column by column, that takes texture coordinates of the picture as it should
 * appear (0 to 1, from the bottom left) to those of the buffer. An empty or invalid crop is the
 * whole buffer.
 */
void computeTextureMatrix(const Rect& bounds, const Rect& crop, uint32_t transform,
                          float outMatrix[16]);

}  // namespace android
