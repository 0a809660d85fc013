// SPDX-License-Identifier: Apache-2.0
#include "uvc/EventHistory.h"

namespace korvane::hardware::camera::desktop::V2_0::implementation {

namespace {

// An entry is one word, so that a reader never sees half of one: from the top the time, how often,
// what, the detail.
constexpr int kDetailBits = 14;
constexpr int kEventBits = 6;
constexpr int kTimesBits = 8;
constexpr uint64_t kDetailMask = (1 << kDetailBits) - 1;
constexpr uint64_t kEventMask = (1 << kEventBits) - 1;
constexpr uint64_t kTimesMask = (1 << kTimesBits) - 1;
constexpr int32_t kDetailLimit = 1 << (kDetailBits - 1);
constexpr int kTimesShift = kDetailBits + kEventBits;
constexpr int kTimeShift = kTimesShift + kTimesBits;

uint64_t packWhat(Event event, int32_t detail) {
    const bool fits = detail >= -kDetailLimit && detail < kDetailLimit;
    const auto kept = static_cast<uint64_t>(fits ? detail : 0);
    return static_cast<uint64_t>(event) << kDetailBits | (kept & kDetailMask);
}

uint64_t whatOf(uint64_t packed) {
    return packed & ((kEventMask << kDetailBits) | kDetailMask);
}

uint64_t timesOf(uint64_t packed) {
    return packed >> kTimesShift & kTimesMask;
}

int32_t detailOf(uint64_t packed) {
    const auto detail = static_cast<int32_t>(packed & kDetailMask);
    return detail < kDetailLimit ? detail : detail - (kDetailLimit << 1);
}

uint64_t withTime(uint64_t what, uint64_t times, int64_t ms) {
    return static_cast<uint64_t>(ms) << kTimeShift | times << kTimesShift | what;
}

}  // namespace

void EventHistory::add(Event event, int32_t detail, int64_t ms) {
    const uint64_t what = packWhat(event, detail);
    const uint32_t next = mNext.load(std::memory_order_relaxed);
    std::atomic<uint64_t>& last = mPacked[(next - 1) % kEvents];
    const uint64_t before = last.load(std::memory_order_relaxed);
    if (before != 0 && whatOf(before) == what) {
        const uint64_t times = timesOf(before);
        last.store(withTime(what, times < kTimesMask ? times + 1 : times, ms),
                   std::memory_order_relaxed);
        return;
    }
    const uint32_t place = mNext.fetch_add(1, std::memory_order_relaxed);
    mPacked[place % kEvents].store(withTime(what, 1, ms), std::memory_order_relaxed);
}

size_t EventHistory::read(std::array<Entry, kEvents>* entries) const {
    const uint32_t next = mNext.load(std::memory_order_relaxed);
    size_t count = 0;
    for (size_t i = 0; i < kEvents; ++i) {
        const uint64_t packed = mPacked[(next + i) % kEvents].load(std::memory_order_relaxed);
        if (packed == 0) continue;
        (*entries)[count++] = {static_cast<Event>(packed >> kDetailBits & kEventMask),
                               detailOf(packed), static_cast<uint32_t>(timesOf(packed)),
                               static_cast<int64_t>(packed >> kTimeShift)};
    }
    return count;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
