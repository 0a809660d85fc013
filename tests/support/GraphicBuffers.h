// SPDX-License-Identifier: Apache-2.0
// Graphic buffers that a test asks the allocator for.
#pragma once

#include <cstdint>

#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

namespace korvane::test {

constexpr uint64_t kCpu =
        android::GraphicBuffer::USAGE_SW_READ_OFTEN | android::GraphicBuffer::USAGE_SW_WRITE_OFTEN;

inline android::sp<android::GraphicBuffer> allocate(uint32_t width, uint32_t height, int format,
                                                    uint64_t usage = kCpu) {
    return new android::GraphicBuffer(width, height, format, 1, usage, "test");
}

}  // namespace korvane::test
