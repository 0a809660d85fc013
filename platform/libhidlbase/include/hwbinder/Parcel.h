// SPDX-License-Identifier: Apache-2.0
// The contents of one call or reply: scalars, buffers, handles with descriptors, objects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include <cutils/native_handle.h>
#include <hwbinder/IBinder.h>
#include <hwbinder/InPlace.h>
#include <utils/String16.h>

namespace android {
namespace hardware {

class ParcelReader;
struct ParcelView;
class ParcelWriter;
class ReceivedBlock;

/**
 * What travels in one direction of a call. A parcel is either written here or received; either can
 * be read. Not thread-safe; the const read methods move a position.
 *
 * Writing. Scalars are copied, little-endian, padded to four bytes. Buffers and native handles are
 * not: the parcel keeps their addresses, and their bytes are copied and their descriptors
 * duplicated when the parcel is sent, so they must live until then. The parcel keeps objects alive.
 * Every write returns OK, or NO_MEMORY once the parcel would exceed 2 GiB. The parcel has room for
 * the usual call within itself, which makes it a kilobyte; a longer one takes memory from the heap
 * and keeps none of it.
 *
 * Reading. The bytes of a received parcel stay in the area that the driver filled, which is
 * read-only; pointers read from it are valid until the parcel is freed, which also closes the
 * descriptors that came with it. A sender is not trusted: nothing that it wrote is used before it
 * has been checked, and a parcel that fails gives a status, never a wild pointer. Reads return OK,
 * NOT_ENOUGH_DATA past the end, BAD_VALUE or BAD_TYPE if what is there is not what was asked for,
 * UNEXPECTED_NULL for a null that isn't allowed.
 */
class Parcel {
  public:
    Parcel();
    ~Parcel();
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;

    const uint8_t* data() const;
    size_t dataSize() const;
    size_t dataAvail() const;
    size_t dataPosition() const;
    /** Where the next read starts; positions past the end count as the end. */
    void setDataPosition(size_t position) const;

    /** Empties the parcel; a received one gives its bytes and descriptors back. */
    void freeData();

    // Scalars and strings.

    /** The descriptor of the interface called; comes first in a call. */
    status_t writeInterfaceToken(const char* interface);
    /** Reads the token; true if it is this descriptor. */
    bool enforceInterface(const char* interface) const;

    status_t writeBool(bool value);
    status_t writeInt8(int8_t value);
    status_t writeUint8(uint8_t value);
    status_t writeInt16(int16_t value);
    status_t writeUint16(uint16_t value);
    status_t writeInt32(int32_t value);
    status_t writeUint32(uint32_t value);
    status_t writeInt64(int64_t value);
    status_t writeUint64(uint64_t value);
    status_t writeFloat(float value);
    status_t writeDouble(double value);
    /** The bytes up to and including the NUL. */
    status_t writeCString(const char* string);
    status_t writeString16(const String16& string);

    status_t readBool(bool* value) const;
    status_t readInt8(int8_t* value) const;
    status_t readUint8(uint8_t* value) const;
    status_t readInt16(int16_t* value) const;
    status_t readUint16(uint16_t* value) const;
    status_t readInt32(int32_t* value) const;
    status_t readUint32(uint32_t* value) const;
    status_t readInt64(int64_t* value) const;
    status_t readUint64(uint64_t* value) const;
    status_t readFloat(float* value) const;
    status_t readDouble(double* value) const;
    /** A NUL-terminated string in place; null if there is none. */
    const char* readCString() const;
    status_t readString16(String16* string) const;

    // Objects.

    /** Null is allowed and arrives as null. An object sent to its own process arrives as itself. */
    status_t writeStrongBinder(const sp<IBinder>& binder);
    /** NO_INIT if it is a remote object and there is no driver. */
    status_t readStrongBinder(sp<IBinder>* binder) const;
    status_t readNullableStrongBinder(sp<IBinder>* binder) const;

    // Buffers. A buffer's handle is its index among the parcel's objects; a null buffer has none,
    // and *handle is left as it was. handle may be null.

    status_t writeBuffer(const void* buffer, size_t length, size_t* handle);
    /**
     * A buffer whose address is stored in the bytes of an earlier one, at parentOffset, where the
     * receiver finds the new address. BAD_VALUE unless parentHandle is a buffer of this parcel and
     * the eight bytes of the address are inside it. The driver refuses a parent that is the very
     * first thing in a parcel, and addresses that aren't ascending, depth first.
     */
    status_t writeEmbeddedBuffer(const void* buffer, size_t length, size_t* handle,
                                 size_t parentHandle, size_t parentOffset);

    /** The next object must be a buffer of exactly this size, not embedded in another. */
    status_t readBuffer(size_t length, size_t* handle, const void** buffer) const;
    status_t readNullableBuffer(size_t length, size_t* handle, const void** buffer) const;
    /** The same for a buffer embedded at this place in one read before. */
    status_t readEmbeddedBuffer(size_t length, size_t* handle, size_t parentHandle,
                                size_t parentOffset, const void** buffer) const;
    status_t readNullableEmbeddedBuffer(size_t length, size_t* handle, size_t parentHandle,
                                        size_t parentOffset, const void** buffer) const;

    // Native handles; null is allowed where the name says Nullable, and in every write. The sender
    // keeps its descriptors; received ones belong to the parcel, so clone the handle to keep them.
    // BAD_VALUE for more than 1024 descriptors or 1024 ints, or sizes that don't agree.

    status_t writeNativeHandleNoDup(const native_handle_t* handle);
    status_t writeNativeHandleNoDup(const native_handle_t* handle, bool embedded,
                                    size_t parentHandle = 0, size_t parentOffset = 0);
    status_t writeEmbeddedNativeHandle(const native_handle_t* handle, size_t parentHandle,
                                       size_t parentOffset);

    status_t readNativeHandleNoDup(const native_handle_t** handle) const;
    status_t readNullableNativeHandleNoDup(const native_handle_t** handle) const;
    status_t readNullableNativeHandleNoDup(const native_handle_t** handle, bool embedded,
                                           size_t parentHandle = 0, size_t parentOffset = 0) const;
    status_t readEmbeddedNativeHandle(size_t parentHandle, size_t parentOffset,
                                      const native_handle_t** handle) const;
    status_t readNullableEmbeddedNativeHandle(size_t parentHandle, size_t parentOffset,
                                              const native_handle_t** handle) const;

    /**
     * Whether every object of the parcel has been read, in order. A reader doesn't know of what it
     * doesn't ask for: descriptors and objects that stay with the parcel.
     */
    bool isEveryObjectRead() const;

    // For the transport.

    /** Gives a received block of bytes back to where it came from. */
    using ReleaseFunction = std::function<void(const uint8_t* data)>;

    /**
     * Makes this a received parcel: size bytes at data, with objectCount objects at the given
     * offsets, which refer to buffers between the end of the offsets and areaEnd. release is called
     * when the parcel is freed.
     *
     * BAD_VALUE or BAD_TYPE if the offsets aren't ascending, aligned and inside, or an object's
     * type is unknown; the parcel is then empty and the block has been released.
     */
    status_t ipcSetDataReference(const uint8_t* data, size_t size, const uint64_t* objects,
                                 size_t objectCount, const uint8_t* areaEnd,
                                 ReleaseFunction release);

    /** The offsets of the objects in data(). */
    const uint64_t* ipcObjects() const;
    size_t ipcObjectsCount() const;
    /** The room that the buffers take besides the data when this parcel is sent. */
    size_t ipcBufferSize() const;

  private:
    template <typename T>
    status_t writeScalar(T value);
    template <typename T>
    status_t readScalar(T* value) const;
    status_t writeBytes(const void* bytes, size_t size);
    ParcelView view() const;
    ParcelReader reader() const;
    ParcelWriter& writer();

    InPlace<ParcelWriter, 768> mWriter;  // what has been written here, if anything
    InPlace<ReceivedBlock, 128> mBlock;  // or, if there is one, what has been received
    mutable size_t mPosition = 0;
    mutable size_t mObjectsRead = 0;  // from the first on, without a gap
};

}  // namespace hardware
}  // namespace android
