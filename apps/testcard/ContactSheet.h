// SPDX-License-Identifier: Apache-2.0
// A sheet of thumbnails, for looking at what a host received.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Picture.h"

namespace korvane::testcard {

/** Room for kColumns * kRows thumbnails, filled row by row; empty places stay black. */
class ContactSheet {
  public:
    static constexpr uint32_t kColumns = 4;
    static constexpr uint32_t kRows = 3;
    static constexpr uint32_t kPlaces = kColumns * kRows;

    /** For pictures of one size, each shown about 320 pixels wide. */
    ContactSheet(uint32_t width, uint32_t height);

    /** Which of `count` frames to show: all, or kPlaces of them at equal distances. */
    static std::vector<size_t> choose(size_t count);

    /** Puts a picture in the next place; false if the sheet is full or the size differs. */
    bool add(const Picture& picture);

    /** Writes the sheet as a PNG file; false, with the reason in `error`, if it can't. */
    bool write(const std::string& path, std::string* error) const;

  private:
    uint8_t* pixel(uint32_t x, uint32_t y) { return &mRgb[3 * (size_t{y} * sheetWidth() + x)]; }
    uint32_t sheetWidth() const { return kColumns * mPlaceWidth; }
    uint32_t sheetHeight() const { return kRows * mPlaceHeight; }

    uint32_t mWidth;
    uint32_t mHeight;
    uint32_t mStep;  // every mStep-th pixel is shown
    uint32_t mPlaceWidth;
    uint32_t mPlaceHeight;
    uint32_t mUsed = 0;
    std::vector<uint8_t> mRgb;
};

}  // namespace korvane::testcard
