// SPDX-License-Identifier: Apache-2.0
#include "Planes.h"

#include <cstring>

namespace korvane::testcard {

void Planes::putChroma(uint32_t line, const uint8_t* pairs, uint32_t width) const {
    uint8_t* lineCb = cb + line * cStride;
    uint8_t* lineCr = cr + line * cStride;
    if (hasPairs()) {
        memcpy(lineCb, pairs, width);
        return;
    }
    for (uint32_t x = 0; x < width / 2; ++x) {
        lineCb[x * cStep] = pairs[2 * x];
        lineCr[x * cStep] = pairs[2 * x + 1];
    }
}

void Planes::getChroma(uint32_t line, uint8_t* pairs, uint32_t width) const {
    const uint8_t* lineCb = cb + line * cStride;
    const uint8_t* lineCr = cr + line * cStride;
    for (uint32_t x = 0; x < width / 2; ++x) {
        pairs[2 * x] = lineCb[x * cStep];
        pairs[2 * x + 1] = lineCr[x * cStep];
    }
}

}  // namespace korvane::testcard
