// SPDX-License-Identifier: Apache-2.0
// A picture in words.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "CardPattern.h"
#include "StripLayout.h"

namespace korvane::testcard {

/**
 * A title and a text below it between a card's coded strips, and above the lower strip a mark that
 * moves from left to right with the frames: anyone looking sees that the picture is live. What
 * doesn't fit is left out.
 */
class NoticePattern : public CardPattern {
  public:
    NoticePattern(const StripLayout& layout, const std::string& title, const std::string& text);

    const uint8_t* luma(uint32_t number, uint32_t line) const override;
    const uint8_t* chroma(uint32_t number, uint32_t chromaLine) const override;
    uint32_t rowKinds() const override { return mRows + kMarks; }
    uint32_t rowKind(uint32_t number, uint32_t row) const override;
    Place placeOf(uint32_t kind) const override;

  private:
    static constexpr uint32_t kMarks = 32;  // positions of the mark

    uint32_t write(const std::string& text, uint32_t scale, uint32_t top);
    void writeLine(const std::string& line, uint32_t scale, uint32_t top);
    void prepareMarks();
    bool isMarkLine(uint32_t line) const { return line / StripLayout::kScanRow == mMarkRow; }

    const uint32_t mWidth;  // rounded up to whole blocks
    const uint32_t mRows;   // of sixteen lines, the last one padded
    const uint32_t mMarkRow;
    std::vector<uint8_t> mLuma;    // all lines
    std::vector<uint8_t> mMarks;   // one line of luma for each position of the mark
    std::vector<uint8_t> mChroma;  // one line, the same everywhere
};

}  // namespace korvane::testcard
