// SPDX-License-Identifier: Apache-2.0
// A queued frame.
#pragma once

#include <cstdint>
#include <memory>

#include <gui/HdrMetadata.h>
#include <system/graphics.h>
#include <ui/Fence.h>
#include <ui/FenceTime.h>
#include <ui/GraphicBuffer.h>
#include <ui/Rect.h>
#include <ui/Region.h>
#include <utils/StrongPointer.h>

namespace android {

/** What a producer queued, on its way to the consumer. Copyable. */
class BufferItem {
  public:
    enum { INVALID_BUFFER_SLOT = -1 };

    /** "FREEZE", "SCALE_TO_WINDOW", "SCALE_CROP", "NO_SCALE_CROP" or "Unknown". */
    static const char* scalingModeName(uint32_t scalingMode);

    /**
     * Null in listener callbacks, and when the consumer has acquired this buffer from this slot
     * before: it keeps the last one it got for each slot.
     */
    sp<GraphicBuffer> mGraphicBuffer;
    /** Signals when the producer has finished the picture. */
    sp<Fence> mFence;
    std::shared_ptr<FenceTime> mFenceTime = FenceTime::NO_FENCE;
    /** The visible part; an invalid or empty one means all of it. */
    Rect mCrop;
    uint32_t mTransform = 0;
    uint32_t mScalingMode = 0;
    /** As the producer gave it, usually CLOCK_MONOTONIC nanoseconds. */
    int64_t mTimestamp = 0;
    bool mIsAutoTimestamp = false;
    android_dataspace mDataSpace = HAL_DATASPACE_UNKNOWN;
    HdrMetadata mHdrMetadata;
    /** Counts from 1; a release names it. */
    uint64_t mFrameNumber = 0;
    int mSlot = INVALID_BUFFER_SLOT;
    /** The next frame may take its place. */
    bool mIsDroppable = false;
    /** The slot's buffer had already been acquired when this frame was queued. */
    bool mAcquireCalled = false;
    bool mTransformToDisplayInverse = false;
    Region mSurfaceDamage;
    bool mAutoRefresh = false;
    bool mQueuedBuffer = true;
    /** The producer disconnected after queueing: the slot is no longer this frame's. */
    bool mIsStale = false;
    /** NATIVE_WINDOW_API_* of the producer. */
    int mApi = 0;
};

}  // namespace android
