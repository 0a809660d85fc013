// SPDX-License-Identifier: Apache-2.0
// A HIDL producer as native code in a client uses it.
#include <string>
#include <vector>

#include <fcntl.h>

#include <gtest/gtest.h>

#include "support/LogRecorder.h"
#include "support/ProducerWrapperTest.h"

namespace korvane::test {
namespace {

/** A producer whose process fails every call in the same way. */
class BrokenProducer : public HGraphicBufferProducer {
  public:
    explicit BrokenProducer(status_t error) : mError(error) {}

    Return<void> requestBuffer(int32_t, requestBuffer_cb) override { return failure(); }
    Return<int32_t> setMaxDequeuedBufferCount(int32_t) override { return failure(); }
    Return<int32_t> setAsyncMode(bool) override { return failure(); }
    Return<void> dequeueBuffer(uint32_t, uint32_t, HFormat, uint32_t, bool,
                               dequeueBuffer_cb) override {
        return failure();
    }
    Return<int32_t> detachBuffer(int32_t) override { return failure(); }
    Return<void> detachNextBuffer(detachNextBuffer_cb) override { return failure(); }
    Return<void> attachBuffer(const AnwBuffer&, attachBuffer_cb) override { return failure(); }
    Return<void> queueBuffer(int32_t, const HInput&, queueBuffer_cb) override { return failure(); }
    Return<int32_t> cancelBuffer(int32_t, const hidl_handle&) override { return failure(); }
    Return<void> query(int32_t, query_cb) override { return failure(); }
    Return<void> connect(const sp<HProducerListener>&, int32_t, bool, connect_cb) override {
        return failure();
    }
    Return<int32_t> disconnect(int32_t, HMode) override { return failure(); }
    Return<int32_t> setSidebandStream(const hidl_handle&) override { return failure(); }
    Return<void> allocateBuffers(uint32_t, uint32_t, HFormat, uint32_t) override {
        return failure();
    }
    Return<int32_t> allowAllocation(bool) override { return failure(); }
    Return<int32_t> setGenerationNumber(uint32_t) override { return failure(); }
    Return<void> getConsumerName(getConsumerName_cb) override { return failure(); }
    Return<int32_t> setSharedBufferMode(bool) override { return failure(); }
    Return<int32_t> setAutoRefresh(bool) override { return failure(); }
    Return<int32_t> setDequeueTimeout(int64_t) override { return failure(); }
    Return<void> getLastQueuedBuffer(getLastQueuedBuffer_cb) override { return failure(); }
    Return<void> getFrameTimestamps(getFrameTimestamps_cb) override { return failure(); }
    Return<void> getUniqueId(getUniqueId_cb) override { return failure(); }

  private:
    android::hardware::Status failure() const {
        return android::hardware::Status::fromStatusT(mError);
    }

    const status_t mError;
};

/** A producer that answers with a handle which is no buffer. */
class LyingProducer : public BrokenProducer {
  public:
    explicit LyingProducer(int32_t status) : BrokenProducer(DEAD_OBJECT), mStatus(status) {}

    Return<void> requestBuffer(int32_t, requestBuffer_cb _hidl_cb) override {
        const BorrowingHandle handle({}, 4);
        AnwBuffer anw = {};
        anw.nativeHandle = handle.get();
        _hidl_cb(mStatus, anw);
        return Void();
    }
    Return<void> dequeueBuffer(uint32_t, uint32_t, HFormat, uint32_t, bool,
                               dequeueBuffer_cb _hidl_cb) override {
        const BorrowingHandle handle({999});
        _hidl_cb(mStatus, 5, handle.get(), HDelta());
        return Void();
    }

  private:
    const int32_t mStatus;
};

class H2BGraphicBufferProducerTest : public ProducerWrapperTest {
  protected:
    /** The statuses of every call that has one. */
    static std::vector<status_t> callAll(const sp<IGraphicBufferProducer>& broken) {
        int number = 0;
        uint64_t id = 0;
        float matrix[16];
        sp<Fence> fence;
        sp<GraphicBuffer> buffer;
        QueueBufferOutput output;
        return {broken->requestBuffer(0, &buffer),
                broken->setMaxDequeuedBufferCount(1),
                broken->setAsyncMode(true),
                broken->dequeueBuffer(&number, &fence, 0, 0, 0, 0, nullptr, nullptr),
                broken->detachBuffer(0),
                broken->detachNextBuffer(&buffer, &fence),
                broken->attachBuffer(&number, foreignBuffer()),
                broken->queueBuffer(0, input(), &output),
                broken->cancelBuffer(0, Fence::NO_FENCE),
                broken->query(NATIVE_WINDOW_WIDTH, &number),
                broken->connect(nullptr, NATIVE_WINDOW_API_CPU, false, &output),
                broken->disconnect(NATIVE_WINDOW_API_CPU),
                broken->setSidebandStream(nullptr),
                broken->allowAllocation(true),
                broken->setGenerationNumber(1),
                broken->setSharedBufferMode(false),
                broken->setAutoRefresh(false),
                broken->setDequeueTimeout(1),
                broken->getLastQueuedBuffer(&buffer, &fence, matrix),
                broken->getUniqueId(&id),
                broken->getConsumerUsage(&id)};
    }

    status_t clientDequeue() {
        return client->dequeueBuffer(&slot, &fence, 0, 0, 0, kCpuUsage, &age, nullptr);
    }

    void connectThroughClient() {
        ASSERT_EQ(NO_ERROR, connectConsumer());
        ASSERT_EQ(NO_ERROR,
                  client->connect(producerListener, NATIVE_WINDOW_API_CPU, false, &output));
        ASSERT_EQ(NO_ERROR, client->setDequeueTimeout(0));
    }
};

TEST_F(H2BGraphicBufferProducerTest, AFrameGoesRound) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    consumer->setDefaultBufferSize(64, 32);
    ASSERT_EQ(NO_ERROR, client->connect(producerListener, NATIVE_WINDOW_API_CPU, false, &output));
    EXPECT_EQ(64u, output.width);
    EXPECT_EQ(0, output.maxBufferCount);
    EXPECT_EQ(1, producerListener->asked);
    age = 77;
    ASSERT_EQ(kNeedsRequest, clientDequeue());
    EXPECT_EQ(0u, age);
    EXPECT_FALSE(fence->isValid());
    ASSERT_EQ(NO_ERROR, client->requestBuffer(slot, &buffer));
    EXPECT_EQ(Rect(64, 32), buffer->getBounds());
    EXPECT_EQ(listener->lastId, buffer->getId());
    const unique_fd event = makeEvent();
    QueueBufferInput frame = input(99);
    frame.fence = new Fence(fcntl(event.get(), F_DUPFD_CLOEXEC, 0));
    frame.setSurfaceDamage(Region(Rect(0, 0, 1, 1)) | Region(Rect(4, 4, 5, 5)));
    ASSERT_EQ(NO_ERROR, client->queueBuffer(slot, frame, &output));
    EXPECT_EQ(2u, output.nextFrameNumber);
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(99, item.mTimestamp);
    EXPECT_EQ(frame.getSurfaceDamage(), item.mSurfaceDamage);
    EXPECT_EQ(-ETIME, item.mFence->wait(0));
    eventfd_write(event.get(), 1);
    EXPECT_EQ(NO_ERROR, item.mFence->wait(0));
    const sp<Fence> releaseFence = item.mFence;
    ASSERT_EQ(NO_ERROR, release(item.mSlot, item.mFrameNumber, releaseFence));
    EXPECT_EQ(1, producerListener->released);
    ASSERT_EQ(NO_ERROR, clientDequeue());
    EXPECT_TRUE(fence->isValid());
    EXPECT_NE(releaseFence->get(), fence->get());
    EXPECT_EQ(NO_ERROR, client->cancelBuffer(slot, fence));
    EXPECT_EQ(NO_ERROR, client->disconnect(NATIVE_WINDOW_API_CPU));
}

TEST_F(H2BGraphicBufferProducerTest, AllThatIsSaidOfAFrameTravels) {
    connectThroughClient();
    consumer->setDefaultBufferSize(64, 32);
    consumer->setTransformHint(7);
    ASSERT_EQ(kNeedsRequest, clientDequeue());
    ASSERT_EQ(NO_ERROR, client->requestBuffer(slot, &buffer));
    QueueBufferInput frame(99, true, HAL_DATASPACE_V0_JFIF, Rect(1, 2, 30, 20), 2, 4,
                           Fence::NO_FENCE, 3, true);
    ASSERT_EQ(NO_ERROR, client->queueBuffer(slot, frame, &output));
    EXPECT_EQ(7u, output.transformHint);
    EXPECT_EQ(1, output.frameTimestamps.getCompositorTiming().deadline);
    EXPECT_EQ(2, output.frameTimestamps.getCompositorTiming().interval);
    EXPECT_EQ(3, output.frameTimestamps.getCompositorTiming().presentLatency);
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_TRUE(item.mIsAutoTimestamp);
    EXPECT_EQ(HAL_DATASPACE_V0_JFIF, item.mDataSpace);
    EXPECT_EQ(Rect(1, 2, 30, 20), item.mCrop);
    EXPECT_EQ(2u, item.mScalingMode);
    EXPECT_EQ(4u, item.mTransform);
    EXPECT_EQ(3, query(NATIVE_WINDOW_STICKY_TRANSFORM));
}

TEST_F(H2BGraphicBufferProducerTest, ThatAFrameWasReplacedComesThrough) {
    connectThroughClient();
    ASSERT_EQ(NO_ERROR, client->setAsyncMode(true));
    for (bool replaced : {false, true}) {
        ASSERT_EQ(kNeedsRequest, clientDequeue());
        ASSERT_EQ(NO_ERROR, client->requestBuffer(slot, &buffer));
        ASSERT_EQ(NO_ERROR, client->queueBuffer(slot, input(), &output));
        EXPECT_EQ(replaced, output.bufferReplaced);
    }
}

TEST_F(H2BGraphicBufferProducerTest, NoListenerStaysNone) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    ASSERT_EQ(NO_ERROR, client->connect(nullptr, NATIVE_WINDOW_API_CPU, false, &output));
    ASSERT_EQ(NO_ERROR, queueFrame());
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(NO_ERROR, release(item));
}

TEST_F(H2BGraphicBufferProducerTest, TheQueuesStatusComesThrough) {
    EXPECT_EQ(NO_INIT, client->connect(nullptr, NATIVE_WINDOW_API_CPU, false, &output));
    EXPECT_EQ(NO_INIT, clientDequeue());
    connectThroughClient();
    EXPECT_EQ(kNeedsRequest, clientDequeue());
    EXPECT_EQ(kNeedsRequest, clientDequeue());
    EXPECT_EQ(TIMED_OUT, clientDequeue());
    EXPECT_EQ(BAD_VALUE, client->cancelBuffer(64, Fence::NO_FENCE));
    EXPECT_EQ(BAD_VALUE, client->queueBuffer(0, input(), &output));
    int value = 77;
    EXPECT_EQ(BAD_VALUE, client->query(NATIVE_WINDOW_CONCRETE_TYPE, &value));
    EXPECT_EQ(77, value);
    EXPECT_EQ(NO_ERROR, client->query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS, &value));
    EXPECT_EQ(1, value);
}

TEST_F(H2BGraphicBufferProducerTest, BuffersMoveInBothDirections) {
    connectThroughClient();
    const sp<GraphicBuffer> mine = foreignBuffer();
    ASSERT_EQ(NO_ERROR, client->attachBuffer(&slot, mine));
    ASSERT_EQ(NO_ERROR, client->queueBuffer(slot, input(), &output));
    float matrix[16] = {};
    ASSERT_EQ(NO_ERROR, client->getLastQueuedBuffer(&buffer, &fence, matrix));
    EXPECT_EQ(mine->getId(), buffer->getId());
    EXPECT_EQ(-1, matrix[5]);
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    ASSERT_EQ(NO_ERROR, client->detachNextBuffer(&buffer, &fence));
    EXPECT_EQ(mine->getId(), buffer->getId());
    EXPECT_EQ(NO_MEMORY, client->detachNextBuffer(&buffer, &fence));
    EXPECT_EQ(nullptr, buffer->handle);
    ASSERT_EQ(kNeedsRequest, clientDequeue());
    EXPECT_EQ(BAD_VALUE, client->detachBuffer(slot));
    ASSERT_EQ(NO_ERROR, client->requestBuffer(slot, &buffer));
    EXPECT_EQ(NO_ERROR, client->detachBuffer(slot));
}

TEST_F(H2BGraphicBufferProducerTest, WhatTheQueueKnowsTheClientCanAsk) {
    connectThroughClient();
    consumer->setConsumerUsageBits(0x80000033);
    consumer->setConsumerName(String8("webcam"));
    uint64_t usage = 0;
    EXPECT_EQ(NO_ERROR, client->getConsumerUsage(&usage));
    EXPECT_EQ(0x80000033u, usage);
    ASSERT_EQ(kNeedsRequest, clientDequeue());
    EXPECT_STREQ("webcam", client->getConsumerName().c_str());
    uint64_t theirs = 0;
    uint64_t ours = 1;
    EXPECT_EQ(NO_ERROR, client->getUniqueId(&theirs));
    EXPECT_EQ(NO_ERROR, producer->getUniqueId(&ours));
    EXPECT_EQ(ours, theirs);
    FrameEventHistoryDelta delta;
    client->getFrameTimestamps(&delta);
    EXPECT_EQ(3, delta.getCompositorTiming().presentLatency);
    FrameEventHistoryDelta dequeued;
    EXPECT_LE(NO_ERROR,
              client->dequeueBuffer(&slot, &fence, 0, 0, 0, kCpuUsage, nullptr, &dequeued));
    EXPECT_EQ(2, dequeued.getCompositorTiming().interval);
}

TEST_F(H2BGraphicBufferProducerTest, OfAUsageTheLower32BitsTravel) {
    LogRecorder log;
    connectThroughClient();
    constexpr uint64_t kHighBit = uint64_t{1} << 40;
    ASSERT_EQ(kNeedsRequest, client->dequeueBuffer(&slot, &fence, 1, 1, 0, kCpuUsage | kHighBit,
                                                   nullptr, nullptr));
    ASSERT_EQ(NO_ERROR, request(slot));
    EXPECT_EQ(kCpuUsage, buffer->getUsage());
    client->allocateBuffers(1, 1, 0, kCpuUsage | kHighBit);
    ASSERT_EQ(NO_ERROR, dequeueAndRequest());
    EXPECT_EQ(kCpuUsage, buffer->getUsage());
    uint64_t usage = 0;
    EXPECT_EQ(NO_ERROR, client->getConsumerUsage(&usage));
    EXPECT_TRUE(log.has(ANDROID_LOG_WARN, "H2BGraphicBufferProducer",
                        "getConsumerUsage: only the lower 32 bits are available"));
}

TEST_F(H2BGraphicBufferProducerTest, SettingsGoToTheQueue) {
    connectThroughClient();
    EXPECT_EQ(NO_ERROR, client->setMaxDequeuedBufferCount(2));
    EXPECT_EQ(NO_ERROR, client->setAsyncMode(true));
    EXPECT_EQ(2, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    EXPECT_EQ(INVALID_OPERATION, client->setSharedBufferMode(true));
    EXPECT_EQ(NO_ERROR, client->setAutoRefresh(true));
    client->allocateBuffers(8, 8, 0, kCpuUsage);
    EXPECT_EQ(NO_ERROR, client->allowAllocation(false));
    EXPECT_EQ(kNeedsRequest, dequeue(8, 8));
    EXPECT_EQ(NO_ERROR, client->setGenerationNumber(4));
    slot = 77;
    EXPECT_EQ(BAD_VALUE, client->attachBuffer(&slot, foreignBuffer(3)));
    EXPECT_EQ(77, slot);
    const sp<NativeHandle> stream = NativeHandle::create(native_handle_create(0, 1), true);
    EXPECT_EQ(NO_ERROR, client->setSidebandStream(stream));
    sp<NativeHandle> received;
    EXPECT_EQ(NO_ERROR, consumer->getSidebandStream(&received));
    ASSERT_NE(nullptr, received);
    EXPECT_EQ(1, received->handle()->numInts);
}

TEST_F(H2BGraphicBufferProducerTest, WhatDoesNotTravelIsRefused) {
    EXPECT_EQ(INVALID_OPERATION, client->setLegacyBufferDrop(true));
    EXPECT_EQ(INVALID_OPERATION, client->setAutoPrerotation(true));
    Rect crop;
    uint32_t transform = 0;
    EXPECT_EQ(INVALID_OPERATION, client->getLastQueuedBuffer(&buffer, &fence, &crop, &transform));
}

TEST_F(H2BGraphicBufferProducerTest, MissingArgumentsAreRefused) {
    EXPECT_EQ(BAD_VALUE, client->attachBuffer(nullptr, foreignBuffer()));
    EXPECT_EQ(BAD_VALUE, client->attachBuffer(&slot, nullptr));
    EXPECT_EQ(BAD_VALUE, client->detachNextBuffer(nullptr, &fence));
    EXPECT_EQ(BAD_VALUE, client->detachNextBuffer(&buffer, nullptr));
    EXPECT_EQ(BAD_VALUE, client->query(NATIVE_WINDOW_WIDTH, nullptr));
    EXPECT_EQ(BAD_VALUE, client->connect(nullptr, NATIVE_WINDOW_API_CPU, false, nullptr));
    EXPECT_EQ(BAD_VALUE, client->cancelBuffer(0, nullptr));
}

TEST_F(H2BGraphicBufferProducerTest, ADeadQueueIsADeadObject) {
    const sp<HGraphicBufferProducer> dead = new BrokenProducer(DEAD_OBJECT);
    for (status_t status : callAll(new H2BGraphicBufferProducer(dead))) {
        EXPECT_EQ(DEAD_OBJECT, status);
    }
}

TEST_F(H2BGraphicBufferProducerTest, AnyOtherFailureIsUnknown) {
    const sp<HGraphicBufferProducer> failing = new BrokenProducer(FAILED_TRANSACTION);
    for (status_t status : callAll(new H2BGraphicBufferProducer(failing))) {
        EXPECT_EQ(UNKNOWN_ERROR, status);
    }
}

TEST_F(H2BGraphicBufferProducerTest, CallsWithoutAStatusLogTheirFailure) {
    LogRecorder log;
    const sp<HGraphicBufferProducer> dead = new BrokenProducer(DEAD_OBJECT);
    client = new H2BGraphicBufferProducer(dead);
    client->allocateBuffers(1, 1, 0, 0);
    EXPECT_EQ(0u, client->getConsumerName().size());
    FrameEventHistoryDelta delta;
    client->getFrameTimestamps(&delta);
    EXPECT_EQ(3u, log.lines("H2BGraphicBufferProducer").size());
}

TEST_F(H2BGraphicBufferProducerTest, OutputsAreSetWhateverHappens) {
    const sp<HGraphicBufferProducer> dead = new BrokenProducer(DEAD_OBJECT);
    client = new H2BGraphicBufferProducer(dead);
    EXPECT_EQ(DEAD_OBJECT, client->requestBuffer(0, &buffer));
    ASSERT_NE(nullptr, buffer);
    EXPECT_EQ(nullptr, buffer->handle);
    EXPECT_EQ(DEAD_OBJECT, clientDequeue());
    ASSERT_NE(nullptr, fence);
    EXPECT_FALSE(fence->isValid());
    const auto expectEmpty = [this] {
        ASSERT_NE(nullptr, buffer);
        EXPECT_EQ(nullptr, buffer->handle);
        ASSERT_NE(nullptr, fence);
        EXPECT_FALSE(fence->isValid());
        buffer.clear();
        fence.clear();
    };
    expectEmpty();
    EXPECT_EQ(DEAD_OBJECT, client->detachNextBuffer(&buffer, &fence));
    expectEmpty();
    float matrix[16];
    EXPECT_EQ(DEAD_OBJECT, client->getLastQueuedBuffer(&buffer, &fence, matrix));
    expectEmpty();
}

TEST_F(H2BGraphicBufferProducerTest, AResultThatDoesNotConvertSpoilsOnlySuccess) {
    client = new H2BGraphicBufferProducer(new LyingProducer(NO_ERROR));
    EXPECT_EQ(BAD_VALUE, client->requestBuffer(0, &buffer));
    EXPECT_EQ(BAD_VALUE, clientDequeue());
    client = new H2BGraphicBufferProducer(new LyingProducer(kNeedsRequest));
    EXPECT_EQ(kNeedsRequest, clientDequeue());
    EXPECT_EQ(5, slot);
    client = new H2BGraphicBufferProducer(new LyingProducer(NO_INIT));
    EXPECT_EQ(NO_INIT, client->requestBuffer(0, &buffer));
}

}  // namespace
}  // namespace korvane::test
