// SPDX-License-Identifier: Apache-2.0
// Conversion of YCbCr 4:2:0 frames to YUYV.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <system/graphics.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** Bytes of a YUYV frame. */
inline uint64_t yuyvSize(uint32_t width, uint32_t height) {
    return uint64_t{width} * height * 2;
}

/** Converts through a scratch buffer that it keeps from frame to frame. Not thread-safe. */
class YuyvConverter {
  public:
    /**
     * Converts one frame, of any chroma layout. The first one since release() decides the size of
     * the scratch buffer; a larger one makes it grow.
     *
     * @param out takes yuyvSize(width, height) bytes, and no byte more is written
     */
    void convert(const android_ycbcr& planes, uint32_t width, uint32_t height, uint8_t* out);

    /** Frees the scratch buffer. */
    void release();

    /** Bytes of the scratch buffer; 0 without one. */
    size_t scratchSize() const { return mSize; }

  private:
    void reserve(size_t size);

    std::unique_ptr<uint8_t[]> mScratch;
    size_t mSize = 0;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
