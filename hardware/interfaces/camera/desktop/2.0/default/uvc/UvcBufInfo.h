// SPDX-License-Identifier: Apache-2.0
// The record of one buffer that the frame path and the UVC device exchange.
#pragma once

#include <cstdint>

#include <sys/time.h>

#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * Either one of the UVC device's own output buffers, or a frame on its way into one.
 *
 * A plain value: copying it copies the reference to the frame, but neither the descriptors nor the
 * mapping, which stay with whoever made them.
 */
struct UvcBufInfo {
    /** What the record describes; for people who debug, nothing branches on it. */
    enum Kind : uint32_t {
        KIND_NONE = 0,
        KIND_FRAME = 1,
        KIND_MAPPED = 3,
    };

    uint32_t kind = KIND_NONE;
    int32_t bufFd = -1;
    /** Start of the buffer's mapping; null in a frame record and while nothing is mapped. */
    uint8_t* addr = nullptr;
    /**
     * The V4L2 buffer index. In a frame record the frame source's buffer id, which is the index of
     * the UVC buffer that takes the frame.
     */
    uint32_t index = 0;
    /** Bytes mapped at addr. */
    uint32_t length = 0;
    int32_t auxFd = -1;
    /** The fence that came with the frame, handed back with it. */
    int32_t fenceFd = -1;
    /** Presentation time of the frame. */
    timeval timestamp = {0, 0};
    /** The frame; locked for CPU access while its UVC buffer is queued. */
    android::sp<android::GraphicBuffer> graphicBuffer;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
