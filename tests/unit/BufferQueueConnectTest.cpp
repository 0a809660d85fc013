// SPDX-License-Identifier: Apache-2.0
// The buffer queue: connecting, disconnecting, settings and queries of both ends.
#include <climits>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <cutils/native_handle.h>
#include <gtest/gtest.h>
#include <gui/BufferQueueCore.h>
#include <utils/NativeHandle.h>

#include "support/BufferQueueTest.h"
#include "support/OpenDescriptors.h"

namespace korvane::test {
namespace {

class BufferQueueConnectTest : public BufferQueueTest {};
using BufferQueueConnectDeathTest = BufferQueueConnectTest;

TEST_F(BufferQueueConnectDeathTest, NeedsSomewhereToPutTheEnds) {
    EXPECT_DEATH(BufferQueue::createBufferQueue(nullptr, &consumer),
                 "outProducer must not be NULL");
    EXPECT_DEATH(BufferQueue::createBufferQueue(&producer, nullptr),
                 "outConsumer must not be NULL");
}

TEST_F(BufferQueueConnectTest, ProducerNeedsAConsumer) {
    EXPECT_EQ(NO_INIT, connectProducer());
}

TEST_F(BufferQueueConnectTest, ProducerConnectsOnce) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ(BAD_VALUE, connectProducer());
    EXPECT_EQ(BAD_VALUE, connectProducer(false, NATIVE_WINDOW_API_EGL));
}

TEST_F(BufferQueueConnectTest, ProducerNeedsAnOutputAndAKnownApi) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(BAD_VALUE, producer->connect(nullptr, NATIVE_WINDOW_API_CPU, false, nullptr));
    for (int api : {-1, 0, 5, 9}) EXPECT_EQ(BAD_VALUE, connectProducer(false, api)) << api;
    EXPECT_EQ(0, producerListener->asked);
    EXPECT_EQ(NO_ERROR, connectProducer(false, NATIVE_WINDOW_API_CAMERA));
}

TEST_F(BufferQueueConnectTest, ProducerNeedsNoListener) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(NO_ERROR, producer->connect(nullptr, NATIVE_WINDOW_API_CPU, false, &output));
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(NO_ERROR, release(item));
}

TEST_F(BufferQueueConnectTest, OutputTellsTheState) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    consumer->setDefaultBufferSize(64, 32);
    consumer->setTransformHint(4);
    output.bufferReplaced = true;
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ(64u, output.width);
    EXPECT_EQ(32u, output.height);
    EXPECT_EQ(4u, output.transformHint);
    EXPECT_EQ(0u, output.numPendingBuffers);
    EXPECT_EQ(1u, output.nextFrameNumber);
    EXPECT_FALSE(output.bufferReplaced);
    EXPECT_EQ(64, output.maxBufferCount);
    EXPECT_EQ(1, producerListener->asked);
}

TEST_F(BufferQueueConnectTest, SlotsNeedAConnectedProducer) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(NO_INIT, dequeue());
    EXPECT_EQ(NO_INIT, request(0));
    EXPECT_EQ(NO_INIT, queue(0));
    EXPECT_EQ(NO_INIT, producer->cancelBuffer(0, Fence::NO_FENCE));
    EXPECT_EQ(NO_INIT, producer->detachBuffer(0));
    EXPECT_EQ(NO_INIT, producer->detachNextBuffer(&buffer, &fence));
    EXPECT_EQ(NO_INIT, producer->attachBuffer(&slot, foreignBuffer()));
}

TEST_F(BufferQueueConnectTest, DisconnectChecksTheApi) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(NO_INIT, producer->disconnect(NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(BAD_VALUE, producer->disconnect(9));
    EXPECT_EQ(NO_ERROR, producer->disconnect(BufferQueueCore::CURRENTLY_CONNECTED_API));
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ(BAD_VALUE, producer->disconnect(NATIVE_WINDOW_API_EGL));
    EXPECT_EQ(BAD_VALUE, producer->disconnect(9));
    EXPECT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(NO_INIT, producer->disconnect(NATIVE_WINDOW_API_CPU));
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ(NO_ERROR, producer->disconnect(BufferQueueCore::CURRENTLY_CONNECTED_API));
    EXPECT_EQ(NO_ERROR, connectProducer());
}

TEST_F(BufferQueueConnectTest, DisconnectsWhatIsLocalWhateverTheApi) {
    using Mode = IGraphicBufferProducer::DisconnectMode;
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(NO_ERROR, producer->disconnect(9, Mode::AllLocal));
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ(NO_ERROR, producer->disconnect(9, Mode::AllLocal));
    EXPECT_EQ(NO_ERROR, connectProducer());
}

TEST_F(BufferQueueConnectTest, ConsumerNeedsAListener) {
    EXPECT_EQ(BAD_VALUE, consumer->consumerConnect(nullptr, false));
    EXPECT_EQ(BAD_VALUE, consumer->consumerDisconnect());
}

TEST_F(BufferQueueConnectTest, ASecondConsumerTakesThePlaceOfTheFirst) {
    connect();
    const sp<RecordingConsumerListener> second = new RecordingConsumerListener();
    EXPECT_EQ(NO_ERROR, consumer->consumerConnect(second, false));
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ(EventList{}, listener->events.take());
    EXPECT_EQ((EventList{"dequeued", "available 1"}), second->events.take());
}

TEST_F(BufferQueueConnectTest, IsAbandonedForEverWhenTheConsumerDisconnects) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    listener->events.take();
    EXPECT_EQ(NO_ERROR, consumer->consumerDisconnect());
    EXPECT_EQ(BAD_VALUE, consumer->consumerDisconnect());
    EXPECT_EQ(EventList{}, listener->events.take());
    EXPECT_EQ(NO_INIT, dequeue());
    EXPECT_EQ(NO_INIT, request(0));
    EXPECT_EQ(NO_INIT, queue(0));
    EXPECT_EQ(NO_INIT, producer->cancelBuffer(0, Fence::NO_FENCE));
    EXPECT_EQ(NO_INIT, producer->attachBuffer(&slot, foreignBuffer()));
    EXPECT_EQ(NO_INIT, producer->setMaxDequeuedBufferCount(2));
    EXPECT_EQ(NO_INIT, producer->setAsyncMode(true));
    int value = 0;
    EXPECT_EQ(NO_INIT, producer->query(NATIVE_WINDOW_WIDTH, &value));
    EXPECT_EQ(NO_INIT, connectProducer());
    for (int api : std::vector<int>{NATIVE_WINDOW_API_CPU, NATIVE_WINDOW_API_EGL, 9}) {
        EXPECT_EQ(NO_ERROR, producer->disconnect(api)) << api;
    }
    uint64_t mask = 0;
    EXPECT_EQ(NO_INIT, consumer->getReleasedBuffers(&mask));
    EXPECT_EQ(BufferQueue::NO_BUFFER_AVAILABLE, acquire());
    EXPECT_EQ(BufferQueue::STALE_BUFFER_SLOT, release(0, 1));
    EXPECT_EQ(NO_INIT, consumer->detachBuffer(0));
    EXPECT_EQ(NO_INIT, consumer->setMaxAcquiredBufferCount(3));
    EXPECT_EQ(NO_INIT, connectConsumer());
}

TEST_F(BufferQueueConnectTest, SomeCallsWorkAbandonedAndUnconnected) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    ASSERT_EQ(NO_ERROR, consumer->consumerDisconnect());
    uint64_t number = 0;
    float matrix[16];
    EXPECT_EQ(NO_ERROR, producer->allowAllocation(true));
    EXPECT_EQ(NO_ERROR, producer->setGenerationNumber(1));
    EXPECT_EQ(NO_ERROR, producer->setSharedBufferMode(false));
    EXPECT_EQ(NO_ERROR, producer->setAutoRefresh(true));
    EXPECT_EQ(NO_ERROR, producer->setDequeueTimeout(5));
    EXPECT_EQ(NO_ERROR, producer->setLegacyBufferDrop(false));
    EXPECT_EQ(NO_ERROR, producer->setAutoPrerotation(true));
    EXPECT_EQ(NO_ERROR, producer->getLastQueuedBuffer(&buffer, &fence, matrix));
    EXPECT_EQ(NO_ERROR, producer->getUniqueId(&number));
    EXPECT_EQ(NO_ERROR, producer->getConsumerUsage(&number));
    producer->allocateBuffers(1, 1, HAL_PIXEL_FORMAT_RGBA_8888, kCpuUsage);
    FrameEventHistoryDelta delta;
    producer->getFrameTimestamps(&delta);
    EXPECT_EQ(16666667, delta.getCompositorTiming().interval);
    EXPECT_EQ(NO_ERROR, consumer->setDefaultBufferSize(2, 2));
}

TEST_F(BufferQueueConnectTest, SharingABufferIsNotSupported) {
    EXPECT_EQ(INVALID_OPERATION, producer->setSharedBufferMode(true));
}

TEST_F(BufferQueueConnectTest, NamesAndIdsAreTheQueuesOwn) {
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(0u, producer->getConsumerName().size());
    ASSERT_EQ(NO_ERROR, connectConsumer());
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ(0u, std::string(producer->getConsumerName().c_str()).find("unnamed-" + pid + "-"));
    EXPECT_EQ(NO_ERROR, consumer->setConsumerName(String8("webcam")));
    EXPECT_STRNE("webcam", producer->getConsumerName().c_str());
    ASSERT_EQ(BufferQueue::NUM_BUFFER_SLOTS, 64);
    ASSERT_EQ(IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION, dequeue());
    EXPECT_STREQ("webcam", producer->getConsumerName().c_str());

    uint64_t first = 0;
    uint64_t second = 0;
    EXPECT_EQ(NO_ERROR, producer->getUniqueId(&first));
    createQueue(false);
    EXPECT_EQ(NO_ERROR, producer->getUniqueId(&second));
    EXPECT_EQ(static_cast<uint64_t>(getpid()), first >> 32);
    EXPECT_EQ(first + 1, second);
}

TEST_F(BufferQueueConnectTest, QueriesTellTheConsumersDefaults) {
    EXPECT_EQ(1, query(NATIVE_WINDOW_WIDTH));
    EXPECT_EQ(1, query(NATIVE_WINDOW_HEIGHT));
    EXPECT_EQ(HAL_PIXEL_FORMAT_RGBA_8888, query(NATIVE_WINDOW_FORMAT));
    EXPECT_EQ(0, query(NATIVE_WINDOW_CONSUMER_USAGE_BITS));
    EXPECT_EQ(0, query(NATIVE_WINDOW_DEFAULT_DATASPACE));
    EXPECT_EQ(0, query(NATIVE_WINDOW_CONSUMER_IS_PROTECTED));
    EXPECT_EQ(NO_ERROR, consumer->setDefaultBufferSize(64, 32));
    EXPECT_EQ(NO_ERROR, consumer->setDefaultBufferFormat(HAL_PIXEL_FORMAT_BLOB));
    EXPECT_EQ(NO_ERROR, consumer->setConsumerUsageBits(uint64_t{1} << 40 | 0x33));
    EXPECT_EQ(NO_ERROR, consumer->setDefaultBufferDataSpace(HAL_DATASPACE_V0_JFIF));
    EXPECT_EQ(NO_ERROR, consumer->setConsumerIsProtected(true));
    EXPECT_EQ(NO_ERROR, consumer->setTransformHint(0));
    EXPECT_EQ(64, query(NATIVE_WINDOW_WIDTH));
    EXPECT_EQ(32, query(NATIVE_WINDOW_HEIGHT));
    EXPECT_EQ(HAL_PIXEL_FORMAT_BLOB, query(NATIVE_WINDOW_FORMAT));
    EXPECT_EQ(0x33, query(NATIVE_WINDOW_CONSUMER_USAGE_BITS));
    EXPECT_EQ(HAL_DATASPACE_V0_JFIF, query(NATIVE_WINDOW_DEFAULT_DATASPACE));
    EXPECT_EQ(1, query(NATIVE_WINDOW_CONSUMER_IS_PROTECTED));
    EXPECT_EQ(1, query(NATIVE_WINDOW_LAYER_COUNT));
    uint64_t usage = 0;
    EXPECT_EQ(NO_ERROR, producer->getConsumerUsage(&usage));
    EXPECT_EQ(uint64_t{1} << 40 | 0x33, usage);
}

TEST_F(BufferQueueConnectTest, QueriesTellTheStateOfFrames) {
    connect();
    EXPECT_EQ(0, query(NATIVE_WINDOW_CONSUMER_RUNNING_BEHIND));
    QueueBufferInput sticky = input();
    sticky.stickyTransform = 3;
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    EXPECT_EQ(0, query(NATIVE_WINDOW_BUFFER_AGE));
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, sticky, &output));
    EXPECT_EQ(3, query(NATIVE_WINDOW_STICKY_TRANSFORM));
    EXPECT_EQ(0, query(NATIVE_WINDOW_CONSUMER_RUNNING_BEHIND));
    ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ(1, query(NATIVE_WINDOW_CONSUMER_RUNNING_BEHIND));
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    ASSERT_EQ(NO_ERROR, dequeue());
    EXPECT_EQ(2, query(NATIVE_WINDOW_BUFFER_AGE));
}

TEST_F(BufferQueueConnectTest, RefusesQueriesItCanNotAnswer) {
    EXPECT_EQ(BAD_VALUE, producer->query(NATIVE_WINDOW_WIDTH, nullptr));
    for (int key : {-1, 4, 5, 6, 7, 8, 14, 15, 17, 18, 20, 21, 1000}) {
        int value = 77;
        EXPECT_EQ(BAD_VALUE, producer->query(key, &value)) << key;
        EXPECT_EQ(77, value);
    }
}

TEST_F(BufferQueueConnectTest, MinimumUndequeuedFollowsTheSettings) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(1, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    EXPECT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(4));
    EXPECT_EQ(4, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    EXPECT_EQ(NO_ERROR, producer->setAsyncMode(true));
    EXPECT_EQ(5, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    EXPECT_EQ(NO_ERROR, producer->setAsyncMode(false));
    EXPECT_EQ(4, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
}

TEST_F(BufferQueueConnectTest, DefaultSizeIsNeverNothing) {
    EXPECT_EQ(BAD_VALUE, consumer->setDefaultBufferSize(0, 32));
    EXPECT_EQ(BAD_VALUE, consumer->setDefaultBufferSize(64, 0));
    EXPECT_EQ(1, query(NATIVE_WINDOW_WIDTH));
}

TEST_F(BufferQueueConnectTest, BoundsTheAcquiredCount) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(BAD_VALUE, consumer->setMaxAcquiredBufferCount(0));
    EXPECT_EQ(BAD_VALUE, consumer->setMaxAcquiredBufferCount(63));
    EXPECT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(62));
    EXPECT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(62));
    EXPECT_EQ(NO_ERROR, producer->setAsyncMode(true));
    EXPECT_EQ(BAD_VALUE, producer->setMaxDequeuedBufferCount(2));
    EXPECT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(3));
    EXPECT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(60));
    EXPECT_EQ(BAD_VALUE, consumer->setMaxAcquiredBufferCount(4));
}

TEST_F(BufferQueueConnectTest, AcquiredCountIsNotLessThanWhatIsHeld) {
    connect();
    ASSERT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(2));
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(2));
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(NO_ERROR, queueFrame());
        ASSERT_EQ(NO_ERROR, acquire());
    }
    EXPECT_EQ(BAD_VALUE, consumer->setMaxAcquiredBufferCount(1));
    EXPECT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(1));
}

TEST_F(BufferQueueConnectTest, ShrinkingTheAcquiredCountTellsConsumersOfProducersThatListen) {
    connect();
    ASSERT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(2));
    EXPECT_EQ(EventList{}, listener->events.take());
    ASSERT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(1));
    EXPECT_EQ(EventList{"released"}, listener->events.take());

    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    const sp<RecordingProducerListener> deaf = new RecordingProducerListener(false);
    ASSERT_EQ(NO_ERROR, producer->connect(deaf, NATIVE_WINDOW_API_CPU, false, &output));
    ASSERT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(2));
    listener->events.take();
    ASSERT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(1));
    EXPECT_EQ(EventList{}, listener->events.take());
}

TEST_F(BufferQueueConnectTest, BoundsTheBufferCount) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(BAD_VALUE, consumer->setMaxBufferCount(0));
    EXPECT_EQ(BAD_VALUE, consumer->setMaxBufferCount(65));
    ASSERT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(3));
    EXPECT_EQ(BAD_VALUE, consumer->setMaxBufferCount(2));
    EXPECT_EQ(NO_ERROR, consumer->setMaxBufferCount(5));
    EXPECT_EQ(BAD_VALUE, consumer->setMaxAcquiredBufferCount(5));
    EXPECT_EQ(BAD_VALUE, producer->setMaxDequeuedBufferCount(3));
    EXPECT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(2));
    EXPECT_EQ(BAD_VALUE, producer->setAsyncMode(true));
    ASSERT_EQ(NO_ERROR, connectProducer());
    EXPECT_EQ(5, output.maxBufferCount);
    EXPECT_EQ(INVALID_OPERATION, consumer->setMaxBufferCount(6));
}

TEST_F(BufferQueueConnectTest, FewerBuffersNeedFreeSlots) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(NO_ERROR, consumer->attachBuffer(&slot, foreignBuffer()));
    }
    EXPECT_EQ(BAD_VALUE, consumer->setMaxBufferCount(1));
    ASSERT_EQ(NO_ERROR, consumer->detachBuffer(slot));
    EXPECT_EQ(NO_ERROR, consumer->setMaxBufferCount(1));
}

TEST_F(BufferQueueConnectTest, BoundsTheDequeuedCount) {
    connect();
    for (int count : {INT_MIN, -1, 0, 64, INT_MAX}) {
        EXPECT_EQ(BAD_VALUE, producer->setMaxDequeuedBufferCount(count)) << count;
    }
    EXPECT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(63));
    EXPECT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(63));
    EXPECT_EQ(EventList{}, listener->events.take());
    EXPECT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(2));
    EXPECT_EQ(EventList{"released"}, listener->events.take());
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    EXPECT_EQ(BAD_VALUE, producer->setMaxDequeuedBufferCount(1));
    EXPECT_EQ(NO_ERROR, producer->cancelBuffer(slot, Fence::NO_FENCE));
    EXPECT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(1));
}

TEST_F(BufferQueueConnectTest, FewerDequeuedNeedFreeSlotsToo) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(3));
    for (int i = 0; i < 3; ++i) ASSERT_EQ(NO_ERROR, queueFrame());
    EXPECT_EQ(BAD_VALUE, producer->setMaxDequeuedBufferCount(1));
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(1));
}

TEST_F(BufferQueueConnectTest, WhatIsSetAlreadyNeedsNoRoom) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    ASSERT_EQ(NO_ERROR, consumer->setMaxBufferCount(1));
    EXPECT_EQ(NO_ERROR, producer->setAsyncMode(false));
    EXPECT_EQ(NO_ERROR, producer->setMaxDequeuedBufferCount(1));
    EXPECT_EQ(NO_ERROR, consumer->setMaxAcquiredBufferCount(1));
    EXPECT_EQ(BAD_VALUE, producer->setAsyncMode(true));
}

TEST_F(BufferQueueConnectTest, ShrinkingNeedsFreeSlots) {
    connect();
    ASSERT_EQ(NO_ERROR, producer->setAsyncMode(true));
    for (int i = 0; i < 3; ++i) ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    EXPECT_EQ(BAD_VALUE, producer->setAsyncMode(false));
    EXPECT_EQ(NO_ERROR, producer->cancelBuffer(slot, Fence::NO_FENCE));
    listener->events.take();
    EXPECT_EQ(NO_ERROR, producer->setAsyncMode(false));
    EXPECT_EQ(EventList{"released"}, listener->events.take());
}

TEST_F(BufferQueueConnectTest, SidebandStreamReachesTheConsumer) {
    connect();
    const sp<NativeHandle> stream = NativeHandle::create(native_handle_create(0, 1), true);
    EXPECT_EQ(NO_ERROR, producer->setSidebandStream(stream));
    EXPECT_EQ(EventList{"sideband"}, listener->events.take());
    sp<NativeHandle> received;
    EXPECT_EQ(NO_ERROR, consumer->getSidebandStream(&received));
    EXPECT_EQ(stream, received);
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(NO_ERROR, consumer->getSidebandStream(&received));
    EXPECT_EQ(nullptr, received);
}

/** A stream of one descriptor. */
sp<NativeHandle> makeStream() {
    native_handle_t* const handle = native_handle_create(1, 0);
    handle->data[0] = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return NativeHandle::create(handle, true);
}

TEST_F(BufferQueueConnectTest, OneSidebandStreamIsKept) {
    connect();
    const int before = countOpenDescriptors();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(NO_ERROR, producer->setSidebandStream(makeStream()));
    EXPECT_EQ(before + 1, countOpenDescriptors());
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    EXPECT_EQ(before, countOpenDescriptors());
}

TEST_F(BufferQueueConnectTest, AnAbandonedQueueKeepsNothingOfItsProducer) {
    connect();
    const int before = countOpenDescriptors();
    const int holders = producerListener->getStrongCount();
    ASSERT_EQ(NO_ERROR, producer->setSidebandStream(makeStream()));
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    QueueBufferInput fenced(0, false, HAL_DATASPACE_UNKNOWN, Rect(0, 0, 0, 0),
                            NATIVE_WINDOW_SCALING_MODE_FREEZE, 0,
                            new Fence(open("/dev/null", O_RDONLY | O_CLOEXEC)));
    ASSERT_EQ(NO_ERROR, producer->queueBuffer(slot, fenced, &output));
    buffer.clear();
    ASSERT_EQ(NO_ERROR, consumer->consumerDisconnect());
    EXPECT_EQ(holders - 1, producerListener->getStrongCount());
    listener->lastItem = BufferItem();
    listener->timestamps.clear();
    fenced.fence.clear();
    EXPECT_EQ(before, countOpenDescriptors());
}

TEST_F(BufferQueueConnectTest, AnAbandonedQueueTakesNoSidebandStreamAndNoBuffers) {
    connect();
    ASSERT_EQ(NO_ERROR, consumer->consumerDisconnect());
    const int before = countOpenDescriptors();
    EXPECT_EQ(NO_INIT, producer->setSidebandStream(makeStream()));
    producer->allocateBuffers(1, 1, HAL_PIXEL_FORMAT_RGBA_8888, kCpuUsage);
    EXPECT_EQ(before, countOpenDescriptors());
    EXPECT_EQ(EventList{}, listener->events.take());
}

// Ending the connection of one listener.

TEST_F(BufferQueueConnectTest, AListenersConnectionEndsAsDisconnectEndsIt) {
    connect();
    ASSERT_EQ(NO_ERROR, queueFrame());
    listener->events.take();
    const int holders = producerListener->getStrongCount();
    EXPECT_EQ(NO_ERROR, producer->disconnectListener(producerListener));
    EXPECT_EQ((EventList{"released", "disconnect"}), listener->events.take());
    EXPECT_EQ(holders - 1, producerListener->getStrongCount());
    EXPECT_EQ(NO_INIT, dequeue());
    EXPECT_EQ(NO_ERROR, acquire());
    EXPECT_TRUE(item.mIsStale);
    EXPECT_EQ(NO_ERROR, connectProducer());
}

TEST_F(BufferQueueConnectTest, NobodyElsesConnectionEndsWithAListener) {
    connect();
    const sp<IProducerListener> other = new RecordingProducerListener(true);
    EXPECT_EQ(NO_ERROR, producer->disconnectListener(other));
    EXPECT_EQ(NO_ERROR, producer->disconnectListener(nullptr));
    EXPECT_EQ(EventList{}, listener->events.take());
    EXPECT_EQ(kNeedsRequest, dequeue());

    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
    ASSERT_EQ(NO_ERROR, producer->connect(nullptr, NATIVE_WINDOW_API_CPU, false, &output));
    EXPECT_EQ(NO_ERROR, producer->disconnectListener(producerListener));
    EXPECT_EQ(NO_ERROR, producer->disconnectListener(nullptr));
    EXPECT_EQ(kNeedsRequest, dequeue());
}

TEST_F(BufferQueueConnectTest, AnAbandonedQueueHasNoConnectionToEnd) {
    connect();
    ASSERT_EQ(NO_ERROR, consumer->consumerDisconnect());
    listener->events.take();
    EXPECT_EQ(NO_ERROR, producer->disconnectListener(producerListener));
    EXPECT_EQ(EventList{}, listener->events.take());
}

}  // namespace
}  // namespace korvane::test
