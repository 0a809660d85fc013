// SPDX-License-Identifier: Apache-2.0
#include "hwbinder/Parcel.h"

#include <cstddef>

#include "ParcelReader.h"
#include "ParcelWriter.h"
#include "ReceivedBlock.h"

namespace android {
namespace hardware {
namespace {

binder_buffer_object describe(const void* buffer, size_t length) {
    binder_buffer_object object{};
    object.hdr.type = BINDER_TYPE_PTR;
    object.buffer = reinterpret_cast<uintptr_t>(buffer);
    object.length = length;
    return object;
}

}  // namespace

status_t Parcel::writeBuffer(const void* buffer, size_t length, size_t* handle) {
    if (!mBlock.isEmpty()) return INVALID_OPERATION;
    return writer().writeBuffer(describe(buffer, length), handle);
}

status_t Parcel::writeEmbeddedBuffer(const void* buffer, size_t length, size_t* handle,
                                     size_t parentHandle, size_t parentOffset) {
    if (!mBlock.isEmpty()) return INVALID_OPERATION;
    binder_buffer_object parent;
    if (!ObjectTable(writer().view()).getBuffer(parentHandle, &parent)) return BAD_VALUE;
    if (parent.length < sizeof(uint64_t) || parentOffset > parent.length - sizeof(uint64_t)) {
        return BAD_VALUE;
    }
    binder_buffer_object object = describe(buffer, length);
    object.flags = BINDER_BUFFER_FLAG_HAS_PARENT;
    object.parent = parentHandle;
    object.parent_offset = parentOffset;
    return writer().writeBuffer(object, handle);
}

status_t Parcel::readNullableBuffer(size_t length, size_t* handle, const void** buffer) const {
    return reader().readBuffer(length, nullptr, handle, buffer);
}

status_t Parcel::readBuffer(size_t length, size_t* handle, const void** buffer) const {
    const status_t status = readNullableBuffer(length, handle, buffer);
    return status == OK && *buffer == nullptr ? UNEXPECTED_NULL : status;
}

status_t Parcel::readNullableEmbeddedBuffer(size_t length, size_t* handle, size_t parentHandle,
                                            size_t parentOffset, const void** buffer) const {
    const BufferParent parent{parentHandle, parentOffset};
    return reader().readBuffer(length, &parent, handle, buffer);
}

status_t Parcel::readEmbeddedBuffer(size_t length, size_t* handle, size_t parentHandle,
                                    size_t parentOffset, const void** buffer) const {
    const status_t status =
            readNullableEmbeddedBuffer(length, handle, parentHandle, parentOffset, buffer);
    return status == OK && *buffer == nullptr ? UNEXPECTED_NULL : status;
}

}  // namespace hardware
}  // namespace android
