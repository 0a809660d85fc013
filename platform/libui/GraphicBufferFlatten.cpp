// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "GraphicBuffer"

#include "ui/GraphicBuffer.h"

#include <algorithm>
#include <cstring>

#include <log/log.h>

#include "BufferMapping.h"

namespace android {
namespace {

constexpr uint32_t kMagic = 'GB01';

/** What comes before the handle's numbers. */
struct Header {
    uint32_t magic;
    uint32_t width;
    uint32_t height;
    uint32_t stride;
    uint32_t format;
    uint32_t layerCount;
    uint32_t usageLow;
    uint32_t idHigh;
    uint32_t idLow;
    uint32_t generation;
    uint32_t numFds;
    uint32_t numInts;
    uint32_t usageHigh;
};

uint64_t join(uint32_t high, uint32_t low) {
    return uint64_t{high} << 32 | low;
}

struct HandleDelete {
    void operator()(native_handle_t* handle) const { native_handle_delete(handle); }
};

}  // namespace

size_t GraphicBuffer::getFlattenedSize() const {
    const size_t numInts = handle == nullptr ? 0 : static_cast<size_t>(handle->numInts);
    return sizeof(Header) + numInts * sizeof(int);
}

size_t GraphicBuffer::getFdCount() const {
    return handle == nullptr ? 0 : static_cast<size_t>(handle->numFds);
}

status_t GraphicBuffer::flatten(void*& buffer, size_t& size, int*& fds, size_t& count) const {
    if (size < getFlattenedSize() || count < getFdCount()) return NO_MEMORY;
    Header header = {};
    header.magic = kMagic;
    header.width = getWidth();
    header.height = getHeight();
    header.stride = getStride();
    header.format = static_cast<uint32_t>(format);
    header.layerCount = getLayerCount();
    header.usageLow = static_cast<uint32_t>(usage);
    header.usageHigh = static_cast<uint32_t>(usage >> 32);
    header.idHigh = static_cast<uint32_t>(mId >> 32);
    header.idLow = static_cast<uint32_t>(mId);
    header.generation = mGenerationNumber;
    header.numFds = static_cast<uint32_t>(getFdCount());
    header.numInts = static_cast<uint32_t>((getFlattenedSize() - sizeof(Header)) / sizeof(int));
    FlattenableUtils::write(buffer, size, header);
    if (handle == nullptr) return NO_ERROR;
    memcpy(fds, handle->data, header.numFds * sizeof(int));
    memcpy(buffer, handle->data + header.numFds, header.numInts * sizeof(int));
    FlattenableUtils::advance(buffer, size, header.numInts * sizeof(int));
    fds += header.numFds;
    count -= header.numFds;
    return NO_ERROR;
}

status_t GraphicBuffer::unflatten(const void*& buffer, size_t& size, const int*& fds,
                                  size_t& count) {
    Header header;
    if (size < sizeof(header)) return NO_MEMORY;
    FlattenableUtils::read(buffer, size, header);
    if (header.magic != kMagic || header.numFds > NATIVE_HANDLE_MAX_FDS ||
        header.numInts > NATIVE_HANDLE_MAX_INTS) {
        return BAD_VALUE;
    }
    if (size < header.numInts * sizeof(int) || count < header.numFds) return NO_MEMORY;
    clear();
    mId = join(header.idHigh, header.idLow);
    mGenerationNumber = header.generation;
    mInitCheck = NO_ERROR;
    if (header.numFds == 0 && header.numInts == 0) return NO_ERROR;

    // Borrows the caller's descriptors; the import copies them.
    const std::unique_ptr<native_handle_t, HandleDelete> borrowed(native_handle_create(
            static_cast<int>(header.numFds), static_cast<int>(header.numInts)));
    if (borrowed == nullptr) return NO_MEMORY;
    memcpy(borrowed->data, fds, header.numFds * sizeof(int));
    memcpy(borrowed->data + header.numFds, buffer, header.numInts * sizeof(int));
    setAttributes(header.width, header.height, static_cast<PixelFormat>(header.format),
                  header.layerCount, join(header.usageHigh, header.usageLow), header.stride);
    mInitCheck = importCopy(borrowed.get());
    if (mInitCheck != NO_ERROR) {
        clear();
        return mInitCheck;
    }
    FlattenableUtils::advance(buffer, size, header.numInts * sizeof(int));
    fds += header.numFds;
    count -= header.numFds;
    return NO_ERROR;
}

}  // namespace android
