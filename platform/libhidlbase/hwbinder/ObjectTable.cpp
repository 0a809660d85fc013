// SPDX-License-Identifier: Apache-2.0
#include "ObjectTable.h"

#include <algorithm>

namespace android {
namespace hardware {
namespace {

/** Size of an object by its type; 0 if the type is unknown. */
size_t sizeOfType(uint32_t type) {
    switch (type) {
        case BINDER_TYPE_BINDER:
        case BINDER_TYPE_WEAK_BINDER:
        case BINDER_TYPE_HANDLE:
        case BINDER_TYPE_WEAK_HANDLE:
            return sizeof(flat_binder_object);
        case BINDER_TYPE_FD:
            return sizeof(binder_fd_object);
        case BINDER_TYPE_FDA:
            return sizeof(binder_fd_array_object);
        case BINDER_TYPE_PTR:
            return sizeof(binder_buffer_object);
        default:
            return 0;
    }
}

}  // namespace

status_t ObjectTable::check() const {
    uint64_t end = 0;  // of the object before
    for (size_t i = 0; i < mView.objectCount; i++) {
        const uint64_t offset = mView.objects[i];
        if (offset % sizeof(uint32_t) != 0 || offset < end || offset > mView.size) return BAD_VALUE;
        const uint64_t room = mView.size - offset;
        if (room < sizeof(binder_object_header)) return BAD_VALUE;
        const size_t size = sizeOfType(typeAt(i));
        if (size == 0) return BAD_TYPE;
        if (room < size) return BAD_VALUE;
        end = offset + size;
    }
    return OK;
}

uint32_t ObjectTable::typeAt(size_t index) const {
    binder_object_header header;
    memcpy(&header, mView.data + mView.objects[index], sizeof(header));
    return header.type;
}

bool ObjectTable::find(size_t offset, size_t* index) const {
    const size_t next = countBefore(offset);
    if (next == mView.objectCount || mView.objects[next] != offset) return false;
    *index = next;
    return true;
}

size_t ObjectTable::countBefore(size_t offset) const {
    const uint64_t* end = mView.objects + mView.objectCount;
    return std::lower_bound(mView.objects, end, offset) - mView.objects;
}

bool ObjectTable::getBuffer(size_t index, binder_buffer_object* buffer) const {
    return get(index, BINDER_TYPE_PTR, buffer) && isInside(*buffer);
}

bool ObjectTable::isInside(const binder_buffer_object& buffer) const {
    if (mView.buffersEnd == nullptr) return true;
    const auto begin = reinterpret_cast<uintptr_t>(mView.buffersBegin);
    const auto end = reinterpret_cast<uintptr_t>(mView.buffersEnd);
    return buffer.buffer % sizeof(uint64_t) == 0 && buffer.buffer >= begin &&
           buffer.buffer <= end && buffer.length <= end - buffer.buffer;
}

}  // namespace hardware
}  // namespace android
