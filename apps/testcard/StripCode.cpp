// SPDX-License-Identifier: Apache-2.0
#include "StripCode.h"

#include <cstring>

namespace korvane::testcard {
namespace {

constexpr uint8_t kDark = 40;
constexpr uint8_t kBright = 215;
constexpr uint8_t kUnused = 128;
constexpr uint32_t kDarkest = 96;     // a lower mean is a 0
constexpr uint32_t kBrightest = 160;  // a higher mean is a 1

constexpr size_t kBytes = StripLayout::kBits / 8;
constexpr size_t kChecked = kBytes - 2;
constexpr size_t kNoticeByte = 4;  // after the number; the time follows in seven bytes

uint16_t checksum(const uint8_t* bytes, size_t count) {
    uint16_t crc = 0xFFFF;
    for (size_t i = 0; i < count; ++i) {
        crc ^= static_cast<uint16_t>(bytes[i] << 8);
        for (int bit = 0; bit < 8; ++bit) {
            crc = static_cast<uint16_t>((crc & 0x8000) ? (crc << 1) ^ 0x1021 : crc << 1);
        }
    }
    return crc;
}

void putBigEndian(uint8_t* bytes, size_t count, uint64_t value) {
    for (size_t i = count; i-- > 0; value >>= 8) bytes[i] = static_cast<uint8_t>(value);
}

uint64_t getBigEndian(const uint8_t* bytes, size_t count) {
    uint64_t value = 0;
    for (size_t i = 0; i < count; ++i) value = value << 8 | bytes[i];
    return value;
}

bool bitAt(const uint8_t* bytes, uint32_t bit) {
    return (bytes[bit / 8] >> (7 - bit % 8) & 1) != 0;
}

// The mean over the middle of a cell: a blurred border doesn't count.
uint32_t cellMean(const LumaView& luma, uint32_t left, uint32_t top, uint32_t cell) {
    uint32_t sum = 0;
    const uint32_t margin = cell / 4;
    const uint32_t side = cell / 2;
    for (uint32_t y = top + margin; y < top + margin + side; ++y) {
        for (uint32_t x = left + margin; x < left + margin + side; ++x) sum += luma.at(x, y);
    }
    return sum / (side * side);
}

}  // namespace

StripCode::StripCode(const FrameStamp& stamp) {
    putBigEndian(&mBytes[0], 4, stamp.number);
    mBytes[kNoticeByte] = static_cast<uint8_t>(stamp.notice);
    putBigEndian(&mBytes[kNoticeByte + 1], 7, stamp.timeUs);
    putBigEndian(&mBytes[kChecked], 2, checksum(mBytes.data(), kChecked));
}

void StripCode::fillLine(const StripLayout& layout, uint32_t cellLine, uint8_t* luma) const {
    memset(luma, kUnused, layout.width());
    const uint32_t first = cellLine * layout.cellsPerLine();
    for (uint32_t i = 0; i < layout.cellsPerLine() && first + i < StripLayout::kBits; ++i) {
        const uint8_t level = bitAt(mBytes.data(), first + i) ? kBright : kDark;
        memset(luma + i * layout.cell(), level, layout.cell());
    }
}

std::optional<FrameStamp> readStrip(const StripLayout& layout, const LumaView& luma,
                                    uint32_t firstLine) {
    uint8_t bytes[kBytes] = {};
    for (uint32_t bit = 0; bit < StripLayout::kBits; ++bit) {
        const uint32_t left = bit % layout.cellsPerLine() * layout.cell();
        const uint32_t top = firstLine + bit / layout.cellsPerLine() * layout.cell();
        const uint32_t mean = cellMean(luma, left, top, layout.cell());
        if (mean >= kDarkest && mean <= kBrightest) return std::nullopt;
        if (mean > kBrightest) bytes[bit / 8] |= static_cast<uint8_t>(0x80 >> bit % 8);
    }
    if (getBigEndian(bytes + kChecked, 2) != checksum(bytes, kChecked)) return std::nullopt;
    return FrameStamp{static_cast<uint32_t>(getBigEndian(bytes, 4)),
                      getBigEndian(bytes + kNoticeByte + 1, 7),
                      static_cast<Notice>(bytes[kNoticeByte])};
}

CardReading readCard(const StripLayout& layout, const LumaView& luma) {
    return {readStrip(layout, luma, 0), readStrip(layout, luma, layout.bottomLine())};
}

}  // namespace korvane::testcard
