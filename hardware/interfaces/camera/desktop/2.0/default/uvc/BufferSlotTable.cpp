// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "KorBufferSource"

#include "uvc/BufferSlotTable.h"

#include "uvc/KorCheck.h"

namespace android {

std::shared_ptr<CachedBuffer> BufferSlotTable::find(int slot) const {
    const ssize_t index = indexOf(slot);
    return index < 0 ? nullptr : mSlots.valueAt(index);
}

const std::shared_ptr<CachedBuffer>& BufferSlotTable::fill(int slot,
                                                           const sp<GraphicBuffer>& graphicBuffer) {
    ssize_t index = indexOf(slot);
    if (index < 0) index = mSlots.add(slot, nullptr);
    auto& entry = mSlots.editValueAt(index);
    entry = std::make_shared<CachedBuffer>(slot, graphicBuffer);
    return entry;
}

void BufferSlotTable::discardAt(ssize_t index) {
    std::shared_ptr<CachedBuffer>& buffer = mSlots.editValueAt(index);
    buffer->discard();
    if (buffer->isAcquired()) --mOutstandingAcquires;
    buffer.reset();
    // Can't fail after the line above.
    KOR_CHECK(1130, buffer == nullptr);
}

bool BufferSlotTable::noteReleased(const CachedBuffer& buffer) {
    if (!buffer.isCached()) return false;
    --mOutstandingAcquires;
    return true;
}

}  // namespace android
