// SPDX-License-Identifier: Apache-2.0
#include "TestCard.h"

#include <cstring>
#include <utility>

#include "BarPattern.h"
#include "StripCode.h"

namespace korvane::testcard {

TestCard::TestCard(const StripLayout& layout)
    : TestCard(layout, std::make_unique<BarPattern>(layout.width())) {}

TestCard::TestCard(const StripLayout& layout, std::unique_ptr<const CardPattern> pattern)
    : mLayout(layout),
      mPattern(std::move(pattern)),
      mCellLine(layout.width()),
      mGrey(layout.width(), 128) {}

void TestCard::draw(const FrameStamp& stamp, const Planes& planes) {
    drawPattern(stamp.number, planes);
    drawStrips(stamp, planes);
}

void TestCard::drawPattern(uint32_t number, const Planes& planes) const {
    for (uint32_t line = 0; line < mLayout.height(); ++line) {
        if (mLayout.stripLine(line)) continue;
        memcpy(planes.y + line * planes.yStride, mPattern->luma(number, line), mLayout.width());
    }
    for (uint32_t line = 0; line < mLayout.height() / 2; ++line) {
        const bool strip = mLayout.stripLine(2 * line).has_value();
        planes.putChroma(line, strip ? mGrey.data() : mPattern->chroma(number, line),
                         mLayout.width());
    }
}

void TestCard::drawStrips(const FrameStamp& stamp, const Planes& planes) {
    const StripCode code(stamp);
    for (uint32_t line = 0; line < mLayout.stripLines(); ++line) {
        if (line % mLayout.cell() == 0) {
            code.fillLine(mLayout, line / mLayout.cell(), mCellLine.data());
        }
        memcpy(planes.y + line * planes.yStride, mCellLine.data(), mLayout.width());
        memcpy(planes.y + (mLayout.bottomLine() + line) * planes.yStride, mCellLine.data(),
               mLayout.width());
    }
}

std::vector<uint8_t> TestCard::nv12(const FrameStamp& stamp) {
    std::vector<uint8_t> picture(static_cast<size_t>(mLayout.width()) * mLayout.height() * 3 / 2);
    draw(stamp, Planes::nv12(picture.data(), mLayout.width(), mLayout.height()));
    return picture;
}

}  // namespace korvane::testcard
