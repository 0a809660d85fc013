// SPDX-License-Identifier: Apache-2.0
// The buffer queue: frames from queueBuffer to releaseBuffer.
#include <climits>
#include <vector>

#include <sys/eventfd.h>

#include <gtest/gtest.h>

#include "support/BufferQueueTest.h"

namespace korvane::test {
namespace {

class BufferQueueFramesTest : public BufferQueueTest {
  protected:
    status_t queueWithCrop(const Rect& crop) {
        QueueBufferInput cropped = input();
        cropped.crop = crop;
        return producer->queueBuffer(slot, cropped, &output);
    }

    /** Queues a frame with this damage and gives the damage of the last queued frame. */
    Region damageAfter(const Region& damage) {
        EXPECT_EQ(NO_ERROR, dequeueAndRequest());
        QueueBufferInput damaged = input();
        damaged.setSurfaceDamage(damage);
        EXPECT_EQ(NO_ERROR, producer->queueBuffer(slot, damaged, &output));
        return listener->lastItem.mSurfaceDamage;
    }
};

TEST_F(BufferQueueFramesTest, TheFirstFrameGoesRound) {
    connect();
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    EXPECT_EQ(NO_ERROR, queue(0));
    EXPECT_EQ(1u, output.numPendingBuffers);
    EXPECT_EQ(2u, output.nextFrameNumber);
    EXPECT_FALSE(output.bufferReplaced);
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(1u, item.mFrameNumber);
    EXPECT_EQ(0, item.mSlot);
    EXPECT_EQ(buffer, item.mGraphicBuffer);
    EXPECT_FALSE(item.mAcquireCalled);
    EXPECT_EQ(IGraphicBufferConsumer::NO_BUFFER_AVAILABLE, acquire());
    EXPECT_EQ(NO_ERROR, release(0, 1));
    EXPECT_EQ(1, producerListener->released);
}

TEST_F(BufferQueueFramesTest, TheConsumerGetsABufferOnlyOnce) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    ASSERT_EQ(NO_ERROR, dequeue());
    EXPECT_EQ(1u, age);
    ASSERT_EQ(NO_ERROR, queue(slot));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(2u, item.mFrameNumber);
    EXPECT_EQ(nullptr, item.mGraphicBuffer);
    EXPECT_TRUE(item.mAcquireCalled);
    ASSERT_EQ(NO_ERROR, release(item));
    ASSERT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION, dequeue(64, 32));
    ASSERT_EQ(NO_ERROR, request(slot));
    ASSERT_EQ(NO_ERROR, queue(slot));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(buffer, item.mGraphicBuffer);
}

TEST_F(BufferQueueFramesTest, AFrameCarriesWhatTheProducerSaid) {
    connect();
    consumer->setDefaultBufferSize(64, 32);
    consumer->setDefaultBufferDataSpace(HAL_DATASPACE_V0_JFIF);
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    const sp<Fence> acquireFence = new Fence();
    QueueBufferInput full(123456789, true, HAL_DATASPACE_V0_BT709, Rect(1, 2, 30, 20),
                          NATIVE_WINDOW_SCALING_MODE_SCALE_CROP,
                          NATIVE_WINDOW_TRANSFORM_ROT_90 | NATIVE_WINDOW_TRANSFORM_INVERSE_DISPLAY,
                          acquireFence, 5);
    HdrMetadata metadata;
    metadata.validTypes = HdrMetadata::CTA861_3;
    full.setHdrMetadata(metadata);
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, full, &output));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(123456789, item.mTimestamp);
    EXPECT_TRUE(item.mIsAutoTimestamp);
    EXPECT_EQ(HAL_DATASPACE_V0_BT709, item.mDataSpace);
    EXPECT_EQ(Rect(1, 2, 30, 20), item.mCrop);
    EXPECT_STREQ("SCALE_CROP", BufferItem::scalingModeName(item.mScalingMode));
    EXPECT_EQ(static_cast<uint32_t>(NATIVE_WINDOW_TRANSFORM_ROT_90), item.mTransform);
    EXPECT_TRUE(item.mTransformToDisplayInverse);
    EXPECT_EQ(acquireFence, item.mFence);
    EXPECT_FALSE(item.mFenceTime->isValid());
    EXPECT_EQ(NATIVE_WINDOW_API_CPU, item.mApi);
    EXPECT_EQ(HdrMetadata::CTA861_3, item.mHdrMetadata.validTypes);
    EXPECT_TRUE(item.mQueuedBuffer);
    EXPECT_FALSE(item.mIsDroppable);
    EXPECT_FALSE(item.mIsStale);
    EXPECT_FALSE(item.mAutoRefresh);
}

TEST_F(BufferQueueFramesTest, AFramesFenceIsToldWithTheFrameAndItsTimes) {
    connect();
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    QueueBufferInput fenced = input();
    fenced.fence = new Fence(eventfd(0, EFD_CLOEXEC));
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, fenced, &output));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(fenced.fence, item.mFence);
    EXPECT_TRUE(item.mFenceTime->isValid());
    ASSERT_EQ(1u, listener->timestamps.size());
    EXPECT_EQ(item.mFenceTime, listener->timestamps[0].acquireFence);
}

TEST_F(BufferQueueFramesTest, AnUnknownDataspaceIsTheConsumersDefault) {
    connect();
    consumer->setDefaultBufferDataSpace(HAL_DATASPACE_V0_JFIF);
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(HAL_DATASPACE_V0_JFIF, item.mDataSpace);
}

TEST_F(BufferQueueFramesTest, OutputTellsTheConsumersDefaults) {
    connect();
    consumer->setTransformHint(7);
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    consumer->setDefaultBufferSize(64, 32);
    QueueBufferOutput fresh;
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, input(), &fresh));
    EXPECT_EQ(64u, fresh.width);
    EXPECT_EQ(32u, fresh.height);
    EXPECT_EQ(7u, fresh.transformHint);
    EXPECT_EQ(0, fresh.maxBufferCount);
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ(2u, output.numPendingBuffers);
}

TEST_F(BufferQueueFramesTest, QueueingNeedsAFenceAndAScalingModeEvenUnconnected) {
    QueueBufferInput wrong = input();
    wrong.fence.clear();
    EXPECT_EQ(BAD_VALUE, producer->queueBuffer(0, wrong, &output));
    EXPECT_EQ(BAD_VALUE, producer->queueBuffer(0, QueueBufferInput(), &output));
    for (int mode : {-1, 4}) {
        wrong = input();
        wrong.scalingMode = mode;
        EXPECT_EQ(BAD_VALUE, producer->queueBuffer(0, wrong, &output)) << mode;
    }
    EXPECT_EQ(NO_INIT, queue(0));
}

TEST_F(BufferQueueFramesTest, QueueingNeedsAHeldAndRequestedSlot) {
    connect();
    ASSERT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION, dequeue());
    for (int wrong : {-1, 1, 64, INT_MAX, INT_MIN}) EXPECT_EQ(BAD_VALUE, queue(wrong)) << wrong;
    EXPECT_EQ(BAD_VALUE, queue(0));
    ASSERT_EQ(NO_ERROR, request(0));
    EXPECT_EQ(NO_ERROR, queue(0));
    EXPECT_EQ(BAD_VALUE, queue(0));
}

TEST_F(BufferQueueFramesTest, ACropStaysWithinTheBuffer) {
    connect();
    consumer->setDefaultBufferSize(64, 32);
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    for (const Rect& crop : {Rect(0, 0, 65, 32), Rect(0, 0, 64, 33), Rect(-1, 0, 64, 32),
                             Rect(0, -1, 64, 32), Rect(INT_MIN, INT_MIN, INT_MAX, INT_MAX)}) {
        EXPECT_EQ(BAD_VALUE, queueWithCrop(crop));
    }
    // A refused frame leaves the slot with the producer.
    for (const Rect& crop : {Rect(), Rect(0, 0, 0, 0), Rect(0, 0, 64, 32), Rect(63, 31, 64, 32)}) {
        EXPECT_EQ(NO_ERROR, queueWithCrop(crop));
        ASSERT_EQ(NO_ERROR, acquire());
        EXPECT_EQ(crop, item.mCrop);
        ASSERT_EQ(NO_ERROR, release(item));
        ASSERT_EQ(NO_ERROR, dequeue());
    }
}

TEST_F(BufferQueueFramesTest, AFrameIsReleasedOnceAndByItsNumber) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ(BAD_VALUE, release(0, 1));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(BAD_VALUE, release(0, 1, nullptr));
    for (int wrong : {-1, 64, INT_MAX}) EXPECT_EQ(BAD_VALUE, release(wrong, 1)) << wrong;
    EXPECT_EQ(IGraphicBufferConsumer::STALE_BUFFER_SLOT, release(0, 2));
    EXPECT_EQ(NO_ERROR, release(0, 1));
    EXPECT_EQ(BAD_VALUE, release(0, 1));
    EXPECT_EQ(1, producerListener->released);
}

TEST_F(BufferQueueFramesTest, ReleaseHelperIsARelease) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(NO_ERROR, consumer->releaseHelper(item.mSlot, item.mFrameNumber, Fence::NO_FENCE));
}

TEST_F(BufferQueueFramesTest, ProducersHearOfReleasesOnlyIfTheyWant) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    const sp<RecordingProducerListener> deaf = new RecordingProducerListener(false);
    ASSERT_EQ(NO_ERROR, producer->connect(deaf, NATIVE_WINDOW_API_CPU, false, &output));
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(1, deaf->asked);
    EXPECT_EQ(0, deaf->released);
}

TEST_F(BufferQueueFramesTest, TheConsumerMayHoldOneMoreThanItSet) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(3));
    for (int i = 0; i < 3; ++i) ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(INVALID_OPERATION, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(INVALID_OPERATION, acquire());
}

TEST_F(BufferQueueFramesTest, NothingAvailableLeavesTheItemAlone) {
    connect();
    item.mFrameNumber = 77;
    EXPECT_EQ(IGraphicBufferConsumer::NO_BUFFER_AVAILABLE, acquire());
    EXPECT_EQ(77u, item.mFrameNumber);
}

TEST_F(BufferQueueFramesTest, AsyncFramesReplaceEachOther) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
    std::vector<int> slots;
    std::vector<bool> replaced;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(NO_ERROR, queueFrame());
        EXPECT_EQ(1u, output.numPendingBuffers);
        slots.push_back(slot);
        replaced.push_back(output.bufferReplaced);
    }
    EXPECT_EQ((std::vector<int>{0, 1, 0}), slots);
    EXPECT_EQ((std::vector<bool>{false, true, true}), replaced);
    EXPECT_EQ((EventList{"dequeued", "available 1", "dequeued", "replaced 2", "dequeued",
                         "replaced 3"}),
              listener->events.take());
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(3u, item.mFrameNumber);
    EXPECT_TRUE(item.mIsDroppable);
    EXPECT_EQ(0, producerListener->released);
}

TEST_F(BufferQueueFramesTest, AReplacedFramesFenceComesWithItsBuffer) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    QueueBufferInput fenced = input();
    fenced.fence = new Fence();
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, fenced, &output));
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, dequeue());
    EXPECT_EQ(0, slot);
    EXPECT_EQ(fenced.fence, fence);
}

TEST_F(BufferQueueFramesTest, ItIsTheEarlierFrameThatDecidesWhetherItIsReplaced) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_FALSE(output.bufferReplaced);
    EXPECT_EQ(2u, output.numPendingBuffers);
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_TRUE(output.bufferReplaced);
}

TEST_F(BufferQueueFramesTest, AppsFramesAreDroppableUnlessTheyOptOut) {
    ASSERT_EQ(NO_ERROR, connectConsumer(true));
    ASSERT_EQ(NO_ERROR, connectProducer(true));
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_TRUE(listener->lastItem.mIsDroppable);
    ASSERT_EQ(NO_ERROR, producer->setLegacyBufferDrop(false));
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_TRUE(output.bufferReplaced);
    EXPECT_FALSE(listener->lastItem.mIsDroppable);
    ASSERT_EQ(NO_ERROR, producer->setLegacyBufferDrop(true));
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_FALSE(output.bufferReplaced);
    ASSERT_EQ(NO_ERROR, producer->setDequeueTimeout(1000));
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_FALSE(listener->lastItem.mIsDroppable);
}

TEST_F(BufferQueueFramesTest, AppsFramesStayDroppableWithoutATimeToWait) {
    ASSERT_EQ(NO_ERROR, connectConsumer(true));
    ASSERT_EQ(NO_ERROR, connectProducer(true));
    for (nsecs_t timeout : {-1, 0}) {
        ASSERT_EQ(NO_ERROR, producer->setDequeueTimeout(timeout));
        ASSERT_EQ(NO_ERROR, queueFrame());
        EXPECT_TRUE(listener->lastItem.mIsDroppable) << timeout;
    }
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    // The time outlives the connection, and decides about the next.
    ASSERT_EQ(NO_ERROR, connectProducer(true));
    EXPECT_EQ(1, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_TRUE(listener->lastItem.mIsDroppable);
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    ASSERT_EQ(NO_ERROR, producer->setDequeueTimeout(1));
    ASSERT_EQ(NO_ERROR, connectProducer(true));
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_FALSE(listener->lastItem.mIsDroppable);
}

TEST_F(BufferQueueFramesTest, TheCompositorsQueueAlwaysDropsForApps) {
    createQueue(true);
    ASSERT_EQ(NO_ERROR, connectConsumer(true));
    ASSERT_EQ(NO_ERROR, connectProducer(true));
    ASSERT_EQ(NO_ERROR, producer->setLegacyBufferDrop(false));
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_TRUE(listener->lastItem.mIsDroppable);
    EXPECT_EQ(buffer, listener->lastItem.mGraphicBuffer);
}

TEST_F(BufferQueueFramesTest, DamageOfReplacedFramesAddsUp) {
    connect();
    consumer->setDefaultBufferSize(64, 64);
    ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
    EXPECT_EQ(Region(Rect(0, 0, 8, 8)), damageAfter(Region(Rect(0, 0, 8, 8))));
    EXPECT_EQ(Region(Rect(0, 0, 16, 8)), damageAfter(Region(Rect(8, 0, 16, 8))));
    EXPECT_EQ(Region::INVALID_REGION, damageAfter(Region::INVALID_REGION));
    EXPECT_EQ(Region::INVALID_REGION, damageAfter(Region(Rect(0, 0, 8, 8))));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(Region::INVALID_REGION, item.mSurfaceDamage);
    EXPECT_EQ(Region(Rect(0, 0, 8, 8)), damageAfter(Region(Rect(0, 0, 8, 8))));
}

TEST_F(BufferQueueFramesTest, TheLastQueuedFrameIsKnown) {
    connect();
    float matrix[16] = {99};
    EXPECT_EQ(NO_ERROR, producer->getLastQueuedBuffer(&buffer, &fence, matrix));
    EXPECT_EQ(nullptr, buffer);
    EXPECT_EQ(Fence::NO_FENCE, fence);
    EXPECT_EQ(99, matrix[0]);
    consumer->setDefaultBufferSize(64, 32);
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    const sp<GraphicBuffer> queued = buffer;
    QueueBufferInput last = input();
    last.fence = new Fence();
    last.crop = Rect(16, 0, 48, 32);
    last.transform = NATIVE_WINDOW_TRANSFORM_FLIP_H;
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, last, &output));
    EXPECT_EQ(NO_ERROR, producer->getLastQueuedBuffer(&buffer, &fence, matrix));
    EXPECT_EQ(queued, buffer);
    EXPECT_EQ(last.fence, fence);
    // Mirrored, the middle half of the columns, upside down as textures are.
    const std::vector<float> expected = {-0.5f, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0, 0.75f, 1, 0, 1};
    EXPECT_EQ(expected, std::vector<float>(matrix, matrix + 16));
    Rect crop;
    uint32_t transform = 0;
    EXPECT_EQ(NO_ERROR, producer->getLastQueuedBuffer(&buffer, &fence, &crop, &transform));
    EXPECT_EQ(last.crop, crop);
    EXPECT_EQ(last.transform, transform);
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(NO_ERROR, producer->getLastQueuedBuffer(&buffer, &fence, matrix));
    EXPECT_EQ(nullptr, buffer);
}

// Which corner of the buffer, whose first row is at 0, is drawn at the top left: for a frame turned
// clockwise by 90 degrees the one at the bottom left, and so on.
TEST_F(BufferQueueFramesTest, TheLastQueuedFramesMatrixTurnsClockwise) {
    connect();
    const struct {
        uint32_t transform;
        float x, y;
    } turns[] = {{0, 0, 0},
                 {NATIVE_WINDOW_TRANSFORM_ROT_90, 0, 1},
                 {NATIVE_WINDOW_TRANSFORM_ROT_180, 1, 1},
                 {NATIVE_WINDOW_TRANSFORM_ROT_270, 1, 0}};
    for (const auto& turn : turns) {
        ASSERT_EQ(NO_ERROR, dequeueAndRequest());
        QueueBufferInput turned = input();
        turned.transform = turn.transform;
        ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, turned, &output));
        float matrix[16];
        ASSERT_EQ(NO_ERROR, producer->getLastQueuedBuffer(&buffer, &fence, matrix));
        // The top left of what is drawn is (0, 1).
        EXPECT_EQ(turn.x, matrix[4] + matrix[12]) << turn.transform;
        EXPECT_EQ(turn.y, matrix[5] + matrix[13]) << turn.transform;
        ASSERT_EQ(NO_ERROR, acquire());
        ASSERT_EQ(NO_ERROR, release(item));
    }
}

TEST_F(BufferQueueFramesTest, TheLastQueuedFrameIsForgottenWithItsSlotOnly) {
    connect();
    float matrix[16];
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    const sp<GraphicBuffer> queued = buffer;
    QueueBufferInput last = input();
    last.fence = new Fence();
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, last, &output));
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    ASSERT_EQ(NO_ERROR, producer->detachBuffer(slot));
    ASSERT_EQ(NO_ERROR, producer->getLastQueuedBuffer(&buffer, &fence, matrix));
    EXPECT_EQ(queued, buffer);
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, consumer->detachBuffer(item.mSlot));
    ASSERT_EQ(NO_ERROR, producer->getLastQueuedBuffer(&buffer, &fence, matrix));
    EXPECT_EQ(nullptr, buffer);
    EXPECT_EQ(Fence::NO_FENCE, fence);
}

}  // namespace
}  // namespace korvane::test
