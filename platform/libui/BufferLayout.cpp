// SPDX-License-Identifier: Apache-2.0
#include "BufferLayout.h"

#include <algorithm>
#include <cstring>

namespace android {
namespace {

constexpr uint32_t kMaxSide = 32768;
constexpr uint64_t kMaxSize = 256u << 20;
// What the formats of fixed layout ask for.
constexpr uint32_t kFixedStrideAlignment = 16;

uint64_t alignUp(uint64_t value, uint64_t alignment) {
    return (value + alignment - 1) & ~(alignment - 1);
}

uint64_t half(uint64_t value) {
    return (value + 1) / 2;
}

bool isSensibleSize(uint32_t width, uint32_t height, PixelFormat format, uint32_t layers) {
    if (width == 0 || height == 0 || layers != 1) return false;
    if (format == HAL_PIXEL_FORMAT_BLOB) return height == 1 && width <= kMaxSize;
    return width <= kMaxSide && height <= kMaxSide;
}

bool setSize(uint64_t size, BufferLayout* out) {
    out->size = static_cast<uint32_t>(size);
    return size <= kMaxSize;
}

bool layOutPacked(BufferLayout* out) {
    out->stride = out->width;
    return setSize(uint64_t{out->width} * out->height * bytesPerPixel(out->format), out);
}

// Luma, then one plane with both chroma samples side by side.
bool layOutSemiPlanar(const BufferLayoutOptions& options, bool cbFirst, BufferLayout* out) {
    const uint64_t stride = alignUp(out->width, options.strideAlignment);
    const uint64_t rows = alignUp(out->height, options.heightAlignment);
    const uint64_t chroma = stride * rows + options.planeGap;
    const uint64_t chromaStride = alignUp(2 * half(out->width), options.strideAlignment);
    out->stride = static_cast<uint32_t>(stride);
    out->chromaStride = static_cast<uint32_t>(std::max(chromaStride, stride));
    out->chromaStep = 2;
    out->cbOffset = static_cast<uint32_t>(chroma + (cbFirst ? 0 : 1));
    out->crOffset = static_cast<uint32_t>(chroma + (cbFirst ? 1 : 0));
    return setSize(chroma + out->chromaStride * half(rows), out);
}

// Luma, then a plane for each chroma sample.
bool layOutPlanar(const BufferLayoutOptions& options, uint64_t chromaStride, bool cbFirst,
                  BufferLayout* out) {
    const uint64_t stride = alignUp(out->width, options.strideAlignment);
    const uint64_t rows = alignUp(out->height, options.heightAlignment);
    const uint64_t first = stride * rows + options.planeGap;
    const uint64_t second = first + chromaStride * half(rows) + options.planeGap;
    out->stride = static_cast<uint32_t>(stride);
    out->chromaStride = static_cast<uint32_t>(chromaStride);
    out->chromaStep = 1;
    out->cbOffset = static_cast<uint32_t>(cbFirst ? first : second);
    out->crOffset = static_cast<uint32_t>(cbFirst ? second : first);
    return setSize(second + chromaStride * half(rows), out);
}

bool layOutFlexible(const BufferLayoutOptions& options, BufferLayout* out) {
    using Chroma = BufferLayoutOptions::Chroma;
    if (options.chroma == Chroma::I420) {
        const uint32_t alignment = std::max(options.strideAlignment / 2, 1u);
        return layOutPlanar(options, alignUp(half(out->width), alignment), true, out);
    }
    return layOutSemiPlanar(options, options.chroma == Chroma::NV12, out);
}

bool layOutYv12(BufferLayout* out) {
    BufferLayoutOptions fixed;
    fixed.strideAlignment = kFixedStrideAlignment;
    const uint64_t stride = alignUp(out->width, kFixedStrideAlignment);
    return layOutPlanar(fixed, alignUp(stride / 2, kFixedStrideAlignment), false, out);
}

bool isWithin(uint64_t offset, uint64_t stride, uint64_t rows, uint64_t size) {
    return offset + stride * rows <= size;
}

bool areChromaPlanesSound(const BufferLayout& layout) {
    const uint64_t columns = half(layout.width);
    const uint64_t rows = half(layout.height);
    const uint32_t first = std::min(layout.cbOffset, layout.crOffset);
    const uint32_t second = std::max(layout.cbOffset, layout.crOffset);
    const bool isInterleaved = layout.chromaStep == 2 && second - first == 1;
    if (!isInterleaved && layout.chromaStep != 1) return false;
    if (layout.chromaStride < columns * layout.chromaStep) return false;
    return isWithin(isInterleaved ? first : second, layout.chromaStride, rows, layout.size);
}

}  // namespace

uint32_t bytesPerPixel(PixelFormat format) {
    switch (format) {
        case HAL_PIXEL_FORMAT_RGBA_8888:
        case HAL_PIXEL_FORMAT_RGBX_8888:
        case HAL_PIXEL_FORMAT_BGRA_8888:
            return 4;
        case HAL_PIXEL_FORMAT_RGB_888:
            return 3;
        case HAL_PIXEL_FORMAT_RGB_565:
        case HAL_PIXEL_FORMAT_YCbCr_422_I:
            return 2;
        case HAL_PIXEL_FORMAT_BLOB:
        case HAL_PIXEL_FORMAT_Y8:
            return 1;
        default:
            return 0;
    }
}

bool isYCbCr420(PixelFormat format) {
    return format == HAL_PIXEL_FORMAT_YCbCr_420_888 || format == HAL_PIXEL_FORMAT_YCrCb_420_SP ||
           format == HAL_PIXEL_FORMAT_YV12;
}

status_t layOut(uint32_t width, uint32_t height, PixelFormat format, uint32_t layers,
                const BufferLayoutOptions& options, BufferLayout* out) {
    if (!isSensibleSize(width, height, format, layers)) return BAD_VALUE;
    *out = {};
    out->width = width;
    out->height = height;
    out->format = static_cast<uint32_t>(format);
    out->layers = layers;
    bool fits = false;
    if (bytesPerPixel(format) != 0) {
        fits = layOutPacked(out);
    } else if (format == HAL_PIXEL_FORMAT_YCbCr_420_888) {
        fits = layOutFlexible(options, out);
    } else if (format == HAL_PIXEL_FORMAT_YCrCb_420_SP) {
        fits = layOutSemiPlanar(BufferLayoutOptions(), false, out);
    } else if (format == HAL_PIXEL_FORMAT_YV12) {
        fits = layOutYv12(out);
    }
    return fits ? NO_ERROR : BAD_VALUE;
}

bool isSound(const BufferLayout& layout) {
    const auto format = static_cast<PixelFormat>(layout.format);
    if (!isSensibleSize(layout.width, layout.height, format, layout.layers)) return false;
    if (layout.size > kMaxSize || layout.stride < layout.width) return false;
    const uint64_t pixelSize = isYCbCr420(format) ? 1 : bytesPerPixel(format);
    if (pixelSize == 0) return false;
    if (!isWithin(0, layout.stride * pixelSize, layout.height, layout.size)) return false;
    return !isYCbCr420(format) || areChromaPlanesSound(layout);
}

void planesOf(const BufferLayout& layout, void* base, android_ycbcr* out) {
    auto* const bytes = static_cast<uint8_t*>(base);
    memset(out, 0, sizeof(*out));
    out->y = bytes;
    out->cb = bytes + layout.cbOffset;
    out->cr = bytes + layout.crOffset;
    out->ystride = layout.stride;
    out->cstride = layout.chromaStride;
    out->chroma_step = layout.chromaStep;
}

}  // namespace android
