// SPDX-License-Identifier: Apache-2.0
#include "uvc/YuyvConverter.h"

#include <cstring>
#include <vector>

#include <libyuv.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

// Three planes in one buffer of two bytes a pixel.
struct I420 {
    I420(uint8_t* memory, uint32_t width, uint32_t height)
        : y(memory),
          u(y + size_t{width} * height),
          v(u + size_t{width} * height / 2),  // leaves U twice the room that it needs
          yStride(static_cast<int>(width)),
          uvStride(static_cast<int>((width + 1) / 2)) {}

    uint8_t* const y;
    uint8_t* const u;
    uint8_t* const v;
    const int yStride;
    const int uvStride;
};

void toI420(const android_ycbcr& planes, const I420& i420, int width, int height) {
    const int cstride = static_cast<int>(planes.cstride);
    libyuv::Android420ToI420(
            static_cast<const uint8_t*>(planes.y), static_cast<int>(planes.ystride),
            static_cast<const uint8_t*>(planes.cb), cstride, static_cast<const uint8_t*>(planes.cr),
            cstride, static_cast<int>(planes.chroma_step), i420.y, i420.yStride, i420.u,
            i420.uvStride, i420.v, i420.uvStride, width, height);
}

// As many rows from first on; their chroma starts with that of first.
void toYuyv(const I420& i420, int first, int rows, uint8_t* out, int width) {
    if (rows == 0) return;
    libyuv::I420ToYUY2(i420.y + ptrdiff_t{first} * i420.yStride, i420.yStride,
                       i420.u + ptrdiff_t{first / 2} * i420.uvStride, i420.uvStride,
                       i420.v + ptrdiff_t{first / 2} * i420.uvStride, i420.uvStride, out, width * 2,
                       width, rows);
}

// A row of odd width is written as whole pairs of pixels, two bytes too many: the next row covers
// them, but behind the last one they would be outside the buffer.
void toYuyvOfOddWidth(const I420& i420, uint8_t* out, int width, int height) {
    const int last = height - 1;
    toYuyv(i420, 0, last, out, width);
    std::vector<uint8_t> row(size_t{2} * (width + 1));
    toYuyv(i420, last, 1, row.data(), width);
    memcpy(out + ptrdiff_t{last} * width * 2, row.data(), size_t{2} * width);
}

}  // namespace

void YuyvConverter::convert(const android_ycbcr& planes, uint32_t width, uint32_t height,
                            uint8_t* out) {
    if (width == 0 || height == 0) return;
    reserve(yuyvSize(width, height));
    const I420 i420(mScratch.get(), width, height);
    toI420(planes, i420, static_cast<int>(width), static_cast<int>(height));
    if (width % 2 == 0) {
        toYuyv(i420, 0, static_cast<int>(height), out, static_cast<int>(width));
    } else {
        toYuyvOfOddWidth(i420, out, static_cast<int>(width), static_cast<int>(height));
    }
}

void YuyvConverter::reserve(size_t size) {
    if (size <= mSize) return;
    mScratch.reset(new uint8_t[size]());
    mSize = size;
}

void YuyvConverter::release() {
    mScratch.reset();
    mSize = 0;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
