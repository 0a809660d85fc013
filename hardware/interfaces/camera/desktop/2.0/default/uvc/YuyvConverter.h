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

/**
 * Converts through a scratch buffer that it keeps from frame to frame. Not thread-safe.
 *
 * The scratch buffer holds a frame in three planes, one after the other, and begins as zeros. Its
 * luma is only written where somebody would see it: conversion takes it from the frame.
 */
class YuyvConverter {
  public:
    /**
     * Converts one frame, of any chroma layout. The first one since release() decides the size of
     * the scratch buffer; a larger one makes it grow.
     *
     * A frame without cr can't be taken apart: what the scratch buffer holds of frames before it is
     * converted once more in its place.
     *
     * @param out takes yuyvSize(width, height) bytes, and no byte more is written. It stays
     * readable until the next frame or release().
     */
    void convert(const android_ycbcr& planes, uint32_t width, uint32_t height, uint8_t* out);

    /** Frees the scratch buffer. */
    void release();

    /** Bytes of the scratch buffer; 0 without one. */
    size_t scratchSize() const { return mSize; }

  private:
    void reserve(size_t size);
    void keepLuma();

    std::unique_ptr<uint8_t[]> mScratch;
    size_t mSize = 0;
    /** The latest frame, and how many pixels of luma it has that the scratch buffer hasn't. */
    const uint8_t* mLatest = nullptr;
    size_t mLatestPixels = 0;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
