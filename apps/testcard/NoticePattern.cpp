// SPDX-License-Identifier: Apache-2.0
#include "NoticePattern.h"

#include <algorithm>
#include <cstring>
#include <sstream>

#include "CardFont.h"

namespace korvane::testcard {
namespace {

constexpr uint8_t kGround = 48;
constexpr uint8_t kInk = 208;
constexpr uint8_t kGroundCb = 140;
constexpr uint8_t kGroundCr = 120;

constexpr uint32_t kCellWidth = CardFont::kWidth + 1;
constexpr uint32_t kCellHeight = CardFont::kHeight + 3;

// This many letters of the title fill a line.
constexpr uint32_t kTitleLetters = 26;

uint32_t blocks(uint32_t pixels) {
    return (pixels + StripLayout::kScanRow - 1) / StripLayout::kScanRow;
}

/** The text in lines of at most `letters`; a longer word is cut. */
std::vector<std::string> wrap(const std::string& text, size_t letters) {
    std::vector<std::string> lines;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        for (; word.size() > letters; word.erase(0, letters)) {
            lines.push_back(word.substr(0, letters));
        }
        if (!lines.empty() && lines.back().size() + 1 + word.size() <= letters) {
            lines.back() += " " + word;
        } else {
            lines.push_back(word);
        }
    }
    return lines;
}

}  // namespace

NoticePattern::NoticePattern(const StripLayout& layout, const std::string& title,
                             const std::string& text)
    : mWidth(blocks(layout.width()) * StripLayout::kScanRow),
      mRows(blocks(layout.height())),
      mMarkRow(layout.bottomLine() / StripLayout::kScanRow - 1),
      mLuma(size_t{mWidth} * mRows * StripLayout::kScanRow, kGround) {
    for (uint32_t x = 0; x < mWidth; ++x) mChroma.push_back(x % 2 == 0 ? kGroundCb : kGroundCr);
    prepareMarks();
    const uint32_t scale = std::max(2U, layout.width() / (kTitleLetters * kCellWidth)) / 2 * 2;
    const uint32_t top = layout.stripLines() + scale * kCellHeight / 2;
    const uint32_t below = write(title, scale, top) + scale * kCellHeight / 4;
    write(text, scale / 2, below);
}

// Returns where the next text begins.
uint32_t NoticePattern::write(const std::string& text, uint32_t scale, uint32_t top) {
    const uint32_t limit = mMarkRow * StripLayout::kScanRow;
    for (const std::string& line : wrap(text, mWidth / (scale * kCellWidth) - 2)) {
        if (top + scale * CardFont::kHeight > limit) break;
        writeLine(line, scale, top);
        top += scale * kCellHeight;
    }
    return top;
}

void NoticePattern::writeLine(const std::string& line, uint32_t scale, uint32_t top) {
    const uint32_t left = scale * kCellWidth;
    for (uint32_t y = 0; y < scale * CardFont::kHeight; ++y) {
        uint8_t* out = &mLuma[size_t{mWidth} * (top + y) + left];
        for (uint32_t x = 0; x < line.size() * scale * kCellWidth; ++x) {
            const uint32_t dot = x / scale;
            if (CardFont::dot(line[dot / kCellWidth], dot % kCellWidth, y / scale)) out[x] = kInk;
        }
    }
}

void NoticePattern::prepareMarks() {
    mMarks.assign(size_t{mWidth} * kMarks, kGround);
    for (uint32_t mark = 0; mark < kMarks; ++mark) {
        const uint32_t begin = mWidth * mark / kMarks;
        const uint32_t end = mWidth * (mark + 1) / kMarks;
        memset(&mMarks[size_t{mWidth} * mark + begin], kInk, end - begin);
    }
}

const uint8_t* NoticePattern::luma(uint32_t number, uint32_t line) const {
    if (isMarkLine(line)) return &mMarks[size_t{mWidth} * (number % kMarks)];
    return &mLuma[size_t{mWidth} * line];
}

const uint8_t* NoticePattern::chroma(uint32_t /*number*/, uint32_t /*chromaLine*/) const {
    return mChroma.data();
}

uint32_t NoticePattern::rowKind(uint32_t number, uint32_t row) const {
    return row == mMarkRow ? mRows + number % kMarks : row;
}

CardPattern::Place NoticePattern::placeOf(uint32_t kind) const {
    if (kind < mRows) return {0, kind};
    return {kind - mRows, mMarkRow};
}

}  // namespace korvane::testcard
