// SPDX-License-Identifier: Apache-2.0
// Where the samples of a picture lie in memory.
#pragma once

#include <cstddef>
#include <cstdint>

namespace korvane::testcard {

/**
 * The memory of a YCbCr 4:2:0 picture in any layout, as a locked graphic buffer describes it: luma
 * (x, y) is y[y * yStride + x], chroma (x, y) at a quarter of the size is cb[y * cStride + x *
 * cStep], and the same for cr.
 */
struct Planes {
    uint8_t* y = nullptr;
    uint8_t* cb = nullptr;
    uint8_t* cr = nullptr;
    size_t yStride = 0;
    size_t cStride = 0;
    size_t cStep = 0;

    /** The planes of an NV12 picture without padding, `width` * `height` * 3 / 2 bytes at `data`.
     */
    static Planes nv12(uint8_t* data, uint32_t width, uint32_t height) {
        uint8_t* chroma = data + static_cast<size_t>(width) * height;
        return {data, chroma, chroma + 1, width, width, 2};
    }

    /** Whether chroma is laid out as in NV12: pairs of Cb and Cr. */
    bool hasPairs() const { return cStep == 2 && cr == cb + 1; }

    /** Writes a line of chroma for `width` pixels, given as pairs of Cb and Cr. */
    void putChroma(uint32_t line, const uint8_t* pairs, uint32_t width) const;

    /** Reads such a line into `pairs`. */
    void getChroma(uint32_t line, uint8_t* pairs, uint32_t width) const;
};

}  // namespace korvane::testcard
