// SPDX-License-Identifier: Apache-2.0
#include "StripLayout.h"

namespace korvane::testcard {
namespace {

constexpr uint32_t kLargestSide = 16384;
constexpr uint32_t kWideEnoughForLargeCells = 640;

uint32_t roundUp(uint32_t value, uint32_t step) {
    return (value + step - 1) / step * step;
}

}  // namespace

StripLayout::StripLayout(uint32_t width, uint32_t height)
    : mWidth(width), mHeight(height), mCell(width >= kWideEnoughForLargeCells ? 16 : 8) {
    const uint32_t cellLines = (kBits + cellsPerLine() - 1) / cellsPerLine();
    mStripLines = roundUp(cellLines * mCell, kScanRow);
}

std::optional<StripLayout> StripLayout::forSize(uint32_t width, uint32_t height) {
    if (width % 2 != 0 || height % 2 != 0 || width < kScanRow || height < kScanRow ||
        width > kLargestSide || height > kLargestSide) {
        return std::nullopt;
    }
    const StripLayout layout(width, height);
    const uint32_t needed = 2 * layout.stripLines() + kScanRow;
    if (height / kScanRow * kScanRow < needed) return std::nullopt;
    return layout;
}

std::optional<uint32_t> StripLayout::stripLine(uint32_t line) const {
    if (line < mStripLines) return line;
    if (line >= bottomLine() && line < bottomLine() + mStripLines) return line - bottomLine();
    return std::nullopt;
}

std::optional<uint32_t> StripLayout::stripRow(uint32_t row) const {
    const auto line = stripLine(row * kScanRow);
    if (!line) return std::nullopt;
    return *line / kScanRow;
}

}  // namespace korvane::testcard
