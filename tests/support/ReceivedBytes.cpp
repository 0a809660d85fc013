// SPDX-License-Identifier: Apache-2.0
#include "support/ReceivedBytes.h"

#include <unistd.h>

namespace korvane::test {

using android::hardware::Parcel;

namespace {

size_t roundUp(size_t size) {
    return (size + 7) / 8 * 8;
}

}  // namespace

ReceivedBytes::ReceivedBytes(const Parcel& written)
    : mDataSize(written.dataSize()),
      mObjectCount(written.ipcObjectsCount()),
      mOffsetsStart(roundUp(mDataSize)),
      mSize(mOffsetsStart + mObjectCount * sizeof(uint64_t) + written.ipcBufferSize()),
      mBlock(new uint8_t[mSize]) {
    if (mDataSize > 0) memcpy(mBlock.get(), written.data(), mDataSize);
    if (mObjectCount == 0) return;
    memcpy(mBlock.get() + mOffsetsStart, written.ipcObjects(), mObjectCount * sizeof(uint64_t));
    uint8_t* room = mBlock.get() + mOffsetsStart + mObjectCount * sizeof(uint64_t);
    for (size_t i = 0; i < mObjectCount; i++) {
        const uint32_t type = get<binder_object_header>(i).type;
        if (type == BINDER_TYPE_PTR) placeBuffer(i, &room);
        if (type == BINDER_TYPE_FDA) duplicateDescriptors(i);
    }
}

ReceivedBytes::~ReceivedBytes() {
    for (const int descriptor : mDescriptors) close(descriptor);
}

void ReceivedBytes::placeBuffer(size_t object, uint8_t** room) {
    const auto placed = get<binder_buffer_object>(object);
    memcpy(*room, reinterpret_cast<const void*>(placed.buffer), placed.length);
    const uint64_t address = reinterpret_cast<uintptr_t>(*room);
    change<binder_buffer_object>(object,
                                 [&](binder_buffer_object& value) { value.buffer = address; });
    if ((placed.flags & BINDER_BUFFER_FLAG_HAS_PARENT) != 0) {
        memcpy(buffer(placed.parent) + placed.parent_offset, &address, sizeof(address));
    }
    *room += roundUp(placed.length);
}

void ReceivedBytes::duplicateDescriptors(size_t object) {
    const auto array = get<binder_fd_array_object>(object);
    for (size_t i = 0; i < array.num_fds; i++) {
        uint8_t* place = buffer(array.parent) + array.parent_offset + i * sizeof(int);
        int descriptor;
        memcpy(&descriptor, place, sizeof(descriptor));
        descriptor = dup(descriptor);
        memcpy(place, &descriptor, sizeof(descriptor));
        mDescriptors.push_back(descriptor);
    }
}

android::status_t ReceivedBytes::deliver(Parcel* parcel) {
    return parcel->ipcSetDataReference(
            mBlock.get(), mDataSize,
            reinterpret_cast<const uint64_t*>(mBlock.get() + mOffsetsStart), mObjectCount,
            mBlock.get() + mSize, [this](const uint8_t*) { mReleases++; });
}

uint64_t ReceivedBytes::offset(size_t object) const {
    uint64_t offset;
    memcpy(&offset, mBlock.get() + mOffsetsStart + object * sizeof(offset), sizeof(offset));
    return offset;
}

void ReceivedBytes::setOffset(size_t object, uint64_t offset) {
    memcpy(mBlock.get() + mOffsetsStart + object * sizeof(offset), &offset, sizeof(offset));
}

uint8_t* ReceivedBytes::buffer(size_t object) {
    return reinterpret_cast<uint8_t*>(get<binder_buffer_object>(object).buffer);
}

}  // namespace korvane::test
