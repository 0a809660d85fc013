// SPDX-License-Identifier: Apache-2.0
#include "uvc/YuyvConverter.h"

#include <algorithm>

#include <libyuv.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

// Rows that are converted at a time: two, which share their chroma. Their planes, 6 kB at 1080p,
// are still in the nearest cache when they are read again; those of a whole frame, or of eight
// rows, are not.
constexpr uint32_t kStripRows = 2;

// The planes of one column may overlap, and then the order of all their rows tells.
uint32_t stripRows(uint32_t width, uint32_t height) {
    return width == 1 ? height : std::min(height, kStripRows);
}

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

// As many rows from first on, which has to be even.
void toI420(const android_ycbcr& planes, uint32_t first, uint32_t rows, const I420& i420) {
    const int cstride = static_cast<int>(planes.cstride);
    const size_t luma = first * planes.ystride;
    const size_t chroma = first / 2 * planes.cstride;
    libyuv::Android420ToI420(
            static_cast<const uint8_t*>(planes.y) + luma, static_cast<int>(planes.ystride),
            static_cast<const uint8_t*>(planes.cb) + chroma, cstride,
            static_cast<const uint8_t*>(planes.cr) + chroma, cstride,
            static_cast<int>(planes.chroma_step), i420.y, i420.yStride, i420.u, i420.uvStride,
            i420.v, i420.uvStride, i420.yStride, static_cast<int>(rows));
}

// As many columns of as many rows from first on.
void toYuyv(const I420& i420, uint32_t first, uint32_t rows, uint8_t* out, int width) {
    const ptrdiff_t row = first;
    libyuv::I420ToYUY2(i420.y + row * i420.yStride, i420.yStride, i420.u + row / 2 * i420.uvStride,
                       i420.uvStride, i420.v + row / 2 * i420.uvStride, i420.uvStride, out,
                       i420.yStride * 2, width, static_cast<int>(rows));
}

// A row of odd width is written as whole pairs of pixels, two bytes too many: the next row covers
// them, but behind the last one they would be outside the buffer.
void toYuyvEndingInside(const I420& i420, uint32_t rows, uint8_t* out) {
    const uint32_t last = rows - 1;
    if (last > 0) toYuyv(i420, 0, last, out, i420.yStride);
    const ptrdiff_t even = i420.yStride - 1;
    out += ptrdiff_t{2} * last * i420.yStride;
    if (even > 0) toYuyv(i420, last, 1, out, static_cast<int>(even));
    out[2 * even] = i420.y[ptrdiff_t{last} * i420.yStride + even];
    out[2 * even + 1] = i420.u[ptrdiff_t{last / 2} * i420.uvStride + even / 2];
}

}  // namespace

void YuyvConverter::convert(const android_ycbcr& planes, uint32_t width, uint32_t height,
                            uint8_t* out) {
    if (width == 0 || height == 0) return;
    reserve(yuyvSize(width, height));
    const uint32_t strip = stripRows(width, height);
    const I420 i420(mScratch.get(), width, strip);
    for (uint32_t first = 0; first < height; first += strip) {
        const uint32_t rows = std::min(strip, height - first);
        uint8_t* const stripOut = out + yuyvSize(width, first);
        toI420(planes, first, rows, i420);
        if (width % 2 != 0 && first + rows == height) {
            toYuyvEndingInside(i420, rows, stripOut);
        } else {
            toYuyv(i420, 0, rows, stripOut, static_cast<int>(width));
        }
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
