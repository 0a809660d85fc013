// SPDX-License-Identifier: Apache-2.0
#include "ReceiveArea.h"

#include <utility>

#include <sys/mman.h>

namespace android {
namespace hardware {

ReceiveArea::ReceiveArea(int device, size_t size) {
    void* begin = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_NORESERVE, device, 0);
    if (begin == MAP_FAILED) return;
    mBegin = static_cast<uint8_t*>(begin);
    mSize = size;
}

ReceiveArea::~ReceiveArea() {
    if (mBegin != nullptr) munmap(mBegin, mSize);
}

ReceiveArea::ReceiveArea(ReceiveArea&& other) noexcept
    : mBegin(std::exchange(other.mBegin, nullptr)), mSize(std::exchange(other.mSize, 0)) {}

ReceiveArea& ReceiveArea::operator=(ReceiveArea&& other) noexcept {
    std::swap(mBegin, other.mBegin);
    std::swap(mSize, other.mSize);
    return *this;
}

}  // namespace hardware
}  // namespace android
