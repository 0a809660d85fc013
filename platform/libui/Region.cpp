// SPDX-License-Identifier: Apache-2.0
#include "ui/Region.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

namespace android {
namespace {

Rect boundsOf(const Rect* rects, size_t count) {
    Rect bounds = rects[0];
    for (size_t i = 1; i < count; ++i) {
        bounds.left = std::min(bounds.left, rects[i].left);
        bounds.top = std::min(bounds.top, rects[i].top);
        bounds.right = std::max(bounds.right, rects[i].right);
        bounds.bottom = std::max(bounds.bottom, rects[i].bottom);
    }
    return bounds;
}

bool isBefore(const Rect& first, const Rect& second) {
    if (first.top == second.top) {
        return first.bottom == second.bottom && first.right <= second.left;
    }
    return first.bottom <= second.top;
}

bool areBands(const Rect* rects, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (rects[i].isEmpty()) return false;
        if (i > 0 && !isBefore(rects[i - 1], rects[i])) return false;
    }
    return true;
}

using Spans = std::vector<std::pair<int32_t, int32_t>>;

// The columns that any of the rectangles covers between two adjacent rows.
Spans spansBetween(const std::vector<Rect>& rects, int32_t top, int32_t bottom) {
    Spans covered;
    for (const Rect& rect : rects) {
        if (rect.top <= top && rect.bottom >= bottom) covered.emplace_back(rect.left, rect.right);
    }
    std::sort(covered.begin(), covered.end());
    Spans joined;
    for (const auto& span : covered) {
        if (!joined.empty() && span.first <= joined.back().second) {
            joined.back().second = std::max(joined.back().second, span.second);
        } else {
            joined.push_back(span);
        }
    }
    return joined;
}

// A band that continues the one above it, column for column, only makes that one taller.
bool extendBand(std::vector<Rect>& bands, size_t lastBand, const Spans& spans, int32_t top,
                int32_t bottom) {
    if (bands.size() - lastBand != spans.size()) return false;
    for (size_t i = 0; i < spans.size(); ++i) {
        const Rect& above = bands[lastBand + i];
        if (above.bottom != top || above.left != spans[i].first || above.right != spans[i].second) {
            return false;
        }
    }
    for (size_t i = lastBand; i < bands.size(); ++i) bands[i].bottom = bottom;
    return true;
}

std::vector<Rect> unionOf(const std::vector<Rect>& rects) {
    std::set<int32_t> rows;
    for (const Rect& rect : rects) {
        rows.insert(rect.top);
        rows.insert(rect.bottom);
    }
    std::vector<Rect> bands;
    size_t lastBand = 0;
    for (auto row = rows.begin(); row != rows.end() && std::next(row) != rows.end(); ++row) {
        const int32_t top = *row;
        const int32_t bottom = *std::next(row);
        const Spans spans = spansBetween(rects, top, bottom);
        if (spans.empty() || extendBand(bands, lastBand, spans, top, bottom)) continue;
        lastBand = bands.size();
        for (const auto& span : spans) bands.emplace_back(span.first, top, span.second, bottom);
    }
    return bands;
}

}  // namespace

const Region Region::INVALID_REGION{Rect(0, 0, -1, -1)};

Region::Region() : Region(Rect(0, 0, 0, 0)) {}

Region::Region(const Rect& rect) : mBounds(rect) {}

Region::Region(std::vector<Rect> rects) : mBounds(boundsOf(rects.data(), rects.size())) {
    if (rects.size() > 1) mRects = std::move(rects);
}

Region& Region::orSelf(const Region& other) {
    if (!mBounds.isValid() || !other.mBounds.isValid()) return *this = INVALID_REGION;
    if (other.isEmpty()) return *this;
    if (isEmpty()) return *this = other;
    std::vector<Rect> all(begin(), end());
    all.insert(all.end(), other.begin(), other.end());
    Region sum(unionOf(all));
    return *this = sum.size() > kMaxRects ? Region(sum.getBounds()) : sum;
}

std::vector<Rect> Region::flatten() const {
    std::vector<Rect> rects(begin(), end());
    if (rects.size() > 1) rects.push_back(mBounds);
    return rects;
}

status_t Region::unflatten(const Rect* rects, size_t count) {
    if (count == 1) {
        if (!rects[0].isValid() && rects[0] != Rect::INVALID_RECT) return BAD_VALUE;
        *this = Region(rects[0]);
        return NO_ERROR;
    }
    // Two would be one rectangle and its bounds, which travels as one.
    if (count < 3 || count > kMaxRects + 1) return BAD_VALUE;
    const size_t last = count - 1;
    if (!areBands(rects, last) || boundsOf(rects, last) != rects[last]) return BAD_VALUE;
    *this = Region(std::vector<Rect>(rects, rects + last));
    return NO_ERROR;
}

}  // namespace android
