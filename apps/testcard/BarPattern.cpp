// SPDX-License-Identifier: Apache-2.0
#include "BarPattern.h"

namespace korvane::testcard {
namespace {

struct Colour {
    uint8_t y;
    uint8_t cb;
    uint8_t cr;
};

// Three quarters of full brightness, ordered so that no neighbours differ in luma alone; no colour
// but the two greys has as much blue as red, so swapped chroma never looks right.
constexpr Colour kBars[] = {
        {180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
        {84, 184, 198},  {65, 100, 212}, {35, 212, 114}, {16, 128, 128},
};
constexpr uint32_t kBarWidth = BarPattern::kPeriod / (sizeof kBars / sizeof kBars[0]);

const Colour& barAt(uint32_t position) {
    return kBars[position % BarPattern::kPeriod / kBarWidth];
}

}  // namespace

BarPattern::BarPattern(uint32_t width) {
    mLuma.reserve(width + kPeriod);
    mChroma.reserve(width + kPeriod);
    for (uint32_t x = 0; x < width + kPeriod; ++x) {
        // Each bar brightens from left to right: flat bars would hide a slightly shifted picture.
        mLuma.push_back(static_cast<uint8_t>(barAt(x).y + x % kBarWidth));
        mChroma.push_back(x % 2 == 0 ? barAt(x).cb : barAt(x).cr);
    }
}

}  // namespace korvane::testcard
