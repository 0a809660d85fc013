// SPDX-License-Identifier: Apache-2.0
// The record of one frame and its buffer that the frame path and the UVC device exchange.
#pragma once

#include <cstdint>

#include <sys/time.h>

#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

namespace korvane::hardware::camera::desktop::V2_0::implementation {

/**
 * A frame on its way into one of the UVC device's buffers, or one that comes back from there.
 *
 * A plain value that owns nothing but its reference to the frame. The fence is handed over with it:
 * to the device when it takes the frame, to the listener when the frame comes back, who gives it to
 * the queue as the release fence. Nobody on this way waits for it. The mapping stays the device's.
 */
struct UvcBufInfo {
    /** What the record describes; for people who debug, nothing branches on it. */
    enum Kind : uint32_t {
        KIND_NONE = 0,
        KIND_FRAME = 1,
        KIND_MAPPED = 3,
    };

    uint32_t kind = KIND_NONE;
    /** Idle: nothing sets or reads it. */
    int32_t bufFd = -1;
    /** Start of the buffer's mapping; null on a frame's way in and while nothing is mapped. */
    uint8_t* addr = nullptr;
    /** The V4L2 buffer index, which is the frame source's bufferId. */
    uint32_t index = 0;
    /** Bytes mapped at addr. */
    uint32_t length = 0;
    /** Idle: nothing sets or reads it. */
    int32_t auxFd = -1;
    /** The fence that came with the frame, handed back with it. */
    int32_t fenceFd = -1;
    /** Presentation time of the frame. */
    timeval timestamp = {0, 0};
    /** The frame. */
    android::sp<android::GraphicBuffer> graphicBuffer;
};

}  // namespace korvane::hardware::camera::desktop::V2_0::implementation
