// SPDX-License-Identifier: Apache-2.0
#include "uvc/LockedFrame.h"

#include <cstdint>
#include <utility>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

using ::android::GraphicBuffer;
using ::android::sp;

namespace {

// Every bit of reading and writing by software: the blob's footer is written back.
constexpr uint32_t kBlobUsage = 0xFF;
constexpr uint32_t kPictureUsage = GraphicBuffer::USAGE_SW_READ_RARELY;

}  // namespace

LockedFrame::LockedFrame(LockedFrame&& other) noexcept
    : mFrame(std::move(other.mFrame)), mLocked(std::exchange(other.mLocked, false)) {}

LockedFrame& LockedFrame::operator=(LockedFrame&& other) noexcept {
    LockedFrame taken(std::move(other));
    std::swap(mFrame, taken.mFrame);
    std::swap(mLocked, taken.mLocked);
    return *this;
}

void* LockedFrame::lockBlob() {
    void* memory = nullptr;
    int32_t bytesPerPixel = 0;
    int32_t bytesPerStride = 0;
    mLocked = true;
    mFrame->lock(kBlobUsage, &memory, &bytesPerPixel, &bytesPerStride);
    return memory;
}

android_ycbcr LockedFrame::lockPicture() {
    android_ycbcr planes = {};
    mLocked = true;
    mFrame->lockYCbCr(kPictureUsage, &planes);
    return planes;
}

void LockedFrame::unlock() {
    if (!mLocked) return;
    mLocked = false;
    mFrame->unlock();
}

sp<GraphicBuffer> LockedFrame::take() {
    unlock();
    return std::move(mFrame);
}

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
