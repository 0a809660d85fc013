// SPDX-License-Identifier: Apache-2.0
// The buffer queue: which of its buffers a consumer may keep, and what becomes of frames whose
// producer has gone.
#include <climits>
#include <vector>

#include <gtest/gtest.h>

#include "support/BufferQueueTest.h"

namespace korvane::test {
namespace {

constexpr uint64_t kAll = UINT64_MAX;
constexpr uint64_t kAllButFirst = UINT64_MAX - 1;

class BufferQueueSlotsTest : public BufferQueueTest {
  protected:
    /** One frame acquired, in slot 0, and one queued, in slot 1. */
    void holdOneAndQueueOne() {
        ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(2));
        ASSERT_EQ(NO_ERROR, queueFrame());
        ASSERT_EQ(NO_ERROR, acquire());
        ASSERT_EQ(NO_ERROR, queueFrame());
        listener->events.take();
    }

    status_t disconnect() { return producer->disconnect(NATIVE_WINDOW_API_CPU); }
};

TEST_F(BufferQueueSlotsTest, NothingIsKeptOfAFreshQueue) {
    EXPECT_EQ(kAll, releasedMask());
    EXPECT_EQ(BAD_VALUE, consumer->getReleasedBuffers(nullptr));
}

TEST_F(BufferQueueSlotsTest, AcquiredBuffersAreKept) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ(kAll, releasedMask());
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(kAllButFirst, releasedMask());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(kAllButFirst, releasedMask());
}

TEST_F(BufferQueueSlotsTest, AReallocatedBufferIsNotKept) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    ASSERT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION, dequeue(64, 32));
    EXPECT_EQ(kAll, releasedMask());
}

TEST_F(BufferQueueSlotsTest, DisconnectingFreesHeldSlotsAndMakesFramesStale) {
    connect();
    holdOneAndQueueOne();
    const BufferItem held = item;
    EXPECT_EQ(NO_ERROR, disconnect());
    EXPECT_EQ((EventList{"released", "disconnect"}), listener->events.take());
    EXPECT_EQ(kAll, releasedMask());
    EXPECT_EQ(IGraphicBufferConsumer::STALE_BUFFER_SLOT, release(held));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_TRUE(item.mIsStale);
    EXPECT_EQ(2u, item.mFrameNumber);
    EXPECT_NE(nullptr, item.mGraphicBuffer);
    EXPECT_EQ(kAll, releasedMask());  // the slot has nothing to do with it
    EXPECT_EQ(IGraphicBufferConsumer::STALE_BUFFER_SLOT, release(item));
    EXPECT_EQ(0, producerListener->released);
    EXPECT_EQ(IGraphicBufferConsumer::NO_BUFFER_AVAILABLE, acquire());
}

TEST_F(BufferQueueSlotsTest, AStaleFrameBringsItsBufferThoughItWasSeenBefore) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    const sp<GraphicBuffer> seen = item.mGraphicBuffer;
    ASSERT_EQ(NO_ERROR, release(item));
    ASSERT_EQ(NO_ERROR, dequeue());
    ASSERT_EQ(NO_ERROR, queue(slot));
    EXPECT_EQ(kAllButFirst, releasedMask());
    ASSERT_EQ(NO_ERROR, disconnect());
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(seen, item.mGraphicBuffer);
}

TEST_F(BufferQueueSlotsTest, FrameNumbersGoOnAfterReconnecting) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, disconnect());
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ(1u, output.numPendingBuffers);
    EXPECT_EQ(2u, output.nextFrameNumber);
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_TRUE(item.mIsStale);
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_FALSE(item.mIsStale);
    EXPECT_EQ(2u, item.mFrameNumber);
    EXPECT_EQ(NO_ERROR, release(item));
}

TEST_F(BufferQueueSlotsTest, StaleFramesDoNotCountAsHeld) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(3));
    for (int i = 0; i < 4; ++i) ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, disconnect());
    for (int i = 0; i < 4; ++i) EXPECT_EQ(NO_ERROR, acquire());
}

TEST_F(BufferQueueSlotsTest, AStaleFrameIsReplacedWithoutFreeingASlot) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, disconnect());
    ASSERT_EQ(NO_ERROR, connectProducer());
    listener->events.take();
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ((EventList{"dequeued", "replaced 2"}), listener->events.take());
    EXPECT_FALSE(output.bufferReplaced);
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(2u, item.mFrameNumber);
}

TEST_F(BufferQueueSlotsTest, AProducerThatReconnectsTooQuicklyWaitsForTheConsumer) {
    connect();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(NO_ERROR, queueFrame());
        ASSERT_EQ(NO_ERROR, disconnect());
        ASSERT_EQ(NO_ERROR, connectProducer());
    }
    EXPECT_EQ(TIMED_OUT, dequeue());
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION, dequeue());
}

TEST_F(BufferQueueSlotsTest, SettingsOutliveAConnection) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(2));
    ASSERT_EQ(NO_ERROR, producer->setGenerationNumber(9));
    ASSERT_EQ(NO_ERROR, producer->allowAllocation(false));
    ASSERT_EQ(NO_ERROR, disconnect());
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ(2, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    for (int i = 0; i < 4; ++i) ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    EXPECT_EQ(9u, buffer->getGenerationNumber());
    EXPECT_EQ(WOULD_BLOCK, dequeue());
}

TEST_F(BufferQueueSlotsTest, FreeBuffersCanBeDiscarded) {
    connect();
    EXPECT_EQ(NO_ERROR, consumer->discardFreeBuffers());
    EXPECT_TRUE(producerListener->discarded.empty());
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(NO_ERROR, consumer->discardFreeBuffers());
    EXPECT_EQ((std::vector<std::vector<int32_t>>{{0}}), producerListener->discarded);
    EXPECT_EQ(kAll, releasedMask());
    EXPECT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION, dequeue());
}

TEST_F(BufferQueueSlotsTest, FreeBuffersAreDiscardedThoughNobodyListens) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    ASSERT_EQ(NO_ERROR, producer->connect(nullptr, NATIVE_WINDOW_API_CPU, false, &output));
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(slot, Fence::NO_FENCE));
    EXPECT_EQ(NO_ERROR, consumer->discardFreeBuffers());
    ASSERT_EQ(NO_ERROR, producer->setDequeueTimeout(0));
    EXPECT_EQ((std::vector<status_t>{1, 1, TIMED_OUT}), dequeueMany(3));
    EXPECT_EQ(1, slot);
}

TEST_F(BufferQueueSlotsTest, FreeBuffersDoNotOutliveAConnection) {
    connect();
    dequeueMany(2);
    for (int held : {0, 1}) ASSERT_EQ(NO_ERROR, producer->cancelBuffer(held, Fence::NO_FENCE));
    ASSERT_EQ(NO_ERROR, disconnect());
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ((std::vector<status_t>{1, 1, TIMED_OUT}), dequeueMany(3));
    EXPECT_EQ(1, slot);
}

TEST_F(BufferQueueSlotsTest, FewerSlotsLoseTheNewestFreeBuffer) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(2));
    dequeueMany(3);
    for (int held : {0, 1, 2}) ASSERT_EQ(NO_ERROR, producer->cancelBuffer(held, Fence::NO_FENCE));
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(1));
    EXPECT_EQ((std::vector<status_t>{0, 0, TIMED_OUT}), dequeueMany(3));
    EXPECT_EQ(1, slot);
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(1, Fence::NO_FENCE));
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(2));
    // Of more slots again, the last has no buffer.
    EXPECT_EQ((std::vector<status_t>{0, 1, TIMED_OUT}), dequeueMany(3));
}

TEST_F(BufferQueueSlotsTest, DiscardingLeavesBuffersInUse) {
    connect();
    holdOneAndQueueOne();
    EXPECT_EQ(NO_ERROR, consumer->discardFreeBuffers());
    EXPECT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(NO_ERROR, acquire());
    EXPECT_FALSE(item.mIsStale);
}

TEST_F(BufferQueueSlotsTest, TheConsumerDetachesWhatItHolds) {
    connect();
    holdOneAndQueueOne();
    for (int wrong : {-1, 1, 2, 64, INT_MAX}) {
        EXPECT_EQ(BAD_VALUE, consumer->detachBuffer(wrong)) << wrong;
    }
    EXPECT_EQ(NO_ERROR, consumer->detachBuffer(item.mSlot));
    EXPECT_EQ(EventList{}, listener->events.take());
    EXPECT_EQ(kAll, releasedMask());
    EXPECT_EQ(IGraphicBufferConsumer::STALE_BUFFER_SLOT, release(item));
}

TEST_F(BufferQueueSlotsTest, TheConsumerAttachesAForeignBuffer) {
    connect();
    EXPECT_EQ(BAD_VALUE, consumer->attachBuffer(nullptr, foreignBuffer()));
    EXPECT_EQ(BAD_VALUE, consumer->attachBuffer(&slot, nullptr));
    EXPECT_EQ(BAD_VALUE, consumer->attachBuffer(&slot, foreignBuffer(1)));
    const sp<GraphicBuffer> foreign = foreignBuffer();
    EXPECT_EQ(NO_ERROR, consumer->attachBuffer(&slot, foreign));
    EXPECT_EQ(0, slot);
    EXPECT_EQ(kAll, releasedMask());
    EXPECT_EQ(NO_ERROR, release(0, 0));
    // The producer has to ask for it, though it isn't allocated anew.
    EXPECT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION, dequeue());
    EXPECT_EQ(0, slot);
    ASSERT_EQ(NO_ERROR, request(0));
    EXPECT_EQ(foreign, buffer);
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(0, Fence::NO_FENCE));
    EXPECT_EQ(NO_ERROR, dequeue());  // and once is enough
}

TEST_F(BufferQueueSlotsTest, TheConsumerAttachesNoMoreThanItMayHoldOrThereIsRoomFor) {
    connect();
    EXPECT_EQ(NO_ERROR, consumer->attachBuffer(&slot, foreignBuffer()));
    EXPECT_EQ(NO_ERROR, consumer->attachBuffer(&slot, foreignBuffer()));
    EXPECT_EQ(1, slot);
    EXPECT_EQ(INVALID_OPERATION, consumer->attachBuffer(&slot, foreignBuffer()));
    EXPECT_EQ(NO_ERROR, consumer->detachBuffer(1));
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    EXPECT_EQ(NO_MEMORY, consumer->attachBuffer(&slot, foreignBuffer()));
}

TEST_F(BufferQueueSlotsTest, TheConsumersAttachTakesTheOldestFreeBuffersSlot) {
    connect();
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(1, Fence::NO_FENCE));
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(0, Fence::NO_FENCE));
    EXPECT_EQ(NO_ERROR, consumer->attachBuffer(&slot, foreignBuffer()));
    EXPECT_EQ(1, slot);
    EXPECT_EQ(NO_ERROR, dequeue());
    EXPECT_EQ(0, slot);
}

}  // namespace
}  // namespace korvane::test
