// SPDX-License-Identifier: Apache-2.0
// Navigates the markers of a JPEG file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace korvane::testcard {

constexpr uint8_t kMarkerSof0 = 0xC0;
constexpr uint8_t kMarkerRst0 = 0xD0;
constexpr uint8_t kMarkerSoi = 0xD8;
constexpr uint8_t kMarkerEoi = 0xD9;
constexpr uint8_t kMarkerSos = 0xDA;

inline bool isRestart(uint8_t marker) {
    return (marker & 0xF8) == kMarkerRst0;
}

/** The bytes of a JPEG file, which may be cut short anywhere. */
class JpegMarkers {
  public:
    JpegMarkers(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

    /** Whether a file begins at `position`. */
    bool startsAt(size_t position) const;

    /** Where a header segment is, starting from its 0xFF, and what follows it. */
    struct Segment {
        uint8_t marker;
        size_t position;
        size_t end;
    };

    /** The segment at `position` (after the start marker or a segment); nothing if there is none.
     */
    std::optional<Segment> segmentAt(size_t position) const;

    /**
     * The position of the first marker in coded data from `position` on: a restart marker or one
     * that ends the scan. Nothing if the data ends without one.
     */
    std::optional<size_t> nextMarker(size_t position) const;

    /**
     * The position after the end marker of the file that starts at `position`; nothing if the file
     * is cut short or not a JPEG.
     */
    std::optional<size_t> endOfFile(size_t position) const;

    /** The first position from `position` on where a file seems to start; nothing if none does. */
    std::optional<size_t> nextStart(size_t position) const;

  private:
    const uint8_t* mData;
    size_t mSize;
};

}  // namespace korvane::testcard
