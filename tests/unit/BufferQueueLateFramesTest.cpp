// SPDX-License-Identifier: Apache-2.0
// The buffer queue: which frame a consumer gets that wants one for a certain time.
#include <initializer_list>

#include <gtest/gtest.h>

#include "support/BufferQueueTest.h"

namespace korvane::test {
namespace {

constexpr nsecs_t kSecond = 1000000000;

class BufferQueueLateFramesTest : public BufferQueueTest {
  protected:
    /** Frames of these times, in seconds. */
    void queueFrames(std::initializer_list<int> seconds) {
        ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(4));
        for (int time : seconds) ASSERT_EQ(NO_ERROR, queueFrame(time * kSecond));
    }
};

TEST_F(BufferQueueLateFramesTest, LateFramesAreSkippedWhenAFrameIsWantedForATime) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(5));
    const nsecs_t second = 1000000000;
    for (nsecs_t time : {second, 2 * second, 3 * second, 4 * second}) {
        ASSERT_EQ(NO_ERROR, queueFrame(time));
    }
    EXPECT_EQ(IGraphicBufferConsumer::PRESENT_LATER, acquire(second - 1));
    EXPECT_EQ(NO_ERROR, acquire(2 * second));
    EXPECT_EQ(2u, item.mFrameNumber);
    EXPECT_EQ(1, producerListener->released);
    ASSERT_EQ(NO_ERROR, release(item));
    // The last one up to number 3, though number 4 is due as well.
    EXPECT_EQ(NO_ERROR, acquire(4 * second, 3));
    EXPECT_EQ(3u, item.mFrameNumber);
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(IGraphicBufferConsumer::PRESENT_LATER, acquire(4 * second, 3));
    EXPECT_EQ(NO_ERROR, acquire(0, 3));
    EXPECT_EQ(4u, item.mFrameNumber);
}

TEST_F(BufferQueueLateFramesTest, AFrameTooFarAheadIsDueNow) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame(5000000000));
    EXPECT_EQ(IGraphicBufferConsumer::PRESENT_LATER, acquire(4000000000));
    EXPECT_EQ(NO_ERROR, acquire(3999999999));
}

TEST_F(BufferQueueLateFramesTest, AutomaticTimesAreNotPassedOver) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(2));
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    QueueBufferInput automatic = input(100);
    automatic.isAutoTimestamp = 1;
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, automatic, &output));
    ASSERT_EQ(NO_ERROR, queueFrame(200));
    EXPECT_EQ(NO_ERROR, acquire(300));
    EXPECT_EQ(1u, item.mFrameNumber);
}

TEST_F(BufferQueueLateFramesTest, AFrameUpToTheNumberWantedTakesThePlaceOfAnEarlier) {
    connect();
    queueFrames({1, 2});
    EXPECT_EQ(NO_ERROR, acquire(2 * kSecond, 2));
    EXPECT_EQ(2u, item.mFrameNumber);
}

TEST_F(BufferQueueLateFramesTest, AFrameThatIsFarTooLateItselfTakesNoEarliersPlace) {
    connect();
    queueFrames({1, 2});
    EXPECT_EQ(NO_ERROR, acquire(10 * kSecond));
    EXPECT_EQ(1u, item.mFrameNumber);
}

TEST_F(BufferQueueLateFramesTest, TheBufferOfASkippedFrameIsFree) {
    connect();
    queueFrames({1, 2});
    ASSERT_EQ(NO_ERROR, acquire(2 * kSecond));
    EXPECT_EQ(NO_ERROR, dequeue());
    EXPECT_EQ(0, slot);
}

TEST_F(BufferQueueLateFramesTest, ASkippedFrameThatIsStaleFreesNothing) {
    connect();
    queueFrames({1});
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    ASSERT_EQ(NO_ERROR, connectProducer());
    queueFrames({2});
    ASSERT_EQ(NO_ERROR, acquire(2 * kSecond));
    EXPECT_EQ(2u, item.mFrameNumber);
    EXPECT_EQ(0, producerListener->released);
    EXPECT_EQ(kNeedsRequest, dequeue());  // no buffer is free, only slots
}

TEST_F(BufferQueueLateFramesTest, AProducerThatDoesNotListenIsNotToldOfASkippedFrame) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    const sp<RecordingProducerListener> deaf = new RecordingProducerListener(false);
    ASSERT_EQ(NO_ERROR, producer->connect(deaf, NATIVE_WINDOW_API_CPU, false, &output));
    queueFrames({1, 2});
    ASSERT_EQ(NO_ERROR, acquire(2 * kSecond));
    EXPECT_EQ(0, deaf->released);
}

}  // namespace
}  // namespace korvane::test
