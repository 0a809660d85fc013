// SPDX-License-Identifier: Apache-2.0
// What an uncompressed stream makes of a YCbCr 4:2:0 frame: a copy as NV12 or a conversion to YUYV.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <system/graphics.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/** Bytes that copyNv12() fills: the rows keep the strides that they have in the frame. */
uint64_t nv12Size(const android_ycbcr& planes, uint32_t height);

/**
 * Copies the luma and, right behind it, the chroma as one interleaved plane that starts at cb.
 * Where the frame has cr before cb, the plane's last byte lies outside the frame and is not copied.
 */
void copyNv12(const android_ycbcr& planes, uint32_t height, uint8_t* out);

/** Bytes that a YUYV frame has. */
uint64_t yuyvSize(uint32_t width, uint32_t height);

/** Converts to YUYV through a scratch buffer that it keeps. Not thread-safe. */
class YuyvConverter {
  public:
    /**
     * Converts one frame, of any chroma layout. The first one since release() decides the size of
     * the scratch buffer; a larger one makes it grow.
     *
     * @param out takes yuyvSize(width, height) bytes, no byte more
     */
    void convert(const android_ycbcr& planes, uint32_t width, uint32_t height, uint8_t* out);

    /** Frees the scratch buffer. */
    void release();

    /** Bytes of the scratch buffer, 0 without one. */
    size_t scratchSize() const { return mSize; }

  private:
    void reserve(size_t size);

    std::unique_ptr<uint8_t[]> mScratch;
    size_t mSize = 0;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
