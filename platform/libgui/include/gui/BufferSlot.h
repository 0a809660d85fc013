// SPDX-License-Identifier: Apache-2.0
// One slot of a buffer queue.
#pragma once

#include <cstdint>

#include <ui/Fence.h>
#include <ui/GraphicBuffer.h>
#include <utils/StrongPointer.h>

namespace android {

/** Who has the slot's buffer. */
enum class BufferState { FREE, DEQUEUED, QUEUED, ACQUIRED };

/** Guarded by the queue's lock. */
struct BufferSlot {
    BufferState mBufferState = BufferState::FREE;
    sp<GraphicBuffer> mGraphicBuffer;
    /** To be waited for by whoever gets the buffer next. */
    sp<Fence> mFence = Fence::NO_FENCE;
    /** Of the last frame queued from here; 0 before. */
    uint64_t mFrameNumber = 0;
    /** The producer has asked for this buffer. */
    bool mRequestBufferCalled = false;
    /** The consumer has seen this buffer. */
    bool mAcquireCalled = false;
    /** The producer's next dequeue of the slot must tell it to ask for the buffer. */
    bool mNeedsReallocation = false;
};

}  // namespace android
