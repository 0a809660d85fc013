// SPDX-License-Identifier: Apache-2.0
// Frames as the camera renders them, for the tests of the UVC device.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include <system/graphics.h>
#include <ui/GraphicBuffer.h>

#include "support/YCbCrPicture.h"
#include "uvc/UvcBufInfo.h"

namespace korvane::test {

constexpr uint64_t kCpuUsage =
        android::GraphicBuffer::USAGE_SW_READ_OFTEN | android::GraphicBuffer::USAGE_SW_WRITE_OFTEN;

/** A picture in the allocator's current layout. */
inline android::sp<android::GraphicBuffer> makePicture(uint32_t width, uint32_t height) {
    android::sp<android::GraphicBuffer> buffer =
            new android::GraphicBuffer(width, height, HAL_PIXEL_FORMAT_YCbCr_420_888, 1, kCpuUsage);
    android_ycbcr planes = {};
    buffer->lockYCbCr(kCpuUsage, &planes);
    drawPicture(planes, width, height);
    buffer->unlock();
    return buffer;
}

/** A blob of this many bytes, each different from its neighbours. */
inline android::sp<android::GraphicBuffer> makeBlob(uint32_t capacity) {
    android::sp<android::GraphicBuffer> buffer =
            new android::GraphicBuffer(capacity, 1, HAL_PIXEL_FORMAT_BLOB, 1, kCpuUsage);
    void* memory = nullptr;
    buffer->lock(kCpuUsage, &memory);
    for (uint32_t i = 0; i < capacity; ++i) {
        static_cast<uint8_t*>(memory)[i] = static_cast<uint8_t>(i * 7 + 3);
    }
    buffer->unlock();
    return buffer;
}

/** A blob with a footer. */
inline android::sp<android::GraphicBuffer> makeJpeg(uint32_t capacity, uint32_t size,
                                                    uint16_t id = 0x00FF) {
    android::sp<android::GraphicBuffer> buffer = makeBlob(capacity);
    void* memory = nullptr;
    buffer->lock(kCpuUsage, &memory);
    auto* end = static_cast<uint8_t*>(memory) + capacity;
    memcpy(end - 8, &id, sizeof(id));
    memcpy(end - 4, &size, sizeof(size));
    buffer->unlock();
    return buffer;
}

/** The first bytes of a blob. */
inline std::vector<uint8_t> blobBytes(const android::sp<android::GraphicBuffer>& blob,
                                      size_t size) {
    void* memory = nullptr;
    blob->lock(kCpuUsage, &memory);
    const auto* bytes = static_cast<const uint8_t*>(memory);
    std::vector<uint8_t> result(bytes, bytes + size);
    blob->unlock();
    return result;
}

/** The record that brings a frame to the device. */
inline ::korvane::hardware::camera::desktop::V2_0::implementation::UvcBufInfo makeFrame(
        uint32_t index, const android::sp<android::GraphicBuffer>& buffer, timeval time = {0, 0},
        int fence = -1) {
    ::korvane::hardware::camera::desktop::V2_0::implementation::UvcBufInfo frame;
    frame.kind = 1;
    frame.index = index;
    frame.timestamp = time;
    frame.fenceFd = fence;
    frame.graphicBuffer = buffer;
    return frame;
}

}  // namespace korvane::test
