// SPDX-License-Identifier: Apache-2.0
#include "hwbinder/Parcel.h"

#include <cstddef>

#include "ParcelReader.h"
#include "ParcelWriter.h"
#include "ReceivedBlock.h"

// A native handle travels as its size (0 for null), a buffer with the handle itself, and the array
// of descriptors in it, which the driver replaces with the receiver's own.

namespace android {
namespace hardware {
namespace {

constexpr size_t kMaxSize =
        sizeof(native_handle_t) + (NATIVE_HANDLE_MAX_FDS + NATIVE_HANDLE_MAX_INTS) * sizeof(int);

bool hasValidCounts(const native_handle_t& handle) {
    return handle.version == sizeof(native_handle_t) && handle.numFds >= 0 &&
           handle.numFds <= NATIVE_HANDLE_MAX_FDS && handle.numInts >= 0 &&
           handle.numInts <= NATIVE_HANDLE_MAX_INTS;
}

size_t sizeOf(const native_handle_t& handle) {
    return sizeof(handle) + (handle.numFds + handle.numInts) * sizeof(int);
}

}  // namespace

status_t Parcel::writeNativeHandleNoDup(const native_handle_t* handle) {
    return writeNativeHandleNoDup(handle, false);
}

status_t Parcel::writeEmbeddedNativeHandle(const native_handle_t* handle, size_t parentHandle,
                                           size_t parentOffset) {
    return writeNativeHandleNoDup(handle, true, parentHandle, parentOffset);
}

status_t Parcel::writeNativeHandleNoDup(const native_handle_t* handle, bool embedded,
                                        size_t parentHandle, size_t parentOffset) {
    if (handle == nullptr) return writeUint64(0);
    if (!hasValidCounts(*handle)) return BAD_VALUE;
    const size_t size = sizeOf(*handle);
    status_t status = writeUint64(size);
    if (status != OK) return status;
    size_t index;
    status = embedded ? writeEmbeddedBuffer(handle, size, &index, parentHandle, parentOffset)
                      : writeBuffer(handle, size, &index);
    if (status != OK) return status;
    binder_fd_array_object array{};
    array.hdr.type = BINDER_TYPE_FDA;
    array.num_fds = handle->numFds;
    array.parent = index;
    array.parent_offset = offsetof(native_handle_t, data);
    return writer().writeObject(array);
}

status_t Parcel::readNullableNativeHandleNoDup(const native_handle_t** handle) const {
    return readNullableNativeHandleNoDup(handle, false);
}

status_t Parcel::readNullableEmbeddedNativeHandle(size_t parentHandle, size_t parentOffset,
                                                  const native_handle_t** handle) const {
    return readNullableNativeHandleNoDup(handle, true, parentHandle, parentOffset);
}

status_t Parcel::readNullableNativeHandleNoDup(const native_handle_t** handle, bool embedded,
                                               size_t parentHandle, size_t parentOffset) const {
    *handle = nullptr;
    uint64_t size;
    status_t status = readUint64(&size);
    if (status != OK) return status;
    if (size == 0) {
        // The handle's place in the buffer is used as it is: it must not point anywhere.
        return !embedded || reader().isNullAt({parentHandle, parentOffset}) ? OK : BAD_VALUE;
    }
    if (size < sizeof(native_handle_t) || size > kMaxSize) return BAD_VALUE;
    size_t index;
    const void* buffer;
    status = embedded ? readEmbeddedBuffer(size, &index, parentHandle, parentOffset, &buffer)
                      : readBuffer(size, &index, &buffer);
    if (status != OK) return status;
    const auto* received = static_cast<const native_handle_t*>(buffer);
    if (!hasValidCounts(*received) || sizeOf(*received) != size) return BAD_VALUE;
    const BufferParent place{index, offsetof(native_handle_t, data)};
    status = reader().readDescriptorArray(received->numFds, place);
    if (status == OK) *handle = received;
    return status;
}

status_t Parcel::readNativeHandleNoDup(const native_handle_t** handle) const {
    const status_t status = readNullableNativeHandleNoDup(handle);
    return status == OK && *handle == nullptr ? UNEXPECTED_NULL : status;
}

status_t Parcel::readEmbeddedNativeHandle(size_t parentHandle, size_t parentOffset,
                                          const native_handle_t** handle) const {
    const status_t status = readNullableEmbeddedNativeHandle(parentHandle, parentOffset, handle);
    return status == OK && *handle == nullptr ? UNEXPECTED_NULL : status;
}

}  // namespace hardware
}  // namespace android
