// SPDX-License-Identifier: Apache-2.0
// Draws the test card as YCbCr 4:2:0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "CardPattern.h"
#include "FrameStamp.h"
#include "Planes.h"
#include "StripLayout.h"

namespace korvane::testcard {

/**
 * A picture of one size: a pattern with the frame's stamp in a coded strip at the top and another
 * at the bottom. The same stamp, pattern and size always give the same samples. Not thread-safe.
 */
class TestCard {
  public:
    /** The test card: slanted colour bars that move. */
    explicit TestCard(const StripLayout& layout);

    /** A card with another pattern, which is at least as wide and high as the layout. */
    TestCard(const StripLayout& layout, std::unique_ptr<const CardPattern> pattern);

    const StripLayout& layout() const { return mLayout; }

    /** Draws a whole picture; the planes must hold at least the layout's width and height. */
    void draw(const FrameStamp& stamp, const Planes& planes);

    /** The picture of a stamp as NV12 without padding. */
    std::vector<uint8_t> nv12(const FrameStamp& stamp);

  private:
    void drawStrips(const FrameStamp& stamp, const Planes& planes);
    void drawPattern(uint32_t number, const Planes& planes) const;

    StripLayout mLayout;
    std::unique_ptr<const CardPattern> mPattern;
    std::vector<uint8_t> mCellLine;  // scratch: one line of a strip
    std::vector<uint8_t> mGrey;      // chroma of a strip
};

}  // namespace korvane::testcard
