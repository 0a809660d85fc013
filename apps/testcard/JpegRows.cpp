// SPDX-License-Identifier: Apache-2.0
#include "JpegRows.h"

#include "JpegMarkers.h"

namespace korvane::testcard {
namespace {

std::optional<JpegMarkers::Segment> findSegment(const JpegMarkers& markers, uint8_t wanted) {
    auto segment = markers.segmentAt(2);
    while (segment && segment->marker != wanted) segment = markers.segmentAt(segment->end);
    return segment;
}

}  // namespace

bool JpegRows::split(const uint8_t* data, size_t size) {
    const JpegMarkers markers(data, size);
    if (!markers.startsAt(0)) return false;
    const auto scan = findSegment(markers, kMarkerSos);
    if (!scan) return false;
    header.assign(data, data + scan->end);
    rows.clear();
    for (size_t start = scan->end;;) {
        const auto marker = markers.nextMarker(start);
        if (!marker) return false;
        rows.emplace_back(data + start, data + *marker);
        start = *marker + 2;
        if (!isRestart(data[*marker + 1])) return data[*marker + 1] == kMarkerEoi;
    }
}

bool JpegRows::setHeight(uint32_t height) {
    const auto frame = findSegment(JpegMarkers(header.data(), header.size()), kMarkerSof0);
    if (!frame || frame->end < frame->position + 7) return false;
    header[frame->position + 5] = static_cast<uint8_t>(height >> 8);
    header[frame->position + 6] = static_cast<uint8_t>(height);
    return true;
}

}  // namespace korvane::testcard
