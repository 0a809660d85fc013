// SPDX-License-Identifier: Apache-2.0
// The moving picture behind the coded strips.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane::testcard {

/**
 * Slanted colour bars that wander to the left: the colour at (x, y) of frame n is that of the bars
 * at (x + y + kStep * n), and the bars repeat after kPeriod. So every line of every frame is a
 * piece of one long line, and every row of sixteen lines is one of kPhases: what makes drawing and
 * encoding cheap.
 */
class CardPattern {
  public:
    static constexpr uint32_t kPeriod = 256;
    static constexpr uint32_t kStep = 8;
    static constexpr uint32_t kPhases = kPeriod / kStep;

    /** Prepares lines of `width` pixels (even). */
    explicit CardPattern(uint32_t width);

    /** `width` luma samples of a line. */
    const uint8_t* luma(uint32_t number, uint32_t line) const {
        return &mLuma[offset(number, line)];
    }

    /** `width` / 2 pairs of Cb and Cr for a line of chroma, which stands for two of luma. */
    const uint8_t* chroma(uint32_t number, uint32_t chromaLine) const {
        return &mChroma[offset(number, 2 * chromaLine)];
    }

    /** Which of the kPhases kinds of sixteen lines stands at `row` (counted in sixteens). */
    static uint32_t phaseOf(uint32_t number, uint32_t row) {
        return offset(number, 16 * row) / kStep;
    }

  private:
    static uint32_t offset(uint32_t number, uint32_t line) {
        return (line + number % kPhases * kStep) % kPeriod;
    }

    std::vector<uint8_t> mLuma;
    std::vector<uint8_t> mChroma;
};

}  // namespace korvane::testcard
