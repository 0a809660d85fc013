// SPDX-License-Identifier: Apache-2.0
// A JPEG file taken apart at its restart markers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane::testcard {

/**
 * A baseline JPEG whose restart interval is one row of its scan. Each row is then coded for itself:
 * rows of pictures that share width and tables can be put together into one picture.
 */
struct JpegRows {
    std::vector<uint8_t> header;             // from the start of the image up to the scan's data
    std::vector<std::vector<uint8_t>> rows;  // the coded data of each row, without its marker

    /** Takes a file apart; false if it is not a complete JPEG with a single scan. */
    bool split(const uint8_t* data, size_t size);

    /** Makes the header that of a picture `height` lines high; false if it holds no frame size. */
    bool setHeight(uint32_t height);
};

}  // namespace korvane::testcard
