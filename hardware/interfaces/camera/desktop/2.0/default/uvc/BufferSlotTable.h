// SPDX-License-Identifier: Apache-2.0
// The graphic buffers that a frame source knows, by the slots of its queue.
#pragma once

#include <cstdint>
#include <memory>

#include <ui/GraphicBuffer.h>
#include <utils/KeyedVector.h>
#include <utils/StrongPointer.h>

#include "uvc/CachedBuffer.h"

namespace android {

/**
 * The table of slots: one CachedBuffer for each slot that a frame came from, and how many frames
 * the queue waits for. The queue waits only for frames whose buffer is still their slot's: the
 * others it has forgotten, and they must not be released.
 *
 * Slots are the queue's, 0 to 63; an index is a place in the table, below 0 for none, and holds
 * until a slot is added or removed.
 *
 * Part of a KorBufferSource and guarded by its mutex: it has no lock and no thread of its own.
 */
class BufferSlotTable {
  public:
    ssize_t indexOf(int slot) const { return mSlots.indexOfKey(slot); }

    /** The slot's buffer; null when none is known. */
    std::shared_ptr<CachedBuffer> find(int slot) const;

    /** Fills a slot that is new or discarded. */
    const std::shared_ptr<CachedBuffer>& fill(int slot, const sp<GraphicBuffer>& graphicBuffer);

    /**
     * Empties the slot: its buffer isn't the queue's any more, and a frame that still uses it no
     * longer counts as acquired. Fatal when it is empty already.
     */
    void discardAt(ssize_t index);

    /** Removes a discarded slot. */
    void removeAt(ssize_t index) { mSlots.removeItemsAt(index); }

    /** Frames acquired from the queue and not released yet. */
    int32_t outstandingAcquires() const { return mOutstandingAcquires; }
    void noteAcquired() { ++mOutstandingAcquires; }
    /** A frame has gone. True when the queue waits for it and must be told. */
    [[nodiscard]] bool noteReleased(const CachedBuffer& buffer);

  private:
    KeyedVector<int, std::shared_ptr<CachedBuffer>> mSlots;
    int32_t mOutstandingAcquires = 0;
};

}  // namespace android
