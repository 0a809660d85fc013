// SPDX-License-Identifier: Apache-2.0
// Reads a parcel's bytes and objects one after the other.
#pragma once

#include <cstddef>
#include <cstdint>

#include <utils/Errors.h>

#include "ObjectTable.h"

namespace android {
namespace hardware {

/** Where a buffer's address must be: in which buffer and how far from its start. */
struct BufferParent {
    size_t handle;
    size_t offset;
};

/**
 * Advances position, which the caller keeps, past what it has read; a failed read leaves it where
 * it was. objectsRead, also the caller's, counts the objects read as such, as long as none is
 * skipped. Nothing outside the view and no unchecked object is touched.
 */
class ParcelReader {
  public:
    ParcelReader(const ParcelView& view, size_t* position, size_t* objectsRead)
        : mView(view), mObjects(view), mPosition(position), mObjectsRead(objectsRead) {}

    size_t available() const { return mView.size - *mPosition; }

    /** The next size bytes, in place, skipping their padding; null if there are fewer. */
    const uint8_t* take(size_t size);
    /** Copies them. NOT_ENOUGH_DATA if there are fewer. */
    status_t read(void* bytes, size_t size);

    /**
     * A buffer of exactly this size in this parent, or, for a null parent, in none. A null buffer
     * is OK and gives null; inside a parent only if its size is 0.
     */
    status_t readBuffer(size_t length, const BufferParent* parent, size_t* handle,
                        const void** buffer);

    /** Whether this place is inside its buffer and holds no address. */
    bool isNullAt(const BufferParent& place) const;

    /** A descriptor array at this place in a buffer. */
    status_t readDescriptorArray(size_t count, const BufferParent& parent);

    /** A binder; all zeros if it is null. */
    status_t readBinder(flat_binder_object* binder);

  private:
    template <typename T>
    status_t peek(T* object) const;
    template <typename T>
    status_t readEntered(uint32_t type, T* object, size_t* index);
    void count(size_t index);
    bool isNull(const binder_buffer_object& buffer, const BufferParent* parent) const;
    bool addressAt(const BufferParent& place, uint64_t* address) const;
    bool isIn(const binder_buffer_object& buffer, const BufferParent* parent) const;

    const ParcelView mView;
    const ObjectTable mObjects;
    size_t* const mPosition;
    size_t* const mObjectsRead;
};

}  // namespace hardware
}  // namespace android
