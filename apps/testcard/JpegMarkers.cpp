// SPDX-License-Identifier: Apache-2.0
#include "JpegMarkers.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace korvane::testcard {

bool JpegMarkers::startsAt(size_t position) const {
    return position + 2 <= mSize && mData[position] == 0xFF && mData[position + 1] == kMarkerSoi;
}

std::optional<JpegMarkers::Segment> JpegMarkers::segmentAt(size_t position) const {
    if (position + 4 > mSize || mData[position] != 0xFF) return std::nullopt;
    const size_t length = mData[position + 2] << 8 | mData[position + 3];
    const size_t end = position + 2 + length;
    if (length < 2 || end > mSize) return std::nullopt;
    return Segment{mData[position + 1], position, end};
}

std::optional<size_t> JpegMarkers::nextMarker(size_t position) const {
    while (position + 1 < mSize) {
        const void* found = memchr(mData + position, 0xFF, mSize - 1 - position);
        if (found == nullptr) break;
        position = static_cast<const uint8_t*>(found) - mData;
        const uint8_t next = mData[position + 1];
        if (next != 0 && next != 0xFF) return position;
        position += next == 0 ? 2 : 1;
    }
    return std::nullopt;
}

std::optional<size_t> JpegMarkers::endOfFile(size_t position) const {
    if (!startsAt(position)) return std::nullopt;
    position += 2;
    while (position + 2 <= mSize && mData[position] == 0xFF) {
        if (mData[position + 1] == kMarkerEoi) return position + 2;
        const auto segment = segmentAt(position);
        if (!segment) return std::nullopt;
        position = segment->end;
        if (segment->marker != kMarkerSos) continue;
        auto marker = nextMarker(position);
        while (marker && isRestart(mData[*marker + 1])) marker = nextMarker(*marker + 2);
        if (!marker) return std::nullopt;
        position = *marker;
    }
    return std::nullopt;
}

std::optional<size_t> JpegMarkers::nextStart(size_t position) const {
    constexpr uint8_t kStart[] = {0xFF, kMarkerSoi, 0xFF};
    const uint8_t* end = mData + mSize;
    const uint8_t* found = std::search(mData + position, end, std::begin(kStart), std::end(kStart));
    if (found == end) return std::nullopt;
    return static_cast<size_t>(found - mData);
}

}  // namespace korvane::testcard
