// SPDX-License-Identifier: Apache-2.0
#include "TestCardJpeg.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "BarPattern.h"
#include "JpegMarkers.h"
#include "StripCode.h"

namespace korvane::testcard {
namespace {

// Rows end at a two-byte marker: a restart, and after the last one the end of the file.
constexpr size_t kMarkerSize = 2;

void fillRow(const CardPattern& pattern, uint32_t kind, RowPlanes& planes) {
    const CardPattern::Place place = pattern.placeOf(kind);
    for (uint32_t line = 0; line < 16; ++line) {
        memcpy(planes.luma(line), pattern.luma(place.number, 16 * place.row + line), planes.width);
    }
    for (uint32_t line = 0; line < 8; ++line) {
        const uint8_t* pairs = pattern.chroma(place.number, 8 * place.row + line);
        for (uint32_t x = 0; x < planes.width / 2; ++x) {
            planes.blue(line)[x] = pairs[2 * x];
            planes.red(line)[x] = pairs[2 * x + 1];
        }
    }
}

void fillStrip(const StripLayout& layout, const StripCode& code, uint32_t row, RowPlanes& planes) {
    std::fill(planes.y.begin(), planes.y.end(), 128);
    std::fill(planes.cb.begin(), planes.cb.end(), 128);
    std::fill(planes.cr.begin(), planes.cr.end(), 128);
    for (uint32_t line = 0; line < 16; ++line) {
        if (line % layout.cell() == 0) {
            code.fillLine(layout, (row * 16 + line) / layout.cell(), planes.luma(line));
        } else {
            memcpy(planes.luma(line), planes.luma(line - 1), planes.width);
        }
    }
}

}  // namespace

std::unique_ptr<TestCardJpeg> TestCardJpeg::create(const StripLayout& layout, int quality) {
    const uint32_t wholeBlocks = (layout.width() + 15) / 16 * 16;
    return create(layout, std::make_unique<BarPattern>(wholeBlocks), quality);
}

std::unique_ptr<TestCardJpeg> TestCardJpeg::create(const StripLayout& layout,
                                                   std::unique_ptr<const CardPattern> pattern,
                                                   int quality) {
    std::unique_ptr<TestCardJpeg> card(new TestCardJpeg(layout, std::move(pattern), quality));
    if (!card->encodePattern()) return nullptr;
    return card;
}

TestCardJpeg::TestCardJpeg(const StripLayout& layout, std::unique_ptr<const CardPattern> pattern,
                           int quality)
    : mLayout(layout), mPattern(std::move(pattern)), mEncoder(layout.width(), quality) {}

bool TestCardJpeg::encodePattern() {
    const auto fill = [&](uint32_t kind, RowPlanes& planes) { fillRow(*mPattern, kind, planes); };
    return mEncoder.encode(mPattern->rowKinds(), fill, &mRows) && mRows.setHeight(mLayout.height());
}

bool TestCardJpeg::encodeStrip(const FrameStamp& stamp) {
    const StripCode code(stamp);
    const auto fill = [&](uint32_t row, RowPlanes& planes) {
        fillStrip(mLayout, code, row, planes);
    };
    return mEncoder.encode(mLayout.stripRows(), fill, &mStrip);
}

const std::vector<uint8_t>& TestCardJpeg::rowData(uint32_t number, uint32_t row) const {
    const auto strip = mLayout.stripRow(row);
    return strip ? mStrip.rows[*strip] : mRows.rows[mPattern->rowKind(number, row)];
}

size_t TestCardJpeg::fileSize(uint32_t number) const {
    size_t size = mRows.header.size();
    for (uint32_t row = 0; row < rowCount(); ++row) {
        size += rowData(number, row).size() + kMarkerSize;
    }
    return size;
}

void TestCardJpeg::assemble(uint32_t number, uint8_t* out) const {
    out = std::copy(mRows.header.begin(), mRows.header.end(), out);
    for (uint32_t row = 0; row < rowCount(); ++row) {
        const std::vector<uint8_t>& data = rowData(number, row);
        out = std::copy(data.begin(), data.end(), out);
        *out++ = 0xFF;
        *out++ = row + 1 == rowCount() ? kMarkerEoi : static_cast<uint8_t>(kMarkerRst0 + row % 8);
    }
}

size_t TestCardJpeg::draw(const FrameStamp& stamp, uint8_t* out, size_t capacity) {
    if (!encodeStrip(stamp)) return 0;
    const size_t size = fileSize(stamp.number);
    if (size > capacity) return 0;
    assemble(stamp.number, out);
    return size;
}

std::vector<uint8_t> TestCardJpeg::file(const FrameStamp& stamp) {
    if (!encodeStrip(stamp)) return {};
    std::vector<uint8_t> file(fileSize(stamp.number));
    assemble(stamp.number, file.data());
    return file;
}

}  // namespace korvane::testcard
