// SPDX-License-Identifier: Apache-2.0
// The buffer queue: what happens while a buffer is being allocated, and when that fails.
#include <cerrno>
#include <functional>
#include <future>
#include <mutex>

#include <sys/mman.h>

#include <gtest/gtest.h>

#include "support/BufferQueueTest.h"

extern "C" int __real_memfd_create(const char* name, unsigned flags);

namespace {

std::mutex gMutex;
/** What comes before the kernel gives memory; a result other than 0 is the kernel's errno. */
std::function<int()> gBeforeMemory;

}  // namespace

extern "C" int __wrap_memfd_create(const char* name, unsigned flags) {
    std::function<int()> before;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        before = gBeforeMemory;
    }
    const int error = before ? before() : 0;
    if (error == 0) return __real_memfd_create(name, flags);
    errno = error;
    return -1;
}

namespace korvane::test {
namespace {

class BufferQueueAllocationTest : public BufferQueueTest {
  protected:
    ~BufferQueueAllocationTest() override { setBeforeMemory(nullptr); }

    static void setBeforeMemory(const std::function<int()>& before) {
        std::lock_guard<std::mutex> lock(gMutex);
        gBeforeMemory = before;
    }

    /** Starts a call that allocates, and comes back when it is in the middle of that. */
    PendingCall<status_t> halfway(const std::function<status_t()>& call) {
        setBeforeMemory([this] {
            mReached.set_value();
            mGoOn.get_future().wait();
            return 0;
        });
        PendingCall<status_t> later(call);
        mReached.get_future().wait();
        setBeforeMemory(nullptr);
        return later;
    }

    PendingCall<status_t> dequeueHalfway() {
        return halfway([this] { return dequeue(); });
    }

    void goOn() { mGoOn.set_value(); }

    /** Runs a call during an allocation: it has to wait for its end. Gives its result. */
    status_t resultOfWaiting(const std::function<status_t()>& call) {
        auto allocating = dequeueHalfway();
        PendingCall<status_t> waiting(call);
        EXPECT_TRUE(waiting.isHeldUp());
        goOn();
        EXPECT_EQ(kNeedsRequest, allocating.get());
        return waiting.get();
    }

  private:
    std::promise<void> mReached;
    std::promise<void> mGoOn;
};

TEST_F(BufferQueueAllocationTest, NoMemoryIsSaidAndForgotten) {
    connect();
    setBeforeMemory([] { return ENOMEM; });
    EXPECT_EQ(NO_MEMORY, dequeue());
    EXPECT_EQ(0, slot);
    EXPECT_EQ(EventList{}, listener->events.take());
    setBeforeMemory(nullptr);
    EXPECT_EQ(kNeedsRequest, dequeue());
    EXPECT_EQ(0, slot);
}

TEST_F(BufferQueueAllocationTest, PreallocationStopsWithoutMemory) {
    connect();
    int calls = 0;
    setBeforeMemory([&] { return ++calls == 2 ? ENOMEM : 0; });
    producer->allocateBuffers(1, 1, 0, kCpuUsage);
    EXPECT_EQ(2, calls);
    ASSERT_EQ(NO_ERROR, producer->allowAllocation(false));
    EXPECT_EQ((std::vector<status_t>{1, TIMED_OUT}), dequeueMany(2));
}

TEST_F(BufferQueueAllocationTest, PreallocationFollowsTheConsumersChanges) {
    connect();
    int calls = 0;
    setBeforeMemory([&] {
        if (++calls == 1) consumer->setDefaultBufferSize(64, 32);
        return 0;
    });
    producer->allocateBuffers(0, 0, 0, kCpuUsage);
    EXPECT_EQ(3, calls);
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    EXPECT_EQ(Rect(64, 32), buffer->getBounds());
    EXPECT_EQ(3, calls);
}

TEST_F(BufferQueueAllocationTest, PreallocationEndsWhenTheConsumerHasTakenTheSlots) {
    connect();
    int calls = 0;
    setBeforeMemory([&] {
        if (++calls > 1) return 0;
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(NO_ERROR, consumer->attachBuffer(&slot, foreignBuffer()));
        return 0;
    });
    producer->allocateBuffers(1, 1, 0, kCpuUsage);
    EXPECT_EQ(3, calls);  // its own and the consumer's two
    EXPECT_EQ(TIMED_OUT, dequeue());
}

TEST_F(BufferQueueAllocationTest, PreallocationIsWaitedForAsWell) {
    connect();
    auto preallocating = halfway([this] {
        producer->allocateBuffers(1, 1, 0, kCpuUsage);
        return NO_ERROR;
    });
    PendingCall<status_t> waiting([this] { return producer->disconnect(NATIVE_WINDOW_API_CPU); });
    EXPECT_TRUE(waiting.isHeldUp());
    goOn();
    EXPECT_EQ(NO_ERROR, preallocating.get());
    EXPECT_EQ(NO_ERROR, waiting.get());
}

TEST_F(BufferQueueAllocationTest, TheQueueIsNotLockedMeanwhile) {
    connect();
    auto allocating = dequeueHalfway();
    EXPECT_FALSE(isQueueLocked());
    EXPECT_EQ(IGraphicBufferConsumer::NO_BUFFER_AVAILABLE, acquire());
    goOn();
    EXPECT_EQ(kNeedsRequest, allocating.get());
}

TEST_F(BufferQueueAllocationTest, DisconnectingWaits) {
    connect();
    EXPECT_EQ(NO_ERROR,
              resultOfWaiting([this] { return producer->disconnect(NATIVE_WINDOW_API_CPU); }));
}

TEST_F(BufferQueueAllocationTest, ChangingTheCountsWaits) {
    connect();
    EXPECT_EQ(NO_ERROR, resultOfWaiting([this] { return producer->setMaxDequeuedBufferCount(2); }));
}

TEST_F(BufferQueueAllocationTest, ChangingTheAcquiredCountWaits) {
    connect();
    EXPECT_EQ(NO_ERROR, resultOfWaiting([this] { return consumer->setMaxAcquiredBufferCount(2); }));
}

TEST_F(BufferQueueAllocationTest, ChangingTheModeWaits) {
    connect();
    EXPECT_EQ(NO_ERROR, resultOfWaiting([this] { return producer->setAsyncMode(true); }));
}

TEST_F(BufferQueueAllocationTest, AttachingWaits) {
    connect();
    EXPECT_EQ(NO_ERROR, resultOfWaiting([this] {
                  int attached = -1;
                  return producer->attachBuffer(&attached, foreignBuffer());
              }));
}

TEST_F(BufferQueueAllocationTest, DetachingTheNextFreeBufferWaits) {
    connect();
    EXPECT_EQ(NO_MEMORY, resultOfWaiting([this] {
                  sp<GraphicBuffer> detached;
                  sp<Fence> detachedFence;
                  return producer->detachNextBuffer(&detached, &detachedFence);
              }));
}

TEST_F(BufferQueueAllocationTest, APreallocationWaits) {
    connect();
    EXPECT_EQ(NO_ERROR, resultOfWaiting([this] {
                  producer->allocateBuffers(1, 1, 0, kCpuUsage);
                  return NO_ERROR;
              }));
}

TEST_F(BufferQueueAllocationTest, AnotherDequeueWaits) {
    connect();
    EXPECT_EQ(kNeedsRequest, resultOfWaiting([this] {
                  int other = -1;
                  sp<Fence> otherFence;
                  const status_t status = producer->dequeueBuffer(&other, &otherFence, 0, 0, 0,
                                                                  kCpuUsage, nullptr, nullptr);
                  EXPECT_EQ(1, other);
                  return status;
              }));
}

TEST_F(BufferQueueAllocationTest, AFreeBufferIsGivenMeanwhile) {
    connect();
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    auto allocating = dequeueHalfway();
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(0, Fence::NO_FENCE));
    int other = -1;
    sp<Fence> otherFence;
    EXPECT_EQ(NO_ERROR,
              producer->dequeueBuffer(&other, &otherFence, 0, 0, 0, kCpuUsage, nullptr, nullptr));
    EXPECT_EQ(0, other);
    goOn();
    EXPECT_EQ(kNeedsRequest, allocating.get());
    EXPECT_EQ(1, slot);
}

TEST_F(BufferQueueAllocationTest, TheEndOfTheConsumerMakesItUseless) {
    connect();
    auto allocating = dequeueHalfway();
    EXPECT_EQ(NO_ERROR, consumer->consumerDisconnect());
    goOn();
    EXPECT_EQ(NO_INIT, allocating.get());
}

TEST_F(BufferQueueAllocationTest, TheSlotIsNobodysMeanwhile) {
    connect();
    auto allocating = dequeueHalfway();
    EXPECT_EQ(BAD_VALUE, request(0));
    EXPECT_EQ(BAD_VALUE, queue(0));
    EXPECT_EQ(BAD_VALUE, producer->cancelBuffer(0, Fence::NO_FENCE));
    EXPECT_EQ(BAD_VALUE, producer->detachBuffer(0));
    goOn();
    EXPECT_EQ(kNeedsRequest, allocating.get());
    EXPECT_EQ(NO_ERROR, request(0));
}

TEST_F(BufferQueueAllocationTest, TheBufferThatDidNotFitIsGoneMeanwhile) {
    connect();
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(0, Fence::NO_FENCE));
    buffer.clear();
    auto allocating = halfway([this] { return dequeue(64, 32); });
    EXPECT_EQ(BAD_VALUE, request(0));
    EXPECT_EQ(nullptr, buffer);
    goOn();
    EXPECT_EQ(kNeedsRequest, allocating.get());
}

// How much a queue may allocate.

class BufferBudgetTest : public BufferQueueAllocationTest {
  protected:
    void SetUp() override {
        connect();
        ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(4));
    }

    /** 256 MiB, the largest that there is; nobody writes it, so that it takes no memory. */
    status_t dequeueLarge() { return dequeue(8192, 8192, HAL_PIXEL_FORMAT_RGBA_8888, kCpuUsage); }
    status_t dequeueSmall() { return dequeue(16, 16, HAL_PIXEL_FORMAT_RGBA_8888, kCpuUsage); }
};

TEST_F(BufferBudgetTest, ABufferBeyond512MegabytesIsNoMemory) {
    EXPECT_EQ(kNeedsRequest, dequeueLarge());
    EXPECT_EQ(kNeedsRequest, dequeueLarge());
    EXPECT_EQ(NO_MEMORY, dequeueLarge());
    EXPECT_EQ(NO_MEMORY, dequeueSmall());
}

TEST_F(BufferBudgetTest, ARefusedBufferIsForgotten) {
    EXPECT_EQ(kNeedsRequest, dequeueLarge());
    EXPECT_EQ(kNeedsRequest, dequeueSmall());
    const int refusedSlot = 2;
    EXPECT_EQ(NO_MEMORY, dequeueLarge());
    EXPECT_EQ(BAD_VALUE, request(refusedSlot));
    EXPECT_EQ(kNeedsRequest, dequeueSmall());
}

TEST_F(BufferBudgetTest, BuffersThatAreGoneDontCount) {
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(kNeedsRequest, dequeueLarge()) << i;
        ASSERT_EQ(kNeedsRequest, dequeueLarge()) << i;
        ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
        ASSERT_EQ(NO_ERROR, connectProducer());
    }
}

TEST_F(BufferBudgetTest, BuffersThatTheConsumerHoldsCount) {
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(kNeedsRequest, dequeueLarge());
        ASSERT_EQ(NO_ERROR, request(slot));
        ASSERT_EQ(NO_ERROR, queue(slot));
    }
    buffer.clear();
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ(NO_MEMORY, dequeueSmall());
    item.mGraphicBuffer.clear();
    EXPECT_EQ(kNeedsRequest, dequeueLarge());
}

TEST_F(BufferBudgetTest, BuffersFromElsewhereDontCount) {
    EXPECT_EQ(kNeedsRequest, dequeueLarge());
    ASSERT_EQ(NO_ERROR, producer->attachBuffer(&slot, foreignBuffer()));
    EXPECT_EQ(kNeedsRequest, dequeueLarge());
}

TEST_F(BufferBudgetTest, PreallocationEndsThere) {
    producer->allocateBuffers(8192, 8192, HAL_PIXEL_FORMAT_RGBA_8888, kCpuUsage);
    ASSERT_EQ(NO_ERROR, producer->allowAllocation(false));
    EXPECT_EQ(kNeedsRequest, dequeueLarge());
    EXPECT_EQ(kNeedsRequest, dequeueLarge());
    EXPECT_EQ(TIMED_OUT, dequeueLarge());
}

}  // namespace
}  // namespace korvane::test
