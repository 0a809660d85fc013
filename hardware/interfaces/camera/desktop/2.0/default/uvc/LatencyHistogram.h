// SPDX-License-Identifier: Apache-2.0
// How long something took, as counts of times in classes that double.
#pragma once

#include <cstddef>
#include <cstdint>

#include "uvc/CountTable.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Sixteen classes of times: below 64 us, below 128 us, and so on to below a second (1048576 us);
 * the last class holds what took longer. Threads as with CountTable.
 */
class LatencyHistogram {
  public:
    static constexpr size_t kClasses = 16;

    /** Counts a time; one below 0 counts as 0. */
    void add(int64_t ns) { mCounts.add(classOf(ns)); }

    /** Times counted, in all or in one class, since the start or since mark(). */
    uint64_t total(size_t index) const { return mCounts.total(index); }
    uint64_t sinceMark(size_t index) const { return mCounts.sinceMark(index); }
    void mark() { mCounts.mark(); }

    /** The time, in microseconds, below which those of a class are; 0 for the last, which has none.
     */
    static uint32_t boundUs(size_t index) {
        return index + 1 < kClasses ? kFirstBoundUs << index : 0;
    }

  private:
    static constexpr uint32_t kFirstBoundUs = 64;

    static size_t classOf(int64_t ns) {
        const int64_t us = ns / 1000;
        size_t index = 0;
        while (index + 1 < kClasses && us >= boundUs(index)) ++index;
        return index;
    }

    CountTable<kClasses> mCounts;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
