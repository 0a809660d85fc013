// SPDX-License-Identifier: Apache-2.0
// Turns a written parcel into what its receiver's driver would deliver, in memory, to be damaged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include <linux/android/binder.h>

#include <hwbinder/Parcel.h>

namespace korvane::test {

/**
 * A block as in the receive area: the parcel's bytes, the offsets of its objects, copies of its
 * buffers with the addresses in them adjusted and their descriptors duplicated. Its allocation ends
 * exactly where it does, so that AddressSanitizer sees every read past it. One thread; must outlive
 * the parcels that it is delivered to.
 */
class ReceivedBytes {
  public:
    explicit ReceivedBytes(const android::hardware::Parcel& written);
    ~ReceivedBytes();
    ReceivedBytes(const ReceivedBytes&) = delete;
    ReceivedBytes& operator=(const ReceivedBytes&) = delete;

    /** Turns the parcel into a received one with these bytes. */
    android::status_t deliver(android::hardware::Parcel* parcel);

    /** How many times a parcel has returned the bytes. */
    int releases() const { return mReleases; }

    // For damaging it.

    uint8_t* data() { return mBlock.get(); }
    size_t dataSize() const { return mDataSize; }
    size_t objectCount() const { return mObjectCount; }
    size_t size() const { return mSize; }

    /** Pretends that there are fewer or more bytes or objects than there are. */
    void setDataSize(size_t size) { mDataSize = size; }
    void setObjectCount(size_t count) { mObjectCount = count; }

    uint64_t offset(size_t object) const;
    void setOffset(size_t object, uint64_t offset);

    /** An object as stored in the data. */
    template <typename T>
    T get(size_t object) const {
        T value;
        memcpy(&value, mBlock.get() + offset(object), sizeof(value));
        return value;
    }
    /** Lets change(T&) modify it. */
    template <typename T, typename Change>
    void change(size_t object, Change change) {
        T value = get<T>(object);
        change(value);
        memcpy(mBlock.get() + offset(object), &value, sizeof(value));
    }

    /** The bytes of a buffer. */
    uint8_t* buffer(size_t object);

    /** One past the last byte that belongs to the block. */
    uint64_t end() const { return reinterpret_cast<uintptr_t>(mBlock.get() + mSize); }

  private:
    void placeBuffer(size_t object, uint8_t** room);
    void duplicateDescriptors(size_t object);

    size_t mDataSize;
    size_t mObjectCount;
    const size_t mOffsetsStart;
    const size_t mSize;
    const std::unique_ptr<uint8_t[]> mBlock;
    std::vector<int> mDescriptors;
    int mReleases = 0;
};

}  // namespace korvane::test
