// SPDX-License-Identifier: Apache-2.0
// The moving picture of the test card.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "CardPattern.h"

namespace korvane::testcard {

/**
 * Slanted colour bars that drift to the left: the colour at (x, y) of frame n is that of the bars
 * at (x + y + kStep * n), and the bars repeat after kPeriod. So every line of every frame is a
 * piece of one long line, and every row of sixteen lines is one of kPhases, which makes drawing and
 * encoding cheap.
 */
class BarPattern : public CardPattern {
  public:
    static constexpr uint32_t kPeriod = 256;
    static constexpr uint32_t kStep = 8;
    static constexpr uint32_t kPhases = kPeriod / kStep;

    /** Prepares lines of `width` pixels (even). */
    explicit BarPattern(uint32_t width);

    const uint8_t* luma(uint32_t number, uint32_t line) const override {
        return &mLuma[offset(number, line)];
    }
    const uint8_t* chroma(uint32_t number, uint32_t chromaLine) const override {
        return &mChroma[offset(number, 2 * chromaLine)];
    }
    uint32_t rowKinds() const override { return kPhases; }
    uint32_t rowKind(uint32_t number, uint32_t row) const override {
        return offset(number, 16 * row) / kStep;
    }
    Place placeOf(uint32_t kind) const override { return {kind, 0}; }

  private:
    static uint32_t offset(uint32_t number, uint32_t line) {
        return (line + number % kPhases * kStep) % kPeriod;
    }

    std::vector<uint8_t> mLuma;
    std::vector<uint8_t> mChroma;
};

}  // namespace korvane::testcard
