// SPDX-License-Identifier: Apache-2.0
// Where the pixels of a graphic buffer are.
#pragma once

#include <cstdint>

#include <system/graphics.h>
#include <ui/BufferLayoutOptions.h>
#include <ui/PixelFormat.h>
#include <utils/Errors.h>

namespace android {

/** Attributes and layout of a buffer, as its handle carries them from process to process. */
struct BufferLayout {
    uint32_t width;
    uint32_t height;
    uint32_t format;
    uint32_t layers;
    /** In pixels; of YCbCr formats, of the luma plane. */
    uint32_t stride;
    /** Bytes of memory. */
    uint32_t size;
    /** Of the chroma planes, in bytes; all 0 where there are none. */
    uint32_t chromaStride;
    uint32_t chromaStep;
    uint32_t cbOffset;
    uint32_t crOffset;
};

/** Bytes per pixel of single-plane formats; 0 for planar and unknown ones. */
uint32_t bytesPerPixel(PixelFormat format);

/** Whether the format has planes that lockYCbCr() can describe. */
bool isYCbCr420(PixelFormat format);

/**
 * Lays out a buffer; `options` apply to YCbCr_420_888.
 * @return BAD_VALUE for an unknown format or a size that makes no sense, as GraphicBuffer says.
 */
status_t layOut(uint32_t width, uint32_t height, PixelFormat format, uint32_t layers,
                const BufferLayoutOptions& options, BufferLayout* out);

/** Whether a layout from anywhere is possible and all of its pixels lie within its size. */
bool isSound(const BufferLayout& layout);

/** Fills in the planes of a buffer at `base`. */
void planesOf(const BufferLayout& layout, void* base, android_ycbcr* out);

}  // namespace android
