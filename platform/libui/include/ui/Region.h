// SPDX-License-Identifier: Apache-2.0
// A set of pixels as a list of rectangles that don't overlap.
#pragma once

#include <cstddef>
#include <vector>

#include <ui/Rect.h>
#include <utils/Errors.h>

namespace android {

/**
 * The rectangles are sorted into bands: those of one band share top and bottom, and both the bands
 * and the rectangles of a band are in ascending order. An empty region holds one empty rectangle.
 * Not thread-safe.
 */
class Region {
  public:
    /** Holds the one rectangle (0, 0, -1, -1): as damage, "everything". Unions keep it. */
    static const Region INVALID_REGION;

    Region();
    explicit Region(const Rect& rect);

    bool isEmpty() const { return mBounds.isEmpty(); }
    bool isRect() const { return mRects.empty(); }

    const Rect& getBounds() const { return mBounds; }
    const Rect& bounds() const { return mBounds; }

    /** The rectangles; never fewer than one. */
    const Rect* begin() const { return isRect() ? &mBounds : mRects.data(); }
    const Rect* end() const { return begin() + size(); }
    size_t size() const { return isRect() ? 1 : mRects.size(); }

    bool operator==(const Region& other) const {
        return mBounds == other.mBounds && mRects == other.mRects;
    }

    /** Adds the pixels of `other`; the result is invalid if either is. */
    Region& orSelf(const Region& other);
    Region& orSelf(const Rect& rect) { return orSelf(Region(rect)); }
    Region& operator|=(const Region& other) { return orSelf(other); }
    Region operator|(const Region& other) const { return Region(*this).orSelf(other); }

    /**
     * The rectangles as they travel: one alone, or two or more followed by their bounds.
     */
    std::vector<Rect> flatten() const;

    /**
     * Takes the rectangles as they travel. They may come from anybody.
     * @return BAD_VALUE, with the region unchanged, when there are none or more than kMaxRects, or
     *         they overlap, are out of order, of negative size (except INVALID_REGION's) or not
     *         followed by their bounds.
     */
    status_t unflatten(const Rect* rects, size_t count);

    /** Beyond this many rectangles a union becomes its bounds, so that none can grow for ever. */
    static constexpr size_t kMaxRects = 256;

  private:
    explicit Region(std::vector<Rect> rects);

    Rect mBounds;
    std::vector<Rect> mRects;  // two or more; a single one is mBounds, and takes no memory
};

}  // namespace android
