// SPDX-License-Identifier: Apache-2.0
// Draws the test card as YCbCr 4:2:0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "CardPattern.h"
#include "FrameStamp.h"
#include "Planes.h"
#include "StripLayout.h"

namespace korvane::testcard {

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

    StripLayout mLayout;
    CardPattern mPattern;
    std::vector<uint8_t> mCellLine;  // scratch: one line of a strip
    std::vector<uint8_t> mGrey;      // chroma of a strip
};

}  // namespace korvane::testcard
