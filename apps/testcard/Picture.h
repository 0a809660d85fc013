// SPDX-License-Identifier: Apache-2.0
// A picture taken from a captured frame, in one packing whatever the frame's was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "StripCode.h"

namespace korvane::testcard {

/** Y, Cb and Cr of every pixel, one after another. */
struct Picture {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> samples;

    LumaView luma() const { return {samples.data(), size_t{3} * width, 3}; }
    uint8_t* pixel(uint32_t x, uint32_t y) { return &samples[3 * (size_t{y} * width + x)]; }
    const uint8_t* pixel(uint32_t x, uint32_t y) const {
        return &samples[3 * (size_t{y} * width + x)];
    }
};

/** Unpacks a picture without padding between its lines; `data` holds a whole picture. */
Picture pictureFromNv12(const uint8_t* data, uint32_t width, uint32_t height);
Picture pictureFromYuyv(const uint8_t* data, uint32_t width, uint32_t height);

/**
 * Decodes a JPEG file of any size up to 64 Mi pixels. False if it can't be decoded or the decoder
 * warned of damaged data; `error` then holds the decoder's message.
 */
bool decodeJpeg(const uint8_t* data, size_t size, Picture* out, std::string* error);

}  // namespace korvane::testcard
