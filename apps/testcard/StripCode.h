// SPDX-License-Identifier: Apache-2.0
// Writes a frame's stamp into a strip of luma and reads it back.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "FrameStamp.h"
#include "StripLayout.h"

namespace korvane::testcard {

/** Luma samples of a picture in any packing: sample (x, y) is data[y * stride + x * step]. */
struct LumaView {
    const uint8_t* data = nullptr;
    size_t stride = 0;  // bytes from line to line
    size_t step = 1;    // bytes from sample to sample: 1 planar, 2 in YUYV

    uint8_t at(uint32_t x, uint32_t y) const { return data[y * stride + x * step]; }
};

/** What the two strips of a picture say; nothing where a strip couldn't be read. */
struct CardReading {
    std::optional<FrameStamp> top;
    std::optional<FrameStamp> bottom;

    bool readable() const { return top.has_value() && bottom.has_value(); }

    /** Both strips are valid and belong to different frames. */
    bool torn() const { return readable() && *top != *bottom; }
};

/**
 * The bits of one stamp: number, notice, time, then a checksum over all of them (CRC-16/CCITT),
 * most significant bits first.
 */
class StripCode {
  public:
    explicit StripCode(const FrameStamp& stamp);

    /** Fills one line of the strip's cells, the `cellLine`-th, with `width` luma samples. */
    void fillLine(const StripLayout& layout, uint32_t cellLine, uint8_t* luma) const;

  private:
    std::array<uint8_t, StripLayout::kBits / 8> mBytes;
};

/**
 * Reads the strip that begins at `firstLine`. Nothing if a cell is neither clearly dark nor clearly
 * bright, or the checksum does not hold.
 */
std::optional<FrameStamp> readStrip(const StripLayout& layout, const LumaView& luma,
                                    uint32_t firstLine);

/** Reads both strips of a picture. */
CardReading readCard(const StripLayout& layout, const LumaView& luma);

}  // namespace korvane::testcard
