// SPDX-License-Identifier: Apache-2.0
// A JPEG file split at its restart markers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane::testcard {

/**
 * A baseline JPEG whose restart interval is one row of its scan. Each row is then coded
 * independently: rows of pictures with the same width and tables can be combined into one picture.
 */
struct JpegRows {
    std::vector<uint8_t> header;             // from the start of the image up to the scan's data
    std::vector<std::vector<uint8_t>> rows;  // the coded data of each row, without its marker

    /** Splits a file; false if it is not a complete JPEG with a single scan. */
    bool split(const uint8_t* data, size_t size);

    /** Sets the header's picture height, in lines; false if it has no frame size. */
    bool setHeight(uint32_t height);
};

}  // namespace korvane::testcard
