// SPDX-License-Identifier: Apache-2.0
// YCbCr 4:2:0 pictures in any layout, in which a test can predict every sample.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <system/graphics.h>

namespace korvane::test {

// The picture's samples: different for each position and each plane.
inline uint8_t lumaAt(uint32_t x, uint32_t y) {
    return static_cast<uint8_t>(x * 3 + y * 7 + 1);
}
inline uint8_t cbAt(uint32_t x, uint32_t y) {
    return static_cast<uint8_t>(x * 5 + y * 11 + 100);
}
inline uint8_t crAt(uint32_t x, uint32_t y) {
    return static_cast<uint8_t>(x * 13 + y * 2 + 200);
}

/** Draws the picture into the planes, leaving anything between the samples untouched. */
inline void drawPicture(const android_ycbcr& planes, uint32_t width, uint32_t height) {
    auto* luma = static_cast<uint8_t*>(planes.y);
    auto* cb = static_cast<uint8_t*>(planes.cb);
    auto* cr = static_cast<uint8_t*>(planes.cr);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) luma[y * planes.ystride + x] = lumaAt(x, y);
    }
    for (uint32_t y = 0; y < (height + 1) / 2; ++y) {
        for (uint32_t x = 0; x < (width + 1) / 2; ++x) {
            cb[y * planes.cstride + x * planes.chroma_step] = cbAt(x, y);
            cr[y * planes.cstride + x * planes.chroma_step] = crAt(x, y);
        }
    }
}

/** The picture as YUYV, two bytes a pixel, without padding. */
inline std::vector<uint8_t> pictureAsYuyv(uint32_t width, uint32_t height) {
    std::vector<uint8_t> bytes;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            bytes.push_back(lumaAt(x, y));
            bytes.push_back(x % 2 == 0 ? cbAt(x / 2, y / 2) : crAt(x / 2, y / 2));
        }
    }
    return bytes;
}

/** The picture in memory of its own that ends where its last plane does. */
class YCbCrPicture {
  public:
    enum Layout { NV12, NV21, I420, YV12 };

    YCbCrPicture(Layout layout, uint32_t width, uint32_t height, size_t padding = 0) {
        const size_t chromaWidth = (width + 1) / 2;
        const size_t chromaHeight = (height + 1) / 2;
        const bool interleaved = layout == NV12 || layout == NV21;
        mPlanes.ystride = width + padding;
        mPlanes.chroma_step = interleaved ? 2 : 1;
        mPlanes.cstride = chromaWidth * mPlanes.chroma_step + padding;

        const size_t luma = mPlanes.ystride * height;
        const size_t chroma = mPlanes.cstride * chromaHeight;
        mBytes.assign(luma + chroma * (interleaved ? 1 : 2), 0xEE);
        uint8_t* first = mBytes.data() + luma;
        uint8_t* second = first + (interleaved ? 1 : chroma);
        const bool cbFirst = layout == NV12 || layout == I420;
        mPlanes.y = mBytes.data();
        mPlanes.cb = cbFirst ? first : second;
        mPlanes.cr = cbFirst ? second : first;
        drawPicture(mPlanes, width, height);
    }

    const android_ycbcr& planes() const { return mPlanes; }
    const std::vector<uint8_t>& bytes() const { return mBytes; }

  private:
    std::vector<uint8_t> mBytes;
    android_ycbcr mPlanes = {};
};

}  // namespace korvane::test
