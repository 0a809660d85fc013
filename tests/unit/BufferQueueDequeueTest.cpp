// SPDX-License-Identifier: Apache-2.0
// The buffer queue: how a producer comes by slots and buffers, and when it waits.
#include <climits>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "support/BufferQueueTest.h"

namespace korvane::test {
namespace {

constexpr PixelFormat kNv12 = HAL_PIXEL_FORMAT_YCbCr_420_888;

class BufferQueueDequeueTest : public BufferQueueTest {
  protected:
    uint64_t idOf(int ofSlot) {
        EXPECT_EQ(NO_ERROR, request(ofSlot));
        return buffer->getId();
    }
};

TEST_F(BufferQueueDequeueTest, FirstUseOfASlotNeedsARequest) {
    connect();
    EXPECT_EQ(kNeedsRequest, dequeue());
    EXPECT_EQ(0, slot);
    EXPECT_EQ(0u, age);
    EXPECT_FALSE(fence->isValid());
    EXPECT_EQ(NO_ERROR, request(0));
    EXPECT_EQ(EventList{"dequeued"}, listener->events.take());
    EXPECT_EQ(buffer->getId(), listener->lastId);
}

TEST_F(BufferQueueDequeueTest, OnlyDequeuedSlotsCanBeRequested) {
    connect();
    ASSERT_EQ(kNeedsRequest, dequeue());
    for (int wrong : {-1, 1, 64, INT_MAX, INT_MIN}) EXPECT_EQ(BAD_VALUE, request(wrong)) << wrong;
    ASSERT_EQ(NO_ERROR, request(0));
    ASSERT_EQ(NO_ERROR, queue(0));
    EXPECT_EQ(BAD_VALUE, request(0));
}

TEST_F(BufferQueueDequeueTest, DefaultsFillInWhatIsNotGiven) {
    connect();
    consumer->setDefaultBufferSize(64, 32);
    consumer->setConsumerUsageBits(0x33);
    consumer->setDefaultBufferFormat(kNv12);
    ASSERT_EQ(kNeedsRequest, dequeue(0, 0, 0, 0));
    ASSERT_EQ(NO_ERROR, request(slot));
    EXPECT_EQ(Rect(64, 32), buffer->getBounds());
    EXPECT_EQ(kNv12, buffer->getPixelFormat());
    EXPECT_EQ(0x33u, buffer->getUsage());
    const auto again = [&](uint32_t width, uint32_t height, PixelFormat format, uint64_t usage) {
        EXPECT_EQ(NO_ERROR, producer->cancelBuffer(slot, Fence::NO_FENCE));
        return dequeue(width, height, format, usage);
    };
    EXPECT_EQ(NO_ERROR, again(64, 32, kNv12, 0x3));
    EXPECT_EQ(kNeedsRequest, again(0, 0, 0, 0x100));
    ASSERT_EQ(NO_ERROR, request(slot));
    EXPECT_EQ(0x133u, buffer->getUsage());
    EXPECT_EQ(NO_ERROR, again(0, 0, 0, 0));
    EXPECT_EQ(kNeedsRequest, again(64, 33, 0, 0));
}

TEST_F(BufferQueueDequeueTest, AReallocatedBufferHasNothingOfTheOneBefore) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item.mSlot, item.mFrameNumber, new Fence()));
    ASSERT_EQ(kNeedsRequest, dequeue(64, 32));
    EXPECT_EQ(0, slot);
    EXPECT_EQ(Fence::NO_FENCE, fence);
    EXPECT_EQ(0u, age);
    EXPECT_EQ(0, query(NATIVE_WINDOW_BUFFER_AGE));
    EXPECT_EQ(BAD_VALUE, queue(0));  // not requested
    ASSERT_EQ(NO_ERROR, request(0));
    EXPECT_EQ(NO_ERROR, queue(0));
}

TEST_F(BufferQueueDequeueTest, BuffersAreNamedAfterTheConsumer) {
    connect();
    consumer->setConsumerName(String8("webcam"));
    const auto nameOf = [](const GraphicBuffer& named) {
        char name[64] = {};
        const std::string path = "/proc/self/fd/" + std::to_string(named.handle->data[0]);
        EXPECT_LT(0, readlink(path.c_str(), name, sizeof(name) - 1));
        return std::string(name);
    };
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    EXPECT_EQ("/memfd:webcam (deleted)", nameOf(*buffer));
    consumer->setConsumerName(String8("encoder"));
    producer->allocateBuffers(1, 1, 0, kCpuUsage);
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    EXPECT_EQ("/memfd:encoder (deleted)", nameOf(*buffer));
}

TEST_F(BufferQueueDequeueTest, WidthAndHeightComeTogether) {
    connect();
    EXPECT_EQ(BAD_VALUE, dequeue(64, 0));
    EXPECT_EQ(BAD_VALUE, dequeue(0, 32));
}

TEST_F(BufferQueueDequeueTest, AReusedBufferTellsItsAgeAndItsReleaseFence) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    const sp<Fence> released = new Fence();
    ASSERT_EQ(NO_ERROR, release(item.mSlot, item.mFrameNumber, released));
    EXPECT_EQ(NO_ERROR, dequeue());
    EXPECT_EQ(0, slot);
    EXPECT_EQ(1u, age);
    EXPECT_EQ(released, fence);
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(0, Fence::NO_FENCE));
    ASSERT_EQ(NO_ERROR, dequeue());
    EXPECT_EQ(Fence::NO_FENCE, fence);
}

TEST_F(BufferQueueDequeueTest, FreeBuffersAreUsedBeforeEmptySlotsOldestFirst) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(4));
    dequeueMany(3);
    for (int free : {1, 0, 2}) EXPECT_EQ(NO_ERROR, producer->cancelBuffer(free, Fence::NO_FENCE));
    for (int expected : {1, 0, 2, 3}) {
        EXPECT_EQ(expected == 3 ? kNeedsRequest : NO_ERROR, dequeue());
        EXPECT_EQ(expected, slot);
    }
}

TEST_F(BufferQueueDequeueTest, AllBuffersCanBeTakenUntilAFrameIsQueued) {
    connect();
    EXPECT_EQ((std::vector<status_t>{1, 1, TIMED_OUT}), dequeueMany(3));
    ASSERT_EQ(NO_ERROR, queue(0));
    EXPECT_EQ(INVALID_OPERATION, dequeue());
    ASSERT_EQ(NO_ERROR, queue(1));
    EXPECT_EQ(TIMED_OUT, dequeue());
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(TIMED_OUT, dequeue());
    const BufferItem first = item;
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(INVALID_OPERATION, acquire());
    ASSERT_EQ(NO_ERROR, release(first));
    EXPECT_EQ(NO_ERROR, dequeue());
}

TEST_F(BufferQueueDequeueTest, ConnectingAgainAllowsAllOfThemAgain) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ((std::vector<status_t>{1, 1, TIMED_OUT}), dequeueMany(3));
}

TEST_F(BufferQueueDequeueTest, CountsMakeTheTotal) {
    connect();
    ASSERT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(2));
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(3));
    EXPECT_EQ((std::vector<status_t>{1, 1, 1, 1, 1, TIMED_OUT}), dequeueMany(6));
    EXPECT_EQ(2, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
}

TEST_F(BufferQueueDequeueTest, MaxBufferCountCapsTheTotal) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    ASSERT_EQ(NO_ERROR, consumer->setMaxBufferCount(1));
    ASSERT_EQ(NO_ERROR, connectProducer());
    ASSERT_EQ(NO_ERROR, producer->setDequeueTimeout(0));
    EXPECT_EQ((std::vector<status_t>{1, TIMED_OUT}), dequeueMany(2));
}

TEST_F(BufferQueueDequeueTest, SlotsAreHandedOutInAscendingOrder) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(63));
    for (int expected = 0; expected < 64; ++expected) {
        ASSERT_EQ(kNeedsRequest, dequeue());
        EXPECT_EQ(expected, slot);
    }
    EXPECT_EQ(TIMED_OUT, dequeue());
}

TEST_F(BufferQueueDequeueTest, AFailedAllocationLeavesTheSlotEmpty) {
    connect();
    EXPECT_EQ(BAD_VALUE, dequeue(UINT32_MAX, UINT32_MAX));
    EXPECT_EQ(0, slot);
    EXPECT_EQ(BAD_VALUE, dequeue(1, 1, 0x7777));
    EXPECT_EQ(EventList{}, listener->events.take());
    EXPECT_EQ(kNeedsRequest, dequeue());
    EXPECT_EQ(0, slot);
    EXPECT_EQ(EventList{"dequeued"}, listener->events.take());
}

TEST_F(BufferQueueDequeueTest, AFailedAllocationLosesTheBufferThatDidNotFit) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(BAD_VALUE, dequeue(UINT32_MAX, 1));
    EXPECT_EQ(0, slot);
    EXPECT_EQ(UINT64_MAX, releasedMask());
    EXPECT_EQ(kNeedsRequest, dequeue());
}

TEST_F(BufferQueueDequeueTest, WithoutAllocationOnlyFittingBuffersAreGiven) {
    connect();
    dequeueMany(1);
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(0, Fence::NO_FENCE));
    ASSERT_EQ(NO_ERROR, producer->allowAllocation(false));
    EXPECT_EQ(NO_ERROR, dequeue());
    EXPECT_EQ(TIMED_OUT, dequeue());
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(0, Fence::NO_FENCE));
    EXPECT_EQ(TIMED_OUT, dequeue(64, 32));
    EXPECT_EQ(TIMED_OUT, dequeue());
    ASSERT_EQ(NO_ERROR, producer->allowAllocation(true));
    EXPECT_EQ(kNeedsRequest, dequeue());
    EXPECT_EQ(0, slot);
}

TEST_F(BufferQueueDequeueTest, GenerationMarksBuffersAllocatedLater) {
    connect();
    dequeueMany(1);
    EXPECT_EQ(0u, buffer->getGenerationNumber());
    ASSERT_EQ(NO_ERROR, producer->setGenerationNumber(5));
    dequeueMany(1);
    EXPECT_EQ(5u, buffer->getGenerationNumber());
    ASSERT_EQ(NO_ERROR, producer->detachBuffer(slot));
    ASSERT_EQ(NO_ERROR, producer->setGenerationNumber(6));
    producer->allocateBuffers(1, 1, 0, kCpuUsage);
    dequeueMany(1);
    EXPECT_EQ(6u, buffer->getGenerationNumber());
}

TEST_F(BufferQueueDequeueTest, TimestampsComeFromTheConsumer) {
    connect();
    FrameEventHistoryDelta delta;
    EXPECT_EQ(16666667, delta.getCompositorTiming().interval);
    EXPECT_EQ(kNeedsRequest,
              producer->dequeueBuffer(&slot, &fence, 0, 0, 0, kCpuUsage, nullptr, &delta));
    EXPECT_EQ(2, delta.getCompositorTiming().interval);
    FrameEventHistoryDelta asked;
    producer->getFrameTimestamps(&asked);
    EXPECT_EQ(3, asked.getCompositorTiming().presentLatency);
}

TEST_F(BufferQueueDequeueTest, PreallocatesEverySlot) {
    connect();
    consumer->setDefaultBufferSize(64, 32);
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(2));
    producer->allocateBuffers(0, 48, 0, kCpuUsage);
    ASSERT_EQ(NO_ERROR, producer->allowAllocation(false));
    // They exist, but the producer has never asked for them.
    EXPECT_EQ((std::vector<status_t>{1, 1, 1, TIMED_OUT}), [&] {
        std::vector<status_t> statuses;
        for (int i = 0; i < 4; ++i) statuses.push_back(dequeue(64, 48));
        return statuses;
    }());
    ASSERT_EQ(NO_ERROR, request(0));
    EXPECT_EQ(Rect(64, 48), buffer->getBounds());
}

TEST_F(BufferQueueDequeueTest, PreallocatesNothingThatIsAbsurdOrForbidden) {
    connect();
    producer->allocateBuffers(UINT32_MAX, UINT32_MAX, 0, kCpuUsage);
    ASSERT_EQ(NO_ERROR, producer->allowAllocation(false));
    producer->allocateBuffers(1, 1, 0, kCpuUsage);
    EXPECT_EQ(TIMED_OUT, dequeue());
}

TEST_F(BufferQueueDequeueTest, CancelNeedsAHeldSlotAndAFence) {
    connect();
    ASSERT_EQ(kNeedsRequest, dequeue());
    for (int wrong : {-1, 1, 64, INT_MAX}) {
        EXPECT_EQ(BAD_VALUE, producer->cancelBuffer(wrong, Fence::NO_FENCE)) << wrong;
    }
    EXPECT_EQ(BAD_VALUE, producer->cancelBuffer(0, nullptr));
    const sp<Fence> mine = new Fence();
    listener->events.take();
    EXPECT_EQ(NO_ERROR, producer->cancelBuffer(0, mine));
    EXPECT_EQ(EventList{"cancelled"}, listener->events.take());
    EXPECT_EQ(BAD_VALUE, producer->cancelBuffer(0, mine));
    ASSERT_EQ(NO_ERROR, dequeue());
    EXPECT_EQ(mine, fence);
}

TEST_F(BufferQueueDequeueTest, DetachTakesARequestedBufferAway) {
    connect();
    ASSERT_EQ(kNeedsRequest, dequeue());
    EXPECT_EQ(BAD_VALUE, producer->detachBuffer(0));
    EXPECT_EQ(BAD_VALUE, producer->detachBuffer(-1));
    EXPECT_EQ(BAD_VALUE, producer->detachBuffer(64));
    const uint64_t id = idOf(0);
    listener->events.take();
    EXPECT_EQ(NO_ERROR, producer->detachBuffer(0));
    EXPECT_EQ((EventList{"detached", "released"}), listener->events.take());
    EXPECT_EQ(id, listener->lastId);
    EXPECT_EQ(BAD_VALUE, request(0));
    EXPECT_EQ(kNeedsRequest, dequeue());
    EXPECT_EQ(0, slot);
    EXPECT_NE(id, idOf(0));
}

TEST_F(BufferQueueDequeueTest, DetachNextTakesTheOldestFreeBuffer) {
    connect();
    EXPECT_EQ(BAD_VALUE, producer->detachNextBuffer(nullptr, &fence));
    EXPECT_EQ(BAD_VALUE, producer->detachNextBuffer(&buffer, nullptr));
    EXPECT_EQ(NO_MEMORY, producer->detachNextBuffer(&buffer, &fence));
    dequeueMany(2);
    const uint64_t id = idOf(1);
    const sp<Fence> mine = new Fence();
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(1, mine));
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(0, Fence::NO_FENCE));
    listener->events.take();
    EXPECT_EQ(NO_ERROR, producer->detachNextBuffer(&buffer, &fence));
    EXPECT_EQ(id, buffer->getId());
    EXPECT_EQ(mine, fence);
    EXPECT_EQ(EventList{"released"}, listener->events.take());
    EXPECT_EQ(NO_ERROR, dequeue());
    EXPECT_EQ(0, slot);
    EXPECT_EQ(kNeedsRequest, dequeue());
    EXPECT_EQ(1, slot);
}

TEST_F(BufferQueueDequeueTest, AttachPutsAForeignBufferIntoAnEmptySlot) {
    connect();
    dequeueMany(1);
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(0, Fence::NO_FENCE));
    const sp<GraphicBuffer> foreign = foreignBuffer();
    EXPECT_EQ(NO_ERROR, producer->attachBuffer(&slot, foreign));
    EXPECT_EQ(1, slot);
    EXPECT_EQ(NO_ERROR, queue(1));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(foreign, item.mGraphicBuffer);
    ASSERT_EQ(NO_ERROR, release(item));
}

TEST_F(BufferQueueDequeueTest, AttachTakesAFreeBuffersSlotWhenNoneIsEmpty) {
    connect();
    dequeueMany(2);
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(1, Fence::NO_FENCE));
    const sp<GraphicBuffer> foreign = foreignBuffer();
    EXPECT_EQ(NO_ERROR, producer->attachBuffer(&slot, foreign));
    EXPECT_EQ(1, slot);
    EXPECT_EQ(foreign->getId(), idOf(1));
    slot = 77;
    EXPECT_EQ(TIMED_OUT, producer->attachBuffer(&slot, foreignBuffer()));
    EXPECT_EQ(77, slot);
}

TEST_F(BufferQueueDequeueTest, AnAttachedBufferIsTheProducersLikeAnyOther) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->attachBuffer(&slot, foreignBuffer()));
    ASSERT_EQ(NO_ERROR, queue(slot));
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(NO_ERROR, dequeue());
    EXPECT_EQ(0, slot);
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(slot, Fence::NO_FENCE));
    ASSERT_EQ(NO_ERROR, producer->attachBuffer(&slot, foreignBuffer()));
    EXPECT_EQ(INVALID_OPERATION, dequeue());  // it holds all that it may
}

TEST_F(BufferQueueDequeueTest, AnAttachedBufferIsNewToTheConsumer) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(2));
    dequeueMany(3);
    ASSERT_EQ(NO_ERROR, queue(0));
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(1, Fence::NO_FENCE));
    const sp<GraphicBuffer> foreign = foreignBuffer();
    ASSERT_EQ(NO_ERROR, producer->attachBuffer(&slot, foreign));
    ASSERT_EQ(0, slot);  // whose buffer the consumer has had
    ASSERT_EQ(NO_ERROR, queue(0));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(foreign, item.mGraphicBuffer);
}

TEST_F(BufferQueueDequeueTest, AttachChecksTheGeneration) {
    connect();
    EXPECT_EQ(BAD_VALUE, producer->attachBuffer(nullptr, foreignBuffer()));
    EXPECT_EQ(BAD_VALUE, producer->attachBuffer(&slot, nullptr));
    EXPECT_EQ(BAD_VALUE, producer->attachBuffer(&slot, foreignBuffer(3)));
    ASSERT_EQ(NO_ERROR, producer->setGenerationNumber(3));
    EXPECT_EQ(NO_ERROR, producer->attachBuffer(&slot, foreignBuffer(3)));
}

}  // namespace
}  // namespace korvane::test
