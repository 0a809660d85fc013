// SPDX-License-Identifier: Apache-2.0
// The buffer queue: in which order listeners are called, on which thread, and what is locked then.
#include <atomic>
#include <future>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/eventfd.h>

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>

#include "support/BufferQueueTest.h"

namespace korvane::test {
namespace {

class BufferQueueCallbackTest : public BufferQueueTest {
  protected:
    /** From now on notes for each kind of callback whether the queue was locked in it. */
    void watchLocks() {
        const auto watch = [this](const std::string& event) { mLocked[event] = isQueueLocked(); };
        listener->hook = watch;
        producerListener->hook = watch;
    }

    /** Whether the queue was locked in the callback; fails when there was none. */
    bool wasLocked(const std::string& event) {
        EXPECT_EQ(1u, mLocked.count(event)) << event;
        return mLocked[event];
    }

  private:
    std::map<std::string, bool> mLocked;
};

TEST_F(BufferQueueCallbackTest, CallbacksAboutBuffersHoldTheQueuesLock) {
    connect();
    watchLocks();
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    EXPECT_TRUE(wasLocked("dequeued"));
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(slot, Fence::NO_FENCE));
    EXPECT_TRUE(wasLocked("cancelled"));
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    ASSERT_EQ(NO_ERROR, producer->detachBuffer(slot));
    EXPECT_TRUE(wasLocked("detached"));
    EXPECT_FALSE(wasLocked("released"));
}

TEST_F(BufferQueueCallbackTest, CallbacksAboutFramesDoNotHoldTheQueuesLock) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
    watchLocks();
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, producer->setSidebandStream(nullptr));
    EXPECT_FALSE(wasLocked("timestamps"));
    EXPECT_FALSE(wasLocked("available"));
    EXPECT_FALSE(wasLocked("replaced"));
    EXPECT_FALSE(wasLocked("sideband"));
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    EXPECT_FALSE(wasLocked("released"));
    EXPECT_FALSE(wasLocked("disconnect"));
}

TEST_F(BufferQueueCallbackTest, TheProducerIsAskedUnderTheLockAndToldWithoutIt) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    watchLocks();
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_TRUE(wasLocked("asked"));
    listener->hook = nullptr;
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_FALSE(wasLocked("released"));
    ASSERT_EQ(NO_ERROR, consumer->discardFreeBuffers());
    EXPECT_TRUE(wasLocked("discarded"));
}

TEST_F(BufferQueueCallbackTest, AProxyPassesEverythingOnWhileTheConsumerLives) {
    sp<RecordingConsumerListener> real = new RecordingConsumerListener();
    const wp<RecordingConsumerListener> weak = real;
    const sp<IConsumerListener> proxy = new BufferQueue::ProxyConsumerListener(real);
    ASSERT_EQ(NO_ERROR, consumer->consumerConnect(proxy, false));
    const auto callAll = [this] {
        ASSERT_EQ(NO_ERROR, connectProducer());
        ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
        for (int i = 0; i < 2; ++i) ASSERT_EQ(NO_ERROR, queueFrame());
        ASSERT_EQ(NO_ERROR, producer->setSidebandStream(nullptr));
        ASSERT_EQ(NO_ERROR, dequeueAndRequest());
        ASSERT_EQ(NO_ERROR, producer->cancelBuffer(slot, Fence::NO_FENCE));
        ASSERT_EQ(NO_ERROR, dequeueAndRequest());
        ASSERT_EQ(NO_ERROR, producer->detachBuffer(slot));
        ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    };
    callAll();
    EXPECT_EQ(
            (EventList{"dequeued", "available 1", "dequeued", "replaced 2", "sideband", "dequeued",
                       "cancelled", "dequeued", "detached", "released", "released", "disconnect"}),
            real->events.take());
    EXPECT_EQ(2u, real->timestamps.size());
    real.clear();
    EXPECT_EQ(nullptr, weak.promote());
    callAll();
}

TEST_F(BufferQueueCallbackTest, FramesAreAnnouncedOnTheQueueingThreadWithoutTheirBuffer) {
    connect();
    std::thread::id thread;
    listener->hook = [&](const std::string& event) {
        if (event == "available") thread = std::this_thread::get_id();
    };
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ(std::this_thread::get_id(), thread);
    EXPECT_EQ(nullptr, listener->lastItem.mGraphicBuffer);
    EXPECT_EQ(0, listener->lastItem.mSlot);
    EXPECT_EQ(1u, listener->lastItem.mFrameNumber);
}

TEST_F(BufferQueueCallbackTest, TheConsumerMayTakeTheFrameAtOnce) {
    connect();
    listener->hook = [&](const std::string& event) {
        if (event != "available") return;
        EXPECT_EQ(NO_ERROR, acquire());
        EXPECT_EQ(NO_ERROR, release(item));
        releasedMask();
        EXPECT_EQ(NO_ERROR, consumer->setDefaultBufferSize(2, 2));
    };
    for (int i = 0; i < 5; ++i) ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ(5u, item.mFrameNumber);
}

TEST_F(BufferQueueCallbackTest, TheConsumerMayGoAwayInACallback) {
    connect();
    listener->hook = [&](const std::string& event) {
        if (event != "available") return;
        EXPECT_EQ(NO_ERROR, consumer->consumerDisconnect());
    };
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ(NO_INIT, queueFrame());
}

TEST_F(BufferQueueCallbackTest, TimesComeBeforeTheFrameItself) {
    connect();
    EventList order;
    listener->hook = [&](const std::string& event) { order.push_back(event); };
    const nsecs_t before = systemTime(SYSTEM_TIME_MONOTONIC);
    ASSERT_EQ(NO_ERROR, queueFrame(42));
    EXPECT_EQ((EventList{"dequeued", "timestamps", "available"}), order);
    ASSERT_EQ(1u, listener->timestamps.size());
    EXPECT_EQ(1u, listener->timestamps[0].frameNumber);
    EXPECT_EQ(42, listener->timestamps[0].requestedPresentTime);
    EXPECT_GE(listener->timestamps[0].postedTime, before);
    EXPECT_FALSE(listener->timestamps[0].acquireFence->isValid());
}

TEST_F(BufferQueueCallbackTest, TimesComeBackOnlyWhenAsked) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ(16666667, output.frameTimestamps.getCompositorTiming().interval);
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    QueueBufferInput asking = input();
    asking.getFrameTimestamps = true;
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, asking, &output));
    EXPECT_EQ(2, output.frameTimestamps.getCompositorTiming().interval);
}

TEST_F(BufferQueueCallbackTest, FramesOfManyThreadsAreAnnouncedInOrderAndOneAtATime) {
    connect();
    constexpr int kThreads = 4;
    constexpr int kFrames = 50;
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(kThreads));
    ASSERT_EQ(NO_ERROR, producer->setDequeueTimeout(-1));
    std::vector<uint64_t> announced;
    int inside = 0;
    listener->hook = [&](const std::string& event) {
        if (event != "available") return;
        EXPECT_EQ(1, ++inside);
        announced.push_back(listener->lastItem.mFrameNumber);
        BufferItem taken;
        EXPECT_EQ(NO_ERROR, consumer->acquireBuffer(&taken, 0));
        EXPECT_EQ(announced.back(), taken.mFrameNumber);
        EXPECT_EQ(NO_ERROR, release(taken));
        --inside;
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int frame = 0; frame < kFrames; ++frame) {
                int own = -1;
                sp<Fence> ownFence;
                sp<GraphicBuffer> ownBuffer;
                QueueBufferOutput ownOutput;
                ASSERT_LE(NO_ERROR, producer->dequeueBuffer(&own, &ownFence, 0, 0, 0, kCpuUsage,
                                                            nullptr, nullptr));
                ASSERT_EQ(NO_ERROR, producer->requestBuffer(own, &ownBuffer));
                ASSERT_EQ(NO_ERROR, producer->queueBuffer(own, input(), &ownOutput));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    ASSERT_EQ(static_cast<size_t>(kThreads * kFrames), announced.size());
    for (size_t i = 0; i < announced.size(); ++i) EXPECT_EQ(i + 1, announced[i]);
}

TEST_F(BufferQueueCallbackTest, ALaterFrameWaitsForTheCallbackOfAnEarlier) {
    connect();
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    const int first = slot;
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    const int second = slot;
    std::promise<void> entered;
    std::promise<void> leave;
    listener->hook = [&](const std::string& event) {
        if (event != "available" || listener->lastItem.mFrameNumber != 1) return;
        entered.set_value();
        leave.get_future().wait();
    };
    PendingCall<status_t> earlier([&] { return queue(first); });
    entered.get_future().wait();
    QueueBufferOutput laterOutput;
    PendingCall<status_t> later(
            [&] { return producer->queueBuffer(second, input(), &laterOutput); });
    EXPECT_TRUE(later.isHeldUp());
    leave.set_value();
    EXPECT_EQ(NO_ERROR, earlier.get());
    EXPECT_EQ(NO_ERROR, later.get());
    EXPECT_EQ((EventList{"dequeued", "dequeued", "available 1", "available 2"}),
              listener->events.take());
}

TEST_F(BufferQueueCallbackTest, ALaterFrameDoesNotOvertakeAnEarlierOnItsWay) {
    connect();
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    const int first = slot;
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    const int second = slot;
    std::promise<void> onItsWay;
    std::promise<void> goOn;
    std::atomic<int> frames{0};
    listener->hook = [&](const std::string& event) {
        if (event != "timestamps" || frames++ != 0) return;
        onItsWay.set_value();
        goOn.get_future().wait();
    };
    PendingCall<status_t> earlier([&] { return queue(first); });
    onItsWay.get_future().wait();
    QueueBufferOutput laterOutput;
    PendingCall<status_t> later(
            [&] { return producer->queueBuffer(second, input(), &laterOutput); });
    EXPECT_TRUE(later.isHeldUp());
    goOn.set_value();
    EXPECT_EQ(NO_ERROR, earlier.get());
    EXPECT_EQ(NO_ERROR, later.get());
    EXPECT_EQ((EventList{"dequeued", "dequeued", "available 1", "available 2"}),
              listener->events.take());
}

TEST_F(BufferQueueCallbackTest, AnEglProducerWaitsForThePreviousFrame) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    ASSERT_EQ(NO_ERROR, connectProducer(false, NATIVE_WINDOW_API_EGL));
    const base::unique_fd work(eventfd(0, EFD_CLOEXEC));
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    QueueBufferInput slow = input();
    slow.fence = new Fence(fcntl(work.get(), F_DUPFD_CLOEXEC, 0));
    // Not for its own.
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, slow, &output));
    PendingCall<status_t> later([&] { return queueFrame(); });
    EXPECT_TRUE(later.isHeldUp());
    ASSERT_EQ(0, eventfd_write(work.get(), 1));
    EXPECT_EQ(NO_ERROR, later.get());
}

TEST_F(BufferQueueCallbackTest, AnEglProducerWaitsNoLongerThanTheQueueLasts) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    ASSERT_EQ(NO_ERROR, connectProducer(false, NATIVE_WINDOW_API_EGL));
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    QueueBufferInput endless = input();
    endless.fence = new Fence(eventfd(0, EFD_CLOEXEC));
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, endless, &output));
    PendingCall<status_t> later([&] { return queueFrame(); });
    EXPECT_TRUE(later.isHeldUp());
    ASSERT_EQ(NO_ERROR, consumer->consumerDisconnect());
    EXPECT_EQ(NO_ERROR, later.get());
}

TEST_F(BufferQueueCallbackTest, AnEglProducerWaitsNoLongerThanItIsConnected) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    ASSERT_EQ(NO_ERROR, connectProducer(false, NATIVE_WINDOW_API_EGL));
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    QueueBufferInput endless = input();
    endless.fence = new Fence(eventfd(0, EFD_CLOEXEC));
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, endless, &output));
    PendingCall<status_t> later([&] { return queueFrame(); });
    EXPECT_TRUE(later.isHeldUp());
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_EGL));
    EXPECT_EQ(NO_ERROR, later.get());
}

TEST_F(BufferQueueCallbackTest, OtherProducersDoNotWaitForThePreviousFrame) {
    connect();
    const base::unique_fd work(eventfd(0, EFD_CLOEXEC));
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    QueueBufferInput slow = input();
    slow.fence = new Fence(fcntl(work.get(), F_DUPFD_CLOEXEC, 0));
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, slow, &output));
    EXPECT_EQ(NO_ERROR, queueFrame());
}

}  // namespace
}  // namespace korvane::test
