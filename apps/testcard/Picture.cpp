// SPDX-License-Identifier: Apache-2.0
#include "Picture.h"

namespace korvane::testcard {
namespace {

Picture emptyPicture(uint32_t width, uint32_t height) {
    return {width, height, std::vector<uint8_t>(size_t{3} * width * height)};
}

}  // namespace

Picture pictureFromNv12(const uint8_t* data, uint32_t width, uint32_t height) {
    Picture picture = emptyPicture(width, height);
    const uint8_t* chroma = data + size_t{width} * height;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const uint8_t* pair = chroma + size_t{y / 2} * width + x / 2 * 2;
            uint8_t* pixel = picture.pixel(x, y);
            pixel[0] = data[size_t{y} * width + x];
            pixel[1] = pair[0];
            pixel[2] = pair[1];
        }
    }
    return picture;
}

Picture pictureFromYuyv(const uint8_t* data, uint32_t width, uint32_t height) {
    Picture picture = emptyPicture(width, height);
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const uint8_t* pair = data + 2 * (size_t{y} * width + x / 2 * 2);
            uint8_t* pixel = picture.pixel(x, y);
            pixel[0] = pair[x % 2 * 2];
            pixel[1] = pair[1];
            pixel[2] = pair[3];
        }
    }
    return picture;
}

}  // namespace korvane::testcard
