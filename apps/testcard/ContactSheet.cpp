// SPDX-License-Identifier: Apache-2.0
#include "ContactSheet.h"

#include <algorithm>

#include <png.h>

namespace korvane::testcard {
namespace {

constexpr uint32_t kShownWidth = 320;
constexpr uint32_t kGap = 4;

uint8_t clamp(int value) {
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

// BT.601, full range, in 1/256.
void toRgb(const uint8_t* ycbcr, uint8_t* rgb) {
    const int y = ycbcr[0] * 256 + 128;
    const int cb = ycbcr[1] - 128;
    const int cr = ycbcr[2] - 128;
    rgb[0] = clamp((y + 359 * cr) / 256);
    rgb[1] = clamp((y - 88 * cb - 183 * cr) / 256);
    rgb[2] = clamp((y + 454 * cb) / 256);
}

}  // namespace

ContactSheet::ContactSheet(uint32_t width, uint32_t height)
    : mWidth(width),
      mHeight(height),
      mStep(std::max(1u, width / kShownWidth)),
      mPlaceWidth((width + mStep - 1) / mStep + kGap),
      mPlaceHeight((height + mStep - 1) / mStep + kGap),
      mRgb(size_t{3} * sheetWidth() * sheetHeight()) {}

std::vector<size_t> ContactSheet::choose(size_t count) {
    const size_t shown = std::min<size_t>(count, kPlaces);
    std::vector<size_t> chosen;
    for (size_t i = 0; i < shown; ++i)
        chosen.push_back(shown < 2 ? 0 : i * (count - 1) / (shown - 1));
    return chosen;
}

bool ContactSheet::add(const Picture& picture) {
    if (mUsed == kPlaces || picture.width != mWidth || picture.height != mHeight) return false;
    const uint32_t left = mUsed % kColumns * mPlaceWidth;
    const uint32_t top = mUsed / kColumns * mPlaceHeight;
    for (uint32_t y = 0; y < mHeight; y += mStep) {
        for (uint32_t x = 0; x < mWidth; x += mStep) {
            toRgb(picture.pixel(x, y), pixel(left + x / mStep, top + y / mStep));
        }
    }
    ++mUsed;
    return true;
}

bool ContactSheet::write(const std::string& path, std::string* error) const {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = sheetWidth();
    image.height = sheetHeight();
    image.format = PNG_FORMAT_RGB;
    if (png_image_write_to_file(&image, path.c_str(), 0, mRgb.data(), 0, nullptr) != 0) return true;
    *error = image.message;
    return false;
}

}  // namespace korvane::testcard
