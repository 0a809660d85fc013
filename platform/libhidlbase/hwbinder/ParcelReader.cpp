// SPDX-License-Identifier: Apache-2.0
#include "ParcelReader.h"

#include <algorithm>
#include <cstring>

namespace android {
namespace hardware {

const uint8_t* ParcelReader::take(size_t size) {
    if (size > available()) return nullptr;
    const uint8_t* bytes = mView.data + *mPosition;
    const size_t padding = (sizeof(uint32_t) - size % sizeof(uint32_t)) % sizeof(uint32_t);
    *mPosition += size + std::min(padding, available() - size);
    return bytes;
}

status_t ParcelReader::read(void* bytes, size_t size) {
    const uint8_t* source = take(size);
    if (source == nullptr) return NOT_ENOUGH_DATA;
    memcpy(bytes, source, size);
    return OK;
}

template <typename T>
status_t ParcelReader::peek(T* object) const {
    if (available() < sizeof(*object)) return NOT_ENOUGH_DATA;
    memcpy(object, mView.data + *mPosition, sizeof(*object));
    return OK;
}

/** Reads an object that must be in the table: the driver has translated only those. */
template <typename T>
status_t ParcelReader::readEntered(uint32_t type, T* object, size_t* index) {
    if (!mObjects.find(*mPosition, index) || !mObjects.get(*index, type, object)) return BAD_VALUE;
    *mPosition += sizeof(*object);
    count(*index);
    return OK;
}

void ParcelReader::count(size_t index) {
    if (index == *mObjectsRead) ++*mObjectsRead;
}

status_t ParcelReader::readBuffer(size_t length, const BufferParent* parent, size_t* handle,
                                  const void** buffer) {
    binder_buffer_object object;
    status_t status = peek(&object);
    if (status != OK) return status;
    if (object.hdr.type != BINDER_TYPE_PTR || object.length != length || !isIn(object, parent)) {
        return BAD_VALUE;
    }
    if (isNull(object, parent)) {
        *mPosition += sizeof(object);
        *buffer = nullptr;
        return OK;
    }
    size_t index;
    if (!mObjects.find(*mPosition, &index) || !mObjects.getBuffer(index, &object)) return BAD_VALUE;
    *mPosition += sizeof(object);
    count(index);
    if (handle != nullptr) *handle = index;
    *buffer = reinterpret_cast<const void*>(object.buffer);
    return OK;
}

bool ParcelReader::isNull(const binder_buffer_object& buffer, const BufferParent* parent) const {
    size_t index;
    return buffer.buffer == 0 && (parent == nullptr || buffer.length == 0) &&
           !mObjects.find(*mPosition, &index);
}

bool ParcelReader::isIn(const binder_buffer_object& buffer, const BufferParent* parent) const {
    const bool hasParent = (buffer.flags & BINDER_BUFFER_FLAG_HAS_PARENT) != 0;
    if (parent == nullptr) return !hasParent;
    if (!hasParent || buffer.parent != parent->handle || buffer.parent_offset != parent->offset) {
        return false;
    }
    uint64_t address;
    return addressAt(*parent, &address) && address == buffer.buffer;
}

bool ParcelReader::addressAt(const BufferParent& place, uint64_t* address) const {
    binder_buffer_object outer;
    if (!mObjects.getBuffer(place.handle, &outer) || outer.length < sizeof(*address) ||
        place.offset > outer.length - sizeof(*address)) {
        return false;
    }
    memcpy(address, reinterpret_cast<const uint8_t*>(outer.buffer) + place.offset,
           sizeof(*address));
    return true;
}

bool ParcelReader::isNullAt(const BufferParent& place) const {
    uint64_t address;
    return addressAt(place, &address) && address == 0;
}

status_t ParcelReader::readDescriptorArray(size_t count, const BufferParent& parent) {
    const size_t start = *mPosition;
    const size_t readBefore = *mObjectsRead;
    binder_fd_array_object array;
    size_t index;
    const status_t status = readEntered(BINDER_TYPE_FDA, &array, &index);
    if (status != OK) return status;
    if (array.num_fds == count && array.parent == parent.handle &&
        array.parent_offset == parent.offset) {
        return OK;
    }
    *mPosition = start;
    *mObjectsRead = readBefore;
    return BAD_VALUE;
}

status_t ParcelReader::readBinder(flat_binder_object* binder) {
    const status_t status = peek(binder);
    if (status != OK) return status;
    size_t index;
    if (mObjects.find(*mPosition, &index)) {
        const uint32_t type = mObjects.typeAt(index);
        if (type != BINDER_TYPE_BINDER && type != BINDER_TYPE_HANDLE) return BAD_TYPE;
        return readEntered(type, binder, &index);
    }
    // Only a null one isn't entered in the table.
    if (binder->hdr.type != BINDER_TYPE_BINDER || binder->binder != 0) return BAD_TYPE;
    *mPosition += sizeof(*binder);
    *binder = {};
    return OK;
}

}  // namespace hardware
}  // namespace android
