// SPDX-License-Identifier: Apache-2.0
#include "uvc/YuyvConverter.h"

#include <libyuv.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {
namespace {

// A picture in three planes: the camera's luma, or else the scratch buffer's, and the chroma taken
// apart in the scratch buffer, where it lies after the room for the luma.
struct I420 {
    I420(const android_ycbcr& planes, uint8_t* scratch, uint32_t width, uint32_t height)
        : y(hasChroma(planes) ? static_cast<const uint8_t*>(planes.y) : scratch),
          u(scratch + size_t{width} * height),
          v(u + size_t{width} * height / 2),  // leaves U twice the room that it needs
          yStride(static_cast<int>(hasChroma(planes) ? planes.ystride : width)),
          uvStride(static_cast<int>((width + 1) / 2)) {}

    // Without it the library takes nothing from the frame.
    static bool hasChroma(const android_ycbcr& planes) { return planes.cr != nullptr; }

    const uint8_t* const y;
    uint8_t* const u;
    uint8_t* const v;
    const int yStride;
    const int uvStride;
};

// Without a plane to put it in, the library leaves the luma alone.
void takeChromaApart(const android_ycbcr& planes, const I420& i420, int width, int height) {
    const int cstride = static_cast<int>(planes.cstride);
    libyuv::Android420ToI420(i420.y, i420.yStride, static_cast<const uint8_t*>(planes.cb), cstride,
                             static_cast<const uint8_t*>(planes.cr), cstride,
                             static_cast<int>(planes.chroma_step), nullptr, 0, i420.u,
                             i420.uvStride, i420.v, i420.uvStride, width, height);
}

// Converts `columns` pixels of each of `rows` rows from row `first` on. Their number must be even,
// unless it is a single row.
void toYuyv(const I420& i420, int first, int rows, uint8_t* out, int columns, int width) {
    const ptrdiff_t chroma = ptrdiff_t{first / 2} * i420.uvStride;
    libyuv::I420ToYUY2(i420.y + ptrdiff_t{first} * i420.yStride, i420.yStride, i420.u + chroma,
                       i420.uvStride, i420.v + chroma, i420.uvStride,
                       out + ptrdiff_t{2} * first * width, width * 2, columns, rows);
}

// A row of odd width is written as whole pairs of pixels, two bytes too many. The next row covers
// them, but after the last one they would be outside the buffer.
void toYuyvEndingInside(const I420& i420, uint8_t* out, int width, int height) {
    const int last = height - 1;
    const int even = width - 1;
    if (last > 0) toYuyv(i420, 0, last, out, width, width);
    if (even > 0) toYuyv(i420, last, 1, out, even, width);
    uint8_t* const pixel = out + 2 * (ptrdiff_t{last} * width + even);
    pixel[0] = i420.y[ptrdiff_t{last} * i420.yStride + even];
    pixel[1] = i420.u[ptrdiff_t{last / 2} * i420.uvStride + even / 2];
}

}  // namespace

void YuyvConverter::convert(const android_ycbcr& planes, uint32_t width, uint32_t height,
                            uint8_t* out) {
    if (width == 0 || height == 0) return;
    const size_t pixels = size_t{width} * height;
    if (!I420::hasChroma(planes) || pixels != mLatestPixels) keepLuma();
    reserve(yuyvSize(width, height));
    const I420 i420(planes, mScratch.get(), width, height);
    const int columns = static_cast<int>(width);
    const int rows = static_cast<int>(height);
    takeChromaApart(planes, i420, columns, rows);
    if (width % 2 == 0) {
        toYuyv(i420, 0, rows, out, columns, columns);
    } else {
        toYuyvEndingInside(i420, out, columns, rows);
    }
    mLatest = out;
    mLatestPixels = I420::hasChroma(planes) ? pixels : 0;
}

// A YUYV frame has a luma sample in every other byte.
void YuyvConverter::keepLuma() {
    for (size_t i = 0; i < mLatestPixels; ++i) mScratch[i] = mLatest[2 * i];
}

void YuyvConverter::reserve(size_t size) {
    if (size <= mSize) return;
    mScratch.reset(new uint8_t[size]());
    mSize = size;
}

void YuyvConverter::release() {
    mScratch.reset();
    mSize = 0;
    mLatestPixels = 0;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
