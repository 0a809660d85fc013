// SPDX-License-Identifier: Apache-2.0
// A rectangle of pixels.
#pragma once

#include <cstdint>

#include <android/rect.h>

namespace android {

/** Half-open in both directions. Laid out as the four integers of ARect and nothing else. */
class Rect : public ARect {
  public:
    /** (0, 0, -1, -1): says "not set", and as damage "everything". */
    static const Rect INVALID_RECT;
    /** (0, 0, 0, 0) */
    static const Rect EMPTY_RECT;

    /** Invalid, as INVALID_RECT. */
    constexpr Rect() : ARect{0, 0, -1, -1} {}
    constexpr Rect(int32_t width, int32_t height) : ARect{0, 0, width, height} {}
    constexpr Rect(uint32_t width, uint32_t height)
        : ARect{0, 0, static_cast<int32_t>(width), static_cast<int32_t>(height)} {}
    constexpr Rect(int32_t l, int32_t t, int32_t r, int32_t b) : ARect{l, t, r, b} {}

    /** Differences wrap round when the corners lie too far apart. */
    int32_t getWidth() const { return difference(right, left); }
    int32_t getHeight() const { return difference(bottom, top); }

    bool isValid() const { return right >= left && bottom >= top; }
    bool isEmpty() const { return right <= left || bottom <= top; }

    bool operator==(const Rect& other) const {
        return left == other.left && top == other.top && right == other.right &&
               bottom == other.bottom;
    }
    bool operator!=(const Rect& other) const { return !(*this == other); }

    /**
     * Writes the overlap of this and `with`, which is not a valid rectangle if they are apart.
     * @return true when it is not empty.
     */
    bool intersect(const Rect& with, Rect* result) const;

  private:
    // Corners come from other processes: wrap instead of overflowing.
    static int32_t difference(int32_t a, int32_t b) {
        return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
    }
};

}  // namespace android
