// SPDX-License-Identifier: Apache-2.0
// Where the two coded strips of a picture are.
#pragma once

#include <cstdint>
#include <optional>

namespace korvane::testcard {

/**
 * The geometry of the coded strips: one at the top of the picture, one as far down as whole rows of
 * sixteen lines reach, so that a picture made of two frames shows two codes.
 *
 * A strip is a grid of square cells, one bit each, left to right and top to bottom. Cells and
 * strips are aligned to the blocks that JPEG transforms: a cell is then a flat block, which
 * survives any quality, and a strip is a number of whole rows of a JPEG scan.
 */
class StripLayout {
  public:
    static constexpr uint32_t kBits = 112;
    static constexpr uint32_t kScanRow = 16;  // lines in one row of a 4:2:0 JPEG scan

    /**
     * The layout for a picture size in pixels; nothing if the card can't be drawn at that size:
     * odd, larger than a JPEG can be, or too small for two strips and a row of picture between
     * them.
     */
    static std::optional<StripLayout> forSize(uint32_t width, uint32_t height);

    uint32_t width() const { return mWidth; }
    uint32_t height() const { return mHeight; }
    uint32_t cell() const { return mCell; }
    uint32_t cellsPerLine() const { return mWidth / mCell; }
    uint32_t stripLines() const { return mStripLines; }
    uint32_t stripRows() const { return mStripLines / kScanRow; }
    uint32_t bottomLine() const { return mHeight / kScanRow * kScanRow - mStripLines; }

    /** Which line or scan row of its strip this one is; nothing outside the strips. */
    std::optional<uint32_t> stripLine(uint32_t line) const;
    std::optional<uint32_t> stripRow(uint32_t row) const;

  private:
    StripLayout(uint32_t width, uint32_t height);

    uint32_t mWidth;
    uint32_t mHeight;
    uint32_t mCell;
    uint32_t mStripLines;
};

}  // namespace korvane::testcard
