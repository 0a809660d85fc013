// SPDX-License-Identifier: Apache-2.0
// The picture behind a card's coded strips.
#pragma once

#include <cstdint>

namespace korvane::testcard {

/**
 * What a card shows in each frame, line by line. The rows of sixteen lines that JPEG is made of
 * come in a limited number of kinds over all frames, so each needs encoding only once.
 */
class CardPattern {
  public:
    virtual ~CardPattern() = default;

    /** The luma samples of a line of frame `number`; as many as the pattern is wide. */
    virtual const uint8_t* luma(uint32_t number, uint32_t line) const = 0;

    /** Pairs of Cb and Cr for a line of chroma, which stands for two of luma. */
    virtual const uint8_t* chroma(uint32_t number, uint32_t chromaLine) const = 0;

    /** The number of kinds of rows. */
    virtual uint32_t rowKinds() const = 0;

    /** The kind of the row of sixteen lines `row` in frame `number`. */
    virtual uint32_t rowKind(uint32_t number, uint32_t row) const = 0;

    /** One frame and row where a kind occurs. */
    struct Place {
        uint32_t number;
        uint32_t row;
    };
    virtual Place placeOf(uint32_t kind) const = 0;
};

}  // namespace korvane::testcard
