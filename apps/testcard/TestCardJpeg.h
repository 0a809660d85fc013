// SPDX-License-Identifier: Apache-2.0
// Draws the test card as a JPEG file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "CardPattern.h"
#include "FrameStamp.h"
#include "JpegRowEncoder.h"
#include "JpegRows.h"
#include "StripLayout.h"

namespace korvane::testcard {

/**
 * A card of one size as JPEG. Each kind of a pattern's rows is encoded once, at the start; a frame
 * only encodes its coded strip, once for both places, and puts the rows together. The same stamp,
 * pattern, size and quality always give the same file. Not thread-safe.
 */
class TestCardJpeg {
  public:
    static constexpr int kQuality = 85;

    /** Encodes the test card's bars; null if the encoder fails (no memory). */
    static std::unique_ptr<TestCardJpeg> create(const StripLayout& layout, int quality = kQuality);

    /** The same for another pattern; its lines must fill whole blocks. */
    static std::unique_ptr<TestCardJpeg> create(const StripLayout& layout,
                                                std::unique_ptr<const CardPattern> pattern,
                                                int quality = kQuality);

    /** Writes the file of a frame to `out`; returns its size, 0 if it does not fit `capacity`. */
    size_t draw(const FrameStamp& stamp, uint8_t* out, size_t capacity);

    /** The file of a frame; empty if the encoder fails. */
    std::vector<uint8_t> file(const FrameStamp& stamp);

  private:
    TestCardJpeg(const StripLayout& layout, std::unique_ptr<const CardPattern> pattern,
                 int quality);

    bool encodePattern();
    bool encodeStrip(const FrameStamp& stamp);
    uint32_t rowCount() const { return (mLayout.height() + 15) / 16; }
    const std::vector<uint8_t>& rowData(uint32_t number, uint32_t row) const;
    size_t fileSize(uint32_t number) const;
    void assemble(uint32_t number, uint8_t* out) const;

    StripLayout mLayout;
    std::unique_ptr<const CardPattern> mPattern;
    JpegRowEncoder mEncoder;
    JpegRows mRows;   // one of each kind of the pattern's rows; all frames use their header
    JpegRows mStrip;  // the strip of the frame being drawn
};

}  // namespace korvane::testcard
