// SPDX-License-Identifier: Apache-2.0
// The objects among a parcel's bytes, found by the offsets that came with them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <linux/android/binder.h>

#include <utils/Errors.h>

namespace android {
namespace hardware {

/** Where a parcel's bytes are, whoever owns them. */
struct ParcelView {
    const uint8_t* data = nullptr;
    size_t size = 0;
    const uint64_t* objects = nullptr;
    size_t objectCount = 0;
    // Where a received parcel's buffers may lie; null if it was written here, with buffers
    // anywhere.
    const uint8_t* buffersBegin = nullptr;
    const uint8_t* buffersEnd = nullptr;
};

/** Looks objects up in a view. Objects are copied out, since they may be unaligned. */
class ObjectTable {
  public:
    explicit ObjectTable(const ParcelView& view) : mView(view) {}

    /**
     * Whether the offsets are ascending and aligned and the objects are inside and don't overlap:
     * BAD_VALUE if not, BAD_TYPE if one is of an unknown type. The other methods rely on it.
     */
    status_t check() const;

    size_t count() const { return mView.objectCount; }
    uint32_t typeAt(size_t index) const;

    /** Copies the object of this index; false if there is none of this type. */
    template <typename T>
    bool get(size_t index, uint32_t type, T* object) const {
        if (index >= count() || typeAt(index) != type) return false;
        memcpy(object, mView.data + mView.objects[index], sizeof(T));
        return true;
    }

    /** The index of the object that starts at this offset of the data; false if none does. */
    bool find(size_t offset, size_t* index) const;

    /** How many objects start before this offset. */
    size_t countBefore(size_t offset) const;

    /** Copies the buffer object of this index; false if there is none or it is out of bounds. */
    bool getBuffer(size_t index, binder_buffer_object* buffer) const;

  private:
    bool isInside(const binder_buffer_object& buffer) const;

    const ParcelView mView;
};

}  // namespace hardware
}  // namespace android
