// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "GraphicBuffer"

#include "ui/GraphicBuffer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <unistd.h>

#include <log/log.h>
#include <ui/BufferLayoutOptions.h>
#include <ui/Fence.h>

#include "BufferHandle.h"
#include "BufferLayout.h"
#include "BufferMapping.h"

namespace android {
namespace {

// Bits that allocators never see: HW_2D and the one after HW_FB.
constexpr uint64_t kStrippedUsage = (1u << 10) | (1u << 13);

uint64_t makeId() {
    static std::atomic<uint32_t> sNext{0};
    return static_cast<uint64_t>(getpid()) << 32 | sNext++;
}

}  // namespace

GraphicBuffer::GraphicBuffer() : mId(makeId()) {}

GraphicBuffer::GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint32_t inLayerCount, uint64_t inUsage, std::string requestorName)
    : mId(makeId()) {
    const bool isEmpty = inWidth == 0 || inHeight == 0;
    setAttributes(isEmpty ? 1 : inWidth, isEmpty ? 1 : inHeight, inFormat,
                  std::max(inLayerCount, 1u), inUsage & ~kStrippedUsage, 0);
    mInitCheck = allocate(requestorName);
}

GraphicBuffer::GraphicBuffer(const native_handle_t* inHandle, HandleWrapMethod method,
                             uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint32_t inLayerCount, uint64_t inUsage, uint32_t inStride)
    : mId(makeId()) {
    setAttributes(inWidth, inHeight, inFormat, inLayerCount, inUsage, inStride);
    switch (method) {
        case WRAP_HANDLE:
            mInitCheck = import(inHandle, Owner::NONE);
            break;
        case TAKE_HANDLE:
            mInitCheck = import(inHandle, Owner::HANDLE);
            break;
        case TAKE_UNREGISTERED_HANDLE:
            mInitCheck = importCopy(inHandle);
            if (mInitCheck == NO_ERROR) {
                native_handle_close(inHandle);
                native_handle_delete(const_cast<native_handle_t*>(inHandle));
            }
            break;
        case CLONE_HANDLE:
            mInitCheck = importCopy(inHandle);
            break;
    }
}

GraphicBuffer::~GraphicBuffer() {
    clear();
}

void GraphicBuffer::clear() {
    mMapping.reset();
    if (mOwner == Owner::HANDLE && handle != nullptr) {
        native_handle_close(handle);
        native_handle_delete(const_cast<native_handle_t*>(handle));
    }
    handle = nullptr;
    mOwner = Owner::NONE;
    mLocks = 0;
    setAttributes(0, 0, 0, 0, 0, 0);
}

void GraphicBuffer::setAttributes(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                                  uint32_t inLayerCount, uint64_t inUsage, uint32_t inStride) {
    width = static_cast<int>(inWidth);
    height = static_cast<int>(inHeight);
    stride = static_cast<int>(inStride);
    format = inFormat;
    layerCount = inLayerCount;
    usage = inUsage;
    usage_deprecated = static_cast<int>(inUsage);
}

status_t GraphicBuffer::allocate(const std::string& requestorName) {
    BufferLayout layout;
    const status_t status = layOut(getWidth(), getHeight(), format, getLayerCount(),
                                   getBufferLayoutOptions(), &layout);
    if (status != NO_ERROR) {
        ALOGE("allocate: %ux%u of format %#x and %u layers makes no sense", getWidth(), getHeight(),
              static_cast<unsigned>(format), getLayerCount());
        return status;
    }
    base::unique_fd memory = makeBufferMemory(requestorName, layout.size);
    if (memory.get() == -1) {
        ALOGE("allocate: no %u bytes for %s: %s (%d)", layout.size, requestorName.c_str(),
              strerror(errno), errno);
        return NO_MEMORY;
    }
    stride = static_cast<int>(layout.stride);
    const native_handle_t* const made = makeBufferHandle(std::move(memory), layout);
    if (made == nullptr) return NO_MEMORY;
    return import(made, Owner::HANDLE) == NO_ERROR ? NO_ERROR : NO_MEMORY;
}

status_t GraphicBuffer::import(const native_handle_t* inHandle, Owner owner) {
    handle = inHandle;
    mOwner = owner;
    mMapping = BufferMapping::create(inHandle);
    if (mMapping == nullptr) return BAD_VALUE;
    const BufferLayout& layout = mMapping->layout();
    if (layout.width != getWidth() || layout.height != getHeight() ||
        layout.stride != getStride() || layout.format != static_cast<uint32_t>(format) ||
        layout.layers != layerCount) {
        ALOGE("import: the handle is of a buffer with other attributes");
        mMapping.reset();
        return BAD_VALUE;
    }
    return NO_ERROR;
}

status_t GraphicBuffer::importCopy(const native_handle_t* inHandle) {
    BufferLayout layout;
    if (readBufferHandle(inHandle, &layout) != NO_ERROR) {
        ALOGE("import: not the handle of a buffer");
        return BAD_VALUE;
    }
    const native_handle_t* const copy = native_handle_clone(inHandle);
    return copy == nullptr ? status_t{NO_MEMORY} : import(copy, Owner::HANDLE);
}

uint32_t GraphicBuffer::getMemorySize() const {
    return mMapping == nullptr ? 0 : mMapping->layout().size;
}

ANativeWindowBuffer* GraphicBuffer::getNativeBuffer() const {
    return const_cast<GraphicBuffer*>(this);
}

sp<GraphicBuffer> GraphicBuffer::from(ANativeWindowBuffer* buffer) {
    return sp<GraphicBuffer>(static_cast<GraphicBuffer*>(buffer));
}

bool GraphicBuffer::needsReallocation(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                                      uint32_t inLayerCount, uint64_t inUsage) const {
    if (inWidth != getWidth() || inHeight != getHeight() || inFormat != format ||
        inLayerCount != layerCount) {
        return true;
    }
    return (usage & inUsage) != inUsage || ((usage ^ inUsage) & USAGE_PROTECTED) != 0;
}

bool GraphicBuffer::contains(const Rect& rect) const {
    // The analyser loses Rect's constructor. NOLINTNEXTLINE(clang-analyzer-core.*)
    return rect.left >= 0 && rect.right <= width && rect.top >= 0 && rect.bottom <= height;
}

status_t GraphicBuffer::prepareLock(uint64_t lockUsage, int fenceFd) const {
    const sp<Fence> fence = fenceFd == -1 ? Fence::NO_FENCE : sp<Fence>(new Fence(fenceFd));
    if (mMapping == nullptr) return NO_INIT;
    if ((lockUsage & USAGE_SOFTWARE_MASK) == 0 || (usage & USAGE_SOFTWARE_MASK) == 0) {
        ALOGE("lock: usage %#llx of a buffer for %#llx", static_cast<unsigned long long>(lockUsage),
              static_cast<unsigned long long>(usage));
        return BAD_VALUE;
    }
    return fence->waitForever("GraphicBuffer::lock");
}

status_t GraphicBuffer::lock(uint32_t inUsage, void** vaddr, int32_t* outBytesPerPixel,
                             int32_t* outBytesPerStride) {
    return lockAsync(inUsage, getBounds(), vaddr, -1, outBytesPerPixel, outBytesPerStride);
}

status_t GraphicBuffer::lock(uint32_t inUsage, const Rect& rect, void** vaddr,
                             int32_t* outBytesPerPixel, int32_t* outBytesPerStride) {
    return lockAsync(inUsage, rect, vaddr, -1, outBytesPerPixel, outBytesPerStride);
}

status_t GraphicBuffer::lockAsync(uint32_t inUsage, void** vaddr, int fenceFd,
                                  int32_t* outBytesPerPixel, int32_t* outBytesPerStride) {
    return lockAsync(inUsage, getBounds(), vaddr, fenceFd, outBytesPerPixel, outBytesPerStride);
}

status_t GraphicBuffer::lockAsync(uint32_t inUsage, const Rect& rect, void** vaddr, int fenceFd,
                                  int32_t* outBytesPerPixel, int32_t* outBytesPerStride) {
    return lockAsync(inUsage, inUsage, rect, vaddr, fenceFd, outBytesPerPixel, outBytesPerStride);
}

status_t GraphicBuffer::lockAsync(uint64_t inProducerUsage, uint64_t inConsumerUsage,
                                  const Rect& rect, void** vaddr, int fenceFd,
                                  int32_t* outBytesPerPixel, int32_t* outBytesPerStride) {
    if (!contains(rect)) return BAD_VALUE;
    const status_t status = prepareLock(inProducerUsage | inConsumerUsage, fenceFd);
    if (status != NO_ERROR) return status;
    if (format == HAL_PIXEL_FORMAT_YCbCr_420_888) return BAD_VALUE;
    const auto pixelSize = static_cast<int32_t>(bytesPerPixel(format));
    if (outBytesPerPixel != nullptr) *outBytesPerPixel = pixelSize > 0 ? pixelSize : -1;
    if (outBytesPerStride != nullptr) *outBytesPerStride = pixelSize > 0 ? pixelSize * stride : -1;
    *vaddr = mMapping->address();
    ++mLocks;
    return NO_ERROR;
}

status_t GraphicBuffer::lockYCbCr(uint32_t inUsage, android_ycbcr* ycbcr) {
    return lockAsyncYCbCr(inUsage, getBounds(), ycbcr, -1);
}

status_t GraphicBuffer::lockYCbCr(uint32_t inUsage, const Rect& rect, android_ycbcr* ycbcr) {
    return lockAsyncYCbCr(inUsage, rect, ycbcr, -1);
}

status_t GraphicBuffer::lockAsyncYCbCr(uint32_t inUsage, android_ycbcr* ycbcr, int fenceFd) {
    return lockAsyncYCbCr(inUsage, getBounds(), ycbcr, fenceFd);
}

status_t GraphicBuffer::lockAsyncYCbCr(uint32_t inUsage, const Rect& rect, android_ycbcr* ycbcr,
                                       int fenceFd) {
    if (!contains(rect)) return BAD_VALUE;
    const status_t status = prepareLock(inUsage, fenceFd);
    if (status != NO_ERROR) return status;
    if (!isYCbCr420(format)) return BAD_VALUE;
    planesOf(mMapping->layout(), mMapping->address(), ycbcr);
    ++mLocks;
    return NO_ERROR;
}

status_t GraphicBuffer::unlock() {
    int locks = mLocks;
    while (locks > 0 && !mLocks.compare_exchange_weak(locks, locks - 1)) {
    }
    if (locks == 0) ALOGE("unlock: the buffer isn't locked");
    return NO_ERROR;
}

status_t GraphicBuffer::unlockAsync(int* fenceFd) {
    *fenceFd = -1;
    return unlock();
}

}  // namespace android
