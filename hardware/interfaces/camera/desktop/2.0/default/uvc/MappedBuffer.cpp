// SPDX-License-Identifier: Apache-2.0
#include "uvc/MappedBuffer.h"

#include <utility>

#include <sys/mman.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

MappedBuffer::MappedBuffer(MappedBuffer&& other) noexcept
    : mData(std::exchange(other.mData, nullptr)), mLength(std::exchange(other.mLength, 0)) {}

bool MappedBuffer::map(int node, off_t offset, uint32_t length) {
    void* memory = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, node, offset);
    if (memory == MAP_FAILED) return false;
    mData = static_cast<uint8_t*>(memory);
    mLength = length;
    return true;
}

void MappedBuffer::reset() {
    if (mData != nullptr) munmap(mData, mLength);
    leave();
}

void MappedBuffer::leave() {
    mData = nullptr;
    mLength = 0;
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
