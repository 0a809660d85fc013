// SPDX-License-Identifier: Apache-2.0
// An array that allocates only when it gets longer than usual.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>

namespace android {
namespace hardware {

/**
 * Plain values, the first kUsual of them in place. Beyond that they move to the heap, where the
 * room at least doubles each time; that memory is freed with the array. Not thread-safe.
 */
template <typename T, size_t kUsual>
class InlineVector {
    static_assert(std::is_trivial_v<T>);

  public:
    InlineVector() = default;
    InlineVector(const InlineVector&) = delete;
    InlineVector& operator=(const InlineVector&) = delete;

    const T* data() const { return mGrown != nullptr ? mGrown.get() : mUsual; }
    size_t size() const { return mSize; }

    /** Appends count values, then zeros up to newSize, which must be at least size() + count. */
    void append(const T* values, size_t count, size_t newSize) {
        T* const end = grow(newSize) + mSize;
        if (count > 0) memcpy(end, values, count * sizeof(T));
        std::fill(end + count, end + (newSize - mSize), T{});
        mSize = newSize;
    }
    void push_back(T value) { append(&value, 1, mSize + 1); }

  private:
    /** Where the values are, with room for this many. */
    T* grow(size_t size) {
        if (size > mRoom) {
            const size_t room = std::max(size, 2 * mRoom);
            // NOLINTNEXTLINE(modernize-make-unique): that would write zeros first
            std::unique_ptr<T[]> grown(new T[room]);
            memcpy(grown.get(), data(), mSize * sizeof(T));
            mGrown = std::move(grown);
            mRoom = room;
        }
        return mGrown != nullptr ? mGrown.get() : mUsual;
    }

    size_t mSize = 0;
    size_t mRoom = kUsual;
    std::unique_ptr<T[]> mGrown;
    T mUsual[kUsual];
};

}  // namespace hardware
}  // namespace android
