// SPDX-License-Identifier: Apache-2.0
// A row of counts, each since the start and since a later moment.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Counts by index. Anyone may count and read at any time: adding is one relaxed atomic addition,
 * and a reader sees each count by itself, not all of them at one moment. An index beyond the last
 * counts as the last.
 */
template <size_t N>
class CountTable {
  public:
    static constexpr size_t kSize = N;

    void add(size_t index, uint64_t number = 1) {
        mTotals[inside(index)].fetch_add(number, std::memory_order_relaxed);
    }

    uint64_t total(size_t index) const {
        return mTotals[inside(index)].load(std::memory_order_relaxed);
    }

    /** What was added since mark(); the total before its first call. */
    uint64_t sinceMark(size_t index) const {
        return total(index) - mMarks[inside(index)].load(std::memory_order_relaxed);
    }

    void mark() {
        for (size_t i = 0; i < N; ++i) mMarks[i].store(total(i), std::memory_order_relaxed);
    }

  private:
    static size_t inside(size_t index) { return index < N ? index : N - 1; }

    std::array<std::atomic<uint64_t>, N> mTotals = {};
    std::array<std::atomic<uint64_t>, N> mMarks = {};
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
