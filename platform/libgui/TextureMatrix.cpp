// SPDX-License-Identifier: Apache-2.0
#include "TextureMatrix.h"

#include <algorithm>

#include <system/window.h>

namespace android {
namespace {

/** x' = xx * x + xy * y + xOffset, and the same for y'. */
struct Affine {
    float xx, xy, xOffset;
    float yx, yy, yOffset;
};

constexpr Affine kIdentity = {1, 0, 0, 0, 1, 0};
constexpr Affine kFlipH = {-1, 0, 1, 0, 1, 0};
constexpr Affine kFlipV = {1, 0, 0, 0, -1, 1};
constexpr Affine kRotate90 = {0, -1, 1, 1, 0, 0};

// First `second`, then `first`.
Affine operator*(const Affine& first, const Affine& second) {
    return {first.xx * second.xx + first.xy * second.yx,
            first.xx * second.xy + first.xy * second.yy,
            first.xx * second.xOffset + first.xy * second.yOffset + first.xOffset,
            first.yx * second.xx + first.yy * second.yx,
            first.yx * second.xy + first.yy * second.yy,
            first.yx * second.xOffset + first.yy * second.yOffset + first.yOffset};
}

Affine ofTransform(uint32_t transform) {
    Affine result = kIdentity;
    if (transform & NATIVE_WINDOW_TRANSFORM_FLIP_H) result = result * kFlipH;
    if (transform & NATIVE_WINDOW_TRANSFORM_FLIP_V) result = result * kFlipV;
    if (transform & NATIVE_WINDOW_TRANSFORM_ROT_90) result = result * kRotate90;
    return result;
}

Affine ofCrop(const Rect& bounds, const Rect& crop) {
    if (crop.isEmpty()) return kIdentity;
    const auto width = static_cast<float>(bounds.getWidth());
    const auto height = static_cast<float>(bounds.getHeight());
    return {static_cast<float>(crop.getWidth()) / width,
            0,
            static_cast<float>(crop.left) / width,
            0,
            static_cast<float>(crop.getHeight()) / height,
            (height - static_cast<float>(crop.bottom)) / height};
}

}  // namespace

void computeTextureMatrix(const Rect& bounds, const Rect& crop, uint32_t transform,
                          float outMatrix[16]) {
    // The buffer's first row is the picture's top, while textures begin at the bottom.
    const Affine matrix = kFlipV * ofCrop(bounds, crop) * ofTransform(transform);
    const float columns[16] = {matrix.xx, matrix.yx, 0, 0, matrix.xy,      matrix.yy,      0, 0,
                               0,         0,         1, 0, matrix.xOffset, matrix.yOffset, 0, 1};
    std::copy(columns, columns + 16, outMatrix);
}

}  // namespace android
