// SPDX-License-Identifier: Apache-2.0
// A set of a buffer queue's slots.
#pragma once

#include <cstdint>

#include <gui/BufferQueueDefs.h>

namespace android {

/** Slots in ascending order, one bit for each: they come and go with every frame. */
class SlotSet {
  public:
    /** Visits the slots that the set had when it was made. */
    class Iterator {
      public:
        explicit Iterator(uint64_t left) : mLeft(left) {}
        int operator*() const { return __builtin_ctzll(mLeft); }
        Iterator& operator++() {
            mLeft &= mLeft - 1;
            return *this;
        }
        bool operator!=(const Iterator& other) const { return mLeft != other.mLeft; }

      private:
        uint64_t mLeft;
    };

    bool empty() const { return mSlots == 0; }
    int size() const { return __builtin_popcountll(mSlots); }
    void insert(int slot) { mSlots |= bit(slot); }
    void erase(int slot) { mSlots &= ~bit(slot); }

    /** Takes the lowest slot out of a set that isn't empty. */
    int takeFirst() {
        const int slot = *begin();
        erase(slot);
        return slot;
    }

    Iterator begin() const { return Iterator(mSlots); }
    Iterator end() const { return Iterator(0); }

  private:
    static_assert(BufferQueueDefs::NUM_BUFFER_SLOTS <= 64, "one bit for each slot");
    static uint64_t bit(int slot) { return uint64_t{1} << slot; }

    uint64_t mSlots = 0;
};

}  // namespace android
