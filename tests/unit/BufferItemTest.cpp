// SPDX-License-Identifier: Apache-2.0
// What frames, and what is told with them, are like before anybody has said anything.
#include "gui/BufferItem.h"

#include <gtest/gtest.h>
#include <gui/IGraphicBufferProducer.h>
#include <system/window.h>

namespace {

using android::BufferItem;
using android::CompositorTiming;
using android::Fence;
using android::FenceTime;
using android::IGraphicBufferProducer;
using android::Rect;
using android::sp;

TEST(BufferItemTest, IsOfNoFrameAtFirst) {
    const BufferItem item;
    EXPECT_EQ(nullptr, item.mGraphicBuffer);
    EXPECT_EQ(nullptr, item.mFence);
    EXPECT_EQ(FenceTime::NO_FENCE, item.mFenceTime);
    EXPECT_EQ(Rect::INVALID_RECT, item.mCrop);
    EXPECT_EQ(0u, item.mTransform);
    EXPECT_EQ(0u, item.mScalingMode);
    EXPECT_EQ(0, item.mTimestamp);
    EXPECT_FALSE(item.mIsAutoTimestamp);
    EXPECT_EQ(HAL_DATASPACE_UNKNOWN, item.mDataSpace);
    EXPECT_EQ(0u, item.mHdrMetadata.validTypes);
    EXPECT_EQ(0u, item.mFrameNumber);
    EXPECT_EQ(-1, item.mSlot);
    EXPECT_FALSE(item.mIsDroppable);
    EXPECT_FALSE(item.mAcquireCalled);
    EXPECT_FALSE(item.mTransformToDisplayInverse);
    EXPECT_EQ(1u, item.mSurfaceDamage.size());
    EXPECT_EQ(Rect(0, 0), item.mSurfaceDamage.getBounds());
    EXPECT_FALSE(item.mAutoRefresh);
    EXPECT_TRUE(item.mQueuedBuffer);
    EXPECT_FALSE(item.mIsStale);
    EXPECT_EQ(0, item.mApi);
}

TEST(BufferItemTest, NamesScalingModes) {
    EXPECT_STREQ("FREEZE", BufferItem::scalingModeName(0));
    EXPECT_STREQ("SCALE_TO_WINDOW", BufferItem::scalingModeName(1));
    EXPECT_STREQ("SCALE_CROP", BufferItem::scalingModeName(2));
    EXPECT_STREQ("NO_SCALE_CROP", BufferItem::scalingModeName(3));
    EXPECT_STREQ("Unknown", BufferItem::scalingModeName(4));
}

TEST(QueueBufferInputTest, HasNoFenceUntilOneIsGiven) {
    const IGraphicBufferProducer::QueueBufferInput input;
    EXPECT_EQ(nullptr, input.fence);
    EXPECT_EQ(Rect::INVALID_RECT, input.crop);
    EXPECT_EQ(0u, input.stickyTransform);
    EXPECT_FALSE(input.getFrameTimestamps);
    EXPECT_EQ(-1, input.slot);
}

TEST(QueueBufferInputTest, GivesOutWhatItWasMadeOf) {
    const sp<Fence> fence = new Fence();
    const IGraphicBufferProducer::QueueBufferInput input(7, true, HAL_DATASPACE_V0_JFIF,
                                                         Rect(1, 2, 3, 4), 2, 5, fence, 6, true, 8);
    int64_t timestamp = 0;
    bool isAutoTimestamp = false;
    android_dataspace dataSpace = HAL_DATASPACE_UNKNOWN;
    Rect crop;
    int scalingMode = 0;
    uint32_t transform = 0;
    sp<Fence> given;
    uint32_t sticky = 0;
    bool getFrameTimestamps = false;
    input.deflate(&timestamp, &isAutoTimestamp, &dataSpace, &crop, &scalingMode, &transform, &given,
                  &sticky, &getFrameTimestamps);
    EXPECT_EQ(7, timestamp);
    EXPECT_TRUE(isAutoTimestamp);
    EXPECT_EQ(HAL_DATASPACE_V0_JFIF, dataSpace);
    EXPECT_EQ(Rect(1, 2, 3, 4), crop);
    EXPECT_EQ(2, scalingMode);
    EXPECT_EQ(5u, transform);
    EXPECT_EQ(fence, given);
    EXPECT_EQ(6u, sticky);
    EXPECT_TRUE(getFrameTimestamps);
    EXPECT_EQ(8, input.slot);
    transform = 0;
    input.deflate(&timestamp, &isAutoTimestamp, &dataSpace, &crop, &scalingMode, &transform,
                  &given);
    EXPECT_EQ(5u, transform);
}

TEST(QueueBufferOutputTest, TellsNothingAtFirst) {
    const IGraphicBufferProducer::QueueBufferOutput output;
    EXPECT_EQ(0u, output.width);
    EXPECT_EQ(0u, output.height);
    EXPECT_EQ(0u, output.transformHint);
    EXPECT_EQ(0u, output.numPendingBuffers);
    EXPECT_EQ(0u, output.nextFrameNumber);
    EXPECT_FALSE(output.bufferReplaced);
    EXPECT_EQ(0, output.maxBufferCount);
    EXPECT_EQ(android::NO_ERROR, output.result);
    const CompositorTiming& timing = output.frameTimestamps.getCompositorTiming();
    EXPECT_EQ(0, timing.deadline);
    EXPECT_EQ(16666667, timing.interval);
    EXPECT_EQ(16666667, timing.presentLatency);
}

}  // namespace
