// SPDX-License-Identifier: Apache-2.0
// Draws the test card as YCbCr 4:2:0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "CardPattern.h"
#include "FrameStamp.h"
#include "StripLayout.h"

namespace korvane::testcard {

/**
 * Memory of a YCbCr 4:2:0 picture in any layout, as a locked graphic buffer describes it: luma (x,
 * y) is y[y * yStride + x], chroma (x, y) of a quarter picture cb[y * cStride + x * cStep], and so
 * cr.
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
};

/**
 * A test picture of one size: slanted colour bars that move, with the frame's stamp in a coded
 * strip at the top and another at the bottom. The same stamp and size always give the same samples.
 * Not thread-safe.
 */
class TestCard {
  public:
    explicit TestCard(const StripLayout& layout);

    const StripLayout& layout() const { return mLayout; }

    /** Draws a whole picture; the planes hold at least the layout's width and height. */
    void draw(const FrameStamp& stamp, const Planes& planes);

    /** The picture of a stamp as NV12 without padding. */
    std::vector<uint8_t> nv12(const FrameStamp& stamp);

  private:
    void drawStrips(const FrameStamp& stamp, const Planes& planes);
    void drawBars(uint32_t number, const Planes& planes) const;
    void putChroma(const Planes& planes, uint32_t chromaLine, const uint8_t* pairs) const;

    StripLayout mLayout;
    CardPattern mPattern;
    std::vector<uint8_t> mCellLine;  // scratch: one line of a strip
    std::vector<uint8_t> mGrey;      // chroma of a strip
};

}  // namespace korvane::testcard
