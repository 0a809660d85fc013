// SPDX-License-Identifier: Apache-2.0
// The letters on a card.
#pragma once

#include <cstdint>

namespace korvane::testcard {

/** A dot-matrix font for ASCII; any other letter is shown as a question mark. */
struct CardFont {
    static constexpr uint32_t kWidth = 5;
    static constexpr uint32_t kHeight = 7;

    /** Whether the letter has a dot at (x, y), counted from its top left corner. */
    static bool dot(char letter, uint32_t x, uint32_t y);
};

}  // namespace korvane::testcard
