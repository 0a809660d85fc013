// SPDX-License-Identifier: Apache-2.0
// The buffer queue: when a producer waits for a slot, and what ends the wait.
#include <chrono>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "support/BufferQueueTest.h"

namespace korvane::test {
namespace {

class BufferQueueWaitTest : public BufferQueueTest {
  protected:
    /** A dequeue on another thread that is seen to wait. */
    PendingCall<status_t> dequeueLater(nsecs_t timeout = -1) {
        EXPECT_EQ(NO_ERROR, producer->setDequeueTimeout(timeout));
        PendingCall<status_t> later([this] { return dequeue(); });
        EXPECT_TRUE(later.isHeldUp());
        return later;
    }
};

TEST_F(BufferQueueWaitTest, NeverWaitsWhenBothEndsAreAnApps) {
    ASSERT_EQ(NO_ERROR, connectConsumer(true));
    ASSERT_EQ(NO_ERROR, connectProducer(true));
    EXPECT_EQ((std::vector<status_t>{1, 1, 1, WOULD_BLOCK}), dequeueMany(4));
}

TEST_F(BufferQueueWaitTest, MayWaitUnlessBothEndsAreAnApps) {
    ASSERT_EQ(NO_ERROR, connectConsumer(true));
    ASSERT_EQ(NO_ERROR, connectProducer(false));
    EXPECT_EQ(1, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    ASSERT_EQ(NO_ERROR, connectConsumer(false));
    ASSERT_EQ(NO_ERROR, connectProducer(true));
    EXPECT_EQ(1, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
}

TEST_F(BufferQueueWaitTest, ATimeoutEndsTheAppsModeAndItsExtraBuffer) {
    ASSERT_EQ(NO_ERROR, connectConsumer(true));
    ASSERT_EQ(NO_ERROR, connectProducer(true));
    ASSERT_EQ(NO_ERROR, producer->setDequeueTimeout(0));
    EXPECT_EQ((std::vector<status_t>{1, 1, TIMED_OUT}), dequeueMany(3));
    EXPECT_EQ(1, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
}

TEST_F(BufferQueueWaitTest, WaitingForEverDoesNotEndTheAppsMode) {
    ASSERT_EQ(NO_ERROR, connectConsumer(true));
    ASSERT_EQ(NO_ERROR, connectProducer(true));
    ASSERT_EQ(NO_ERROR, producer->setDequeueTimeout(-1));
    EXPECT_EQ((std::vector<status_t>{1, 1, 1, WOULD_BLOCK}), dequeueMany(4));
}

TEST_F(BufferQueueWaitTest, TheExtraBufferMustBeFreeToGo) {
    ASSERT_EQ(NO_ERROR, connectConsumer(true));
    ASSERT_EQ(NO_ERROR, connectProducer(true));
    dequeueMany(3);
    EXPECT_EQ(BAD_VALUE, producer->setDequeueTimeout(0));
    EXPECT_EQ(WOULD_BLOCK, dequeue());
}

TEST_F(BufferQueueWaitTest, AnUnknownApiStillSetsTheMode) {
    ASSERT_EQ(NO_ERROR, connectConsumer(true));
    EXPECT_EQ(BAD_VALUE, connectProducer(true, 9));
    EXPECT_EQ(2, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
}

TEST_F(BufferQueueWaitTest, AsyncModeNeverWaits) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
    EXPECT_EQ((std::vector<status_t>{1, 1, 1, WOULD_BLOCK}), dequeueMany(4));
}

TEST_F(BufferQueueWaitTest, AsyncModeWaitsOnceTheConsumerHoldsTooMany) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(NO_ERROR, queueFrame());
        ASSERT_EQ(NO_ERROR, acquire());
    }
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ(TIMED_OUT, dequeue());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(NO_ERROR, dequeue());
}

TEST_F(BufferQueueWaitTest, WaitsNoLongerThanItsTimeout) {
    connect();
    dequeueMany(2);
    ASSERT_EQ(NO_ERROR, producer->setDequeueTimeout(ms2ns(50)));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(TIMED_OUT, dequeue());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(49));
}

TEST_F(BufferQueueWaitTest, WaitsUnderTheLongestTimeoutToo) {
    connect();
    dequeueMany(2);
    auto later = dequeueLater(INT64_MAX);
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(0, Fence::NO_FENCE));
    EXPECT_EQ(NO_ERROR, later.get());
}

TEST_F(BufferQueueWaitTest, LeavesItsResultsAloneWhenItFindsNothing) {
    connect();
    dequeueMany(2);
    slot = 77;
    age = 88;
    fence.clear();
    EXPECT_EQ(TIMED_OUT, dequeue());
    EXPECT_EQ(77, slot);
    EXPECT_EQ(88u, age);
    EXPECT_EQ(nullptr, fence);
}

TEST_F(BufferQueueWaitTest, CancellingWakesWhoWaits) {
    connect();
    dequeueMany(2);
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(1, Fence::NO_FENCE));
    EXPECT_EQ(NO_ERROR, later.get());
    EXPECT_EQ(1, slot);
}

TEST_F(BufferQueueWaitTest, ReleasingWakesWhoWaits) {
    connect();
    dequeueMany(2);
    ASSERT_EQ(NO_ERROR, queue(0));
    ASSERT_EQ(NO_ERROR, queue(1));
    ASSERT_EQ(NO_ERROR, acquire());
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(NO_ERROR, later.get());
}

TEST_F(BufferQueueWaitTest, AcquiringAFrameOfAnEarlierConnectionWakesWhoWaits) {
    connect();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(NO_ERROR, queueFrame());
        ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
        ASSERT_EQ(NO_ERROR, connectProducer());
    }
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(kNeedsRequest, later.get());
}

TEST_F(BufferQueueWaitTest, DetachingWakesWhoWaits) {
    connect();
    dequeueMany(2);
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, producer->detachBuffer(0));
    EXPECT_EQ(kNeedsRequest, later.get());
}

TEST_F(BufferQueueWaitTest, DetachingByTheConsumerWakesWhoWaits) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, consumer->detachBuffer(item.mSlot));
    EXPECT_EQ(kNeedsRequest, later.get());
}

TEST_F(BufferQueueWaitTest, ARaisedDequeuedCountWakesWhoWaits) {
    connect();
    dequeueMany(2);
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(2));
    EXPECT_EQ(kNeedsRequest, later.get());
}

TEST_F(BufferQueueWaitTest, AsyncModeWakesWhoWaits) {
    connect();
    dequeueMany(2);
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
    EXPECT_EQ(kNeedsRequest, later.get());
}

TEST_F(BufferQueueWaitTest, QueueingTellsWhoWaitsThatItHoldsTooMany) {
    connect();
    dequeueMany(2);
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, queue(0));
    EXPECT_EQ(INVALID_OPERATION, later.get());
}

TEST_F(BufferQueueWaitTest, TheEndOfTheConsumerEndsTheWait) {
    connect();
    dequeueMany(2);
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, consumer->consumerDisconnect());
    EXPECT_EQ(NO_INIT, later.get());
}

TEST_F(BufferQueueWaitTest, TheEndOfTheConsumerEndsTheWaitToAttach) {
    connect();
    dequeueMany(2);
    ASSERT_EQ(NO_ERROR, producer->setDequeueTimeout(-1));
    PendingCall<status_t> later([this] {
        int attached = -1;
        return producer->attachBuffer(&attached, foreignBuffer());
    });
    EXPECT_TRUE(later.isHeldUp());
    ASSERT_EQ(NO_ERROR, consumer->consumerDisconnect());
    EXPECT_EQ(NO_INIT, later.get());
}

TEST_F(BufferQueueWaitTest, RaisingTheAcquiredCountWakesNobody) {
    connect();
    dequeueMany(2);
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(2));
    EXPECT_TRUE(later.isHeldUp());
    ASSERT_EQ(NO_ERROR, consumer->consumerDisconnect());
    EXPECT_EQ(NO_INIT, later.get());
}

TEST_F(BufferQueueWaitTest, TakingAStaleFrameEndsTheWaitForAShorterQueue) {
    connect();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(NO_ERROR, queueFrame());
        ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
        ASSERT_EQ(NO_ERROR, connectProducer());
    }
    ASSERT_EQ(TIMED_OUT, dequeue());
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_TRUE(item.mIsStale);
    EXPECT_LE(0, later.get());
}

TEST_F(BufferQueueWaitTest, DroppingALateFrameEndsTheWaitForItsBuffer) {
    connect();
    dequeueMany(2);
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(NO_ERROR, producer->queueBuffer(i, input(100 + i), &output));
    }
    auto later = dequeueLater();
    ASSERT_EQ(NO_ERROR, acquire(1000));
    EXPECT_EQ(1, item.mSlot);
    EXPECT_LE(0, later.get());
}

}  // namespace
}  // namespace korvane::test
