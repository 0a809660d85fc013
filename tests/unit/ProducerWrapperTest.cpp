// SPDX-License-Identifier: Apache-2.0
// The producer of a buffer queue as HIDL clients see it: connections, frames and fences.
#include "support/ProducerWrapperTest.h"

#include <climits>
#include <functional>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/DescriptorZero.h"
#include "support/LogRecorder.h"

namespace korvane::test {
namespace {

TEST_F(ProducerWrapperTest, ConnectTellsTheQueuesStatusAndState) {
    EXPECT_EQ(NO_INIT, wrappedConnect(nullptr));
    EXPECT_EQ(16666667, lastOutput.frameTimestamps.compositorTiming.intervalNs);
    ASSERT_EQ(NO_ERROR, connectConsumer());
    consumer->setDefaultBufferSize(64, 32);
    EXPECT_EQ(BAD_VALUE, wrappedConnect(nullptr, 9));
    EXPECT_EQ(NO_ERROR, wrappedConnect(nullptr));
    EXPECT_EQ(64u, lastOutput.width);
    EXPECT_EQ(32u, lastOutput.height);
    EXPECT_EQ(1u, lastOutput.nextFrameNumber);
    EXPECT_EQ(0u, lastOutput.frameTimestamps.deltas.size());
    EXPECT_EQ(0, lastOutput.frameTimestamps.compositorTiming.deadlineNs);
    EXPECT_EQ(16666667, lastOutput.frameTimestamps.compositorTiming.intervalNs);
    EXPECT_EQ(16666667, lastOutput.frameTimestamps.compositorTiming.presentLatencyNs);
    EXPECT_EQ(BAD_VALUE, wrappedConnect(nullptr));
}

TEST_F(ProducerWrapperTest, DisconnectKnowsBothModes) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(NO_INIT, static_cast<int32_t>(wrapper->disconnect(2, HMode::API)));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->disconnect(2, HMode::ALL_LOCAL)));
    ASSERT_EQ(NO_ERROR, wrappedConnect(nullptr));
    EXPECT_EQ(BAD_VALUE, static_cast<int32_t>(wrapper->disconnect(1, HMode::API)));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->disconnect(1, HMode::ALL_LOCAL)));
    ASSERT_EQ(NO_ERROR, wrappedConnect(nullptr));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->disconnect(2, static_cast<HMode>(7))));
}

TEST_F(ProducerWrapperTest, TheClientsListenerIsAskedAndTold) {
    const sp<ClientListener> clientListener = new ClientListener();
    connectClient(clientListener);
    EXPECT_EQ(1, clientListener->asked);
    prepareSlot();
    ASSERT_EQ(NO_ERROR, wrappedQueue(goodInput()));
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(1, clientListener->released);
    ASSERT_EQ(NO_ERROR, consumer->discardFreeBuffers());
}

// What the client does meanwhile must not keep the consumer out.
TEST_F(ProducerWrapperTest, TheClientIsAskedOnceWhileTheQueueIsFree) {
    struct Asked : public ClientListener {
        Return<bool> needsReleaseNotify() override {
            wasLocked = isLocked();
            return ClientListener::needsReleaseNotify();
        }
        std::function<bool()> isLocked;
        bool wasLocked = true;
    };
    const sp<Asked> clientListener = new Asked();
    clientListener->isLocked = [this] { return isQueueLocked(); };
    connectClient(clientListener);
    EXPECT_EQ(1, clientListener->asked);
    EXPECT_FALSE(clientListener->wasLocked);
}

TEST_F(ProducerWrapperTest, AClientWhoseConnectionIsRefusedIsNotAsked) {
    connectClient(new ClientListener());
    const sp<ClientListener> second = new ClientListener();
    EXPECT_EQ(BAD_VALUE, wrappedConnect(second));
    EXPECT_EQ(0, second->asked);
}

TEST_F(ProducerWrapperTest, AClientThatDoesNotWantToHearIsNotTold) {
    const sp<ClientListener> clientListener = new ClientListener();
    clientListener->wants = false;
    connectClient(clientListener);
    prepareSlot();
    ASSERT_EQ(NO_ERROR, wrappedQueue(goodInput()));
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(0, clientListener->released);
}

TEST_F(ProducerWrapperTest, ADeadClientDoesNotTakeTheQueueWithIt) {
    const sp<DeadListener> dead = new DeadListener();
    connectClient(dead);
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->disconnect(2, HMode::API)));
    dead->diesLater = true;
    ASSERT_EQ(NO_ERROR, wrappedConnect(dead));
    prepareSlot();
    ASSERT_EQ(NO_ERROR, wrappedQueue(goodInput()));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(NO_ERROR, release(item));
}

TEST_F(ProducerWrapperTest, AClientThatIsDeadWhenItIsAskedIsNotTold) {
    LogRecorder log;
    connectClient(new DeadListener());
    prepareSlot();
    ASSERT_EQ(NO_ERROR, wrappedQueue(goodInput()));
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_EQ(NO_ERROR, release(item));
    EXPECT_EQ(1u, log.lines("LWProducerListener").size());  // of the question
}

// A client that connects with a listener and dies.

/** A listener in another process, of whose death the test tells. */
struct MortalListener : public ClientListener {
    Return<bool> linkToDeath(const sp<android::hardware::hidl_death_recipient>& to,
                             uint64_t cookieOfLink) override {
        links++;
        recipient = to;
        cookie = cookieOfLink;
        return !isDead;
    }
    void die() {
        isDead = true;
        const sp<android::hardware::hidl_death_recipient> told = recipient.promote();
        if (told != nullptr) told->serviceDied(cookie, this);
    }

    wp<android::hardware::hidl_death_recipient> recipient;
    uint64_t cookie = 0;
    int links = 0;
    bool isDead = false;
};

class ProducerDeathTest : public ProducerWrapperTest {
  protected:
    const sp<MortalListener> mMortal = new MortalListener();
};

TEST_F(ProducerDeathTest, ADeadClientIsDisconnected) {
    connectClient(mMortal);
    EXPECT_EQ(1, mMortal->links);
    prepareSlot();
    listener->events.take();
    mMortal->die();
    EXPECT_EQ((EventList{"released", "disconnect"}), listener->events.take());
    EXPECT_EQ(NO_INIT, wrappedDequeue());
    EXPECT_EQ(NO_ERROR, wrappedConnect(nullptr));
}

TEST_F(ProducerDeathTest, AClientThatHasDisconnectedIsNotFollowed) {
    connectClient(mMortal);
    ASSERT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->disconnect(2, HMode::API)));
    EXPECT_EQ(nullptr, mMortal->recipient.promote());
}

TEST_F(ProducerDeathTest, TheNextClientsConnectionStays) {
    connectClient(mMortal);
    const sp<android::hardware::hidl_death_recipient> late = mMortal->recipient.promote();
    ASSERT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->disconnect(2, HMode::API)));
    ASSERT_EQ(NO_ERROR, wrappedConnect(new ClientListener()));
    mMortal->die();
    EXPECT_EQ(kNeedsRequest, wrappedDequeue());
}

TEST_F(ProducerDeathTest, AClientThatIsDeadAlreadyDoesNotConnect) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    mMortal->isDead = true;
    EXPECT_EQ(DEAD_OBJECT, wrappedConnect(mMortal));
    EXPECT_EQ(NO_ERROR, wrappedConnect(nullptr));
}

TEST_F(ProducerDeathTest, AClientThatIsRefusedIsNotFollowed) {
    connectClient();
    EXPECT_EQ(BAD_VALUE, wrappedConnect(mMortal));
    EXPECT_EQ(0, mMortal->links);
}

TEST_F(ProducerDeathTest, ADeathAfterTheQueueConcernsNobody) {
    connectClient(mMortal);
    const sp<android::hardware::hidl_death_recipient> late = mMortal->recipient.promote();
    wrapper.clear();
    client.clear();
    producer.clear();
    consumer.clear();
    mMortal->die();
    EXPECT_EQ(EventList{}, listener->events.take());
}

TEST_F(ProducerWrapperTest, DequeueGivesStatusFlagsAndSlot) {
    ASSERT_EQ(NO_ERROR, connectConsumer());
    EXPECT_EQ(NO_INIT, wrappedDequeue());
    EXPECT_EQ(0, slot);
    EXPECT_EQ(-1, fenceFds);
    ASSERT_EQ(NO_ERROR, wrappedConnect(nullptr));
    ASSERT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setDequeueTimeout(0)));
    EXPECT_EQ(kNeedsRequest, wrappedDequeue());
    EXPECT_EQ(0, slot);
    EXPECT_EQ(-1, fenceFds);
    EXPECT_EQ(kNeedsRequest, wrappedDequeue());
    EXPECT_EQ(TIMED_OUT, wrappedDequeue());
    EXPECT_EQ(0, slot);
}

TEST_F(ProducerWrapperTest, DequeueLendsTheReleaseFence) {
    connectClient();
    const unique_fd event = makeEvent();
    const sp<Fence> releaseFence = new Fence(fcntl(event.get(), F_DUPFD_CLOEXEC, 3));
    prepareSlot();
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(slot, releaseFence));
    ASSERT_EQ(NO_ERROR, wrappedDequeue());
    EXPECT_EQ(1, fenceFds);
    EXPECT_EQ(releaseFence->get(), fenceFd);
    EXPECT_NE(-1, fcntl(releaseFence->get(), F_GETFD));
}

TEST_F(ProducerWrapperTest, DequeueGivesTimesWhenAsked) {
    connectClient();
    int64_t interval = -1;
    const auto dequeueAsking = [&](bool asking) {
        wrapper->dequeueBuffer(0, 0, kDefaultFormat, kCpuUsage, asking,
                               [&](int32_t, int32_t, const hidl_handle&, const HDelta& delta) {
                                   interval = delta.compositorTiming.intervalNs;
                               });
    };
    dequeueAsking(true);
    EXPECT_EQ(2, interval);
    dequeueAsking(false);
    EXPECT_EQ(0, interval);
}

TEST_F(ProducerWrapperTest, AbsurdSizesAreRefused) {
    connectClient();
    const auto dequeueSize = [&](uint32_t width, uint32_t height) {
        int32_t result = 1000;
        wrapper->dequeueBuffer(width, height, static_cast<HFormat>(HAL_PIXEL_FORMAT_YCbCr_420_888),
                               kCpuUsage, false,
                               [&](int32_t status, int32_t, const hidl_handle&, const HDelta&) {
                                   result = status;
                               });
        return result;
    };
    const int before = countOpenDescriptors();
    EXPECT_EQ(BAD_VALUE, dequeueSize(UINT32_MAX, UINT32_MAX));
    EXPECT_EQ(BAD_VALUE, dequeueSize(0x10000, 0x10000));
    EXPECT_EQ(BAD_VALUE, dequeueSize(640, 0));
    wrapper->allocateBuffers(UINT32_MAX, 1, kDefaultFormat, kCpuUsage);
    EXPECT_EQ(before, countOpenDescriptors());
    EXPECT_EQ(kNeedsRequest, dequeueSize(640, 480));
}

TEST_F(ProducerWrapperTest, RequestGivesTheBuffer) {
    connectClient();
    consumer->setDefaultBufferSize(64, 32);
    ASSERT_EQ(kNeedsRequest, wrappedDequeue());
    for (int32_t wrong : {-1, 1, 64, INT_MAX}) {
        EXPECT_EQ(BAD_VALUE, wrappedRequest(wrong));
        EXPECT_EQ(nullptr, lastBuffer.nativeHandle.getNativeHandle());
        EXPECT_EQ(0u, lastBuffer.attr.width);
    }
    ASSERT_EQ(NO_ERROR, wrappedRequest(slot));
    EXPECT_EQ(64u, lastBuffer.attr.width);
    EXPECT_EQ(32u, lastBuffer.attr.height);
    EXPECT_EQ(64u, lastBuffer.attr.stride);
    EXPECT_EQ(1u, lastBuffer.attr.layerCount);
    EXPECT_EQ(kCpuUsage, lastBuffer.attr.usage);
    EXPECT_EQ(listener->lastId, lastBuffer.attr.id);
    EXPECT_NE(nullptr, lastBuffer.nativeHandle.getNativeHandle());
}

TEST_F(ProducerWrapperTest, QueueConvertsTheFrame) {
    connectClient();
    consumer->setDefaultBufferSize(64, 32);
    prepareSlot();
    const unique_fd event = makeEvent();
    const BorrowingHandle handle({event.get()});
    HInput input = goodInput();
    input.timestamp = 123;
    input.isAutoTimestamp = 1;
    input.dataSpace = Dataspace::V0_JFIF;
    input.crop = {1, 2, 30, 20};
    input.scalingMode = NATIVE_WINDOW_SCALING_MODE_SCALE_CROP;
    input.transform = NATIVE_WINDOW_TRANSFORM_ROT_90;
    input.stickyTransform = 3;
    input.fence = handle.get();
    input.surfaceDamage = {HRect{0, 0, 8, 8}, HRect{16, 0, 24, 8}, HRect{0, 0, 24, 8}};
    ASSERT_EQ(NO_ERROR, wrappedQueue(input));
    EXPECT_EQ(1u, lastOutput.numPendingBuffers);
    EXPECT_EQ(2u, lastOutput.nextFrameNumber);
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(123, item.mTimestamp);
    EXPECT_TRUE(item.mIsAutoTimestamp);
    EXPECT_EQ(HAL_DATASPACE_V0_JFIF, item.mDataSpace);
    EXPECT_EQ(Rect(1, 2, 30, 20), item.mCrop);
    EXPECT_EQ(2u, item.mScalingMode);
    EXPECT_EQ(4u, item.mTransform);
    EXPECT_EQ(Region(Rect(0, 0, 8, 8)) | Region(Rect(16, 0, 24, 8)), item.mSurfaceDamage);
    EXPECT_EQ(3, query(NATIVE_WINDOW_STICKY_TRANSFORM));
    ASSERT_TRUE(item.mFence->isValid());
    EXPECT_NE(event.get(), item.mFence->get());
    EXPECT_EQ(-ETIME, item.mFence->wait(0));
    eventfd_write(event.get(), 1);
    EXPECT_EQ(NO_ERROR, item.mFence->wait(0));
}

TEST_F(ProducerWrapperTest, QueueRefusesADamageThatIsNoRegion) {
    connectClient();
    consumer->setDefaultBufferSize(64, 32);
    prepareSlot();
    EXPECT_EQ(BAD_VALUE, queueWithDamage({}));
    EXPECT_EQ(BAD_VALUE, queueWithDamage({HRect{5, 5, 4, 4}}));
    EXPECT_EQ(BAD_VALUE, queueWithDamage({HRect{0, 0, 8, 8}, HRect{16, 0, 24, 8}}));
    EXPECT_EQ(BAD_VALUE,
              queueWithDamage({HRect{0, 0, 8, 8}, HRect{4, 0, 9, 8}, HRect{0, 0, 9, 8}}));
    EXPECT_EQ(BAD_VALUE, queueWithDamage(std::vector<HRect>(60000, HRect{0, 0, 1, 1})));
    EXPECT_EQ(0u, lastOutput.width);
    EXPECT_EQ(0, lastOutput.frameTimestamps.compositorTiming.intervalNs);
    // The slot is still the client's.
    EXPECT_EQ(NO_ERROR, queueWithDamage({HRect{0, 0, -1, -1}}));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(Region::INVALID_REGION, item.mSurfaceDamage);
}

TEST_F(ProducerWrapperTest, QueueGivesTheQueuesRefusals) {
    connectClient();
    prepareSlot();
    HInput input = goodInput();
    input.scalingMode = 4;
    EXPECT_EQ(BAD_VALUE, wrappedQueue(input));
    EXPECT_EQ(16666667, lastOutput.frameTimestamps.compositorTiming.intervalNs);
    input = goodInput();
    input.crop = {0, 0, INT_MAX, INT_MAX};
    EXPECT_EQ(BAD_VALUE, wrappedQueue(input));
    for (int wrong : {-1, 63, 64, INT_MAX, INT_MIN}) {
        slot = wrong;
        EXPECT_EQ(BAD_VALUE, wrappedQueue(goodInput()));
    }
    slot = 0;
    EXPECT_EQ(NO_ERROR, wrappedQueue(goodInput()));
}

TEST_F(ProducerWrapperTest, OfAFenceHandleTheFirstDescriptorCounts) {
    connectClient();
    const unique_fd first = makeEvent();
    const unique_fd second = makeEvent();
    const BorrowingHandle several({first.get(), second.get()}, 5);
    const BorrowingHandle none({}, 3);
    const int before = countOpenDescriptors();
    prepareSlot();
    ASSERT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->cancelBuffer(slot, several.get())));
    ASSERT_EQ(NO_ERROR,
              producer->dequeueBuffer(&slot, &fence, 0, 0, 0, kCpuUsage, nullptr, nullptr));
    eventfd_write(first.get(), 1);
    EXPECT_EQ(NO_ERROR, fence->wait(0));
    ASSERT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->cancelBuffer(slot, none.get())));
    fence.clear();
    lastBuffer = AnwBuffer();
    // All that is left is the buffer.
    EXPECT_EQ(before + 1, countOpenDescriptors());
}

TEST_F(ProducerWrapperTest, OfAFramesFenceTheFirstDescriptorCounts) {
    connectClient();
    prepareSlot();
    const unique_fd first = makeEvent();
    const unique_fd second = makeEvent();
    const BorrowingHandle several({first.get(), second.get()}, 5);
    HInput input = goodInput();
    input.fence = several.get();
    const int before = countOpenDescriptors();
    ASSERT_EQ(NO_ERROR, wrappedQueue(input));
    EXPECT_EQ(before + 1, countOpenDescriptors());
    ASSERT_EQ(NO_ERROR, acquire());
    eventfd_write(first.get(), 1);
    EXPECT_EQ(NO_ERROR, item.mFence->wait(0));
}

TEST_F(ProducerWrapperTest, AFenceThatIsNoDescriptorIsRefused) {
    connectClient();
    prepareSlot();
    const BorrowingHandle closed({999});
    HInput input = goodInput();
    input.fence = closed.get();
    EXPECT_EQ(BAD_VALUE, wrappedQueue(input));
    EXPECT_EQ(BAD_VALUE, static_cast<int32_t>(wrapper->cancelBuffer(slot, closed.get())));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->cancelBuffer(slot, hidl_handle())));
    EXPECT_EQ(BAD_VALUE, static_cast<int32_t>(wrapper->cancelBuffer(64, hidl_handle())));
}

TEST_F(ProducerWrapperTest, FencesAndStreamsWithCountsNoHandleHasAreRefused) {
    connectClient();
    prepareSlot();
    const BorrowingHandle handle({}, 1);
    for (int count : {-1, 1025, INT_MAX, INT_MIN}) {
        handle.get()->numFds = count;
        EXPECT_EQ(BAD_VALUE, static_cast<int32_t>(wrapper->cancelBuffer(slot, handle.get())));
        EXPECT_EQ(BAD_VALUE, static_cast<int32_t>(wrapper->setSidebandStream(handle.get())));
    }
    handle.get()->numFds = 0;
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->cancelBuffer(slot, handle.get())));
}

TEST_F(ProducerWrapperTest, DescriptorsBelowTwoAreNoFencesOfTheServer) {
    connectClient();
    prepareSlot();
    const unique_fd event = makeEvent();
    const BorrowingHandle handle({event.get()});
    const DescriptorZero zero;
    // The duplicate that the server makes becomes descriptor 0.
    ASSERT_EQ(-1, fcntl(STDIN_FILENO, F_GETFD));
    ASSERT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->cancelBuffer(slot, handle.get())));
    ASSERT_EQ(NO_ERROR, dequeue());
    EXPECT_FALSE(fence->isValid());
    EXPECT_EQ(-1, fcntl(STDIN_FILENO, F_GETFD));
    // Outgoing, it is a handle without a descriptor.
    sp<Fence> low = new Fence(fcntl(event.get(), F_DUPFD_CLOEXEC, 0));
    ASSERT_EQ(STDIN_FILENO, low->get());
    ASSERT_EQ(NO_ERROR, producer->cancelBuffer(slot, low));
    ASSERT_EQ(NO_ERROR, wrappedDequeue());
    EXPECT_EQ(0, fenceFds);
    // That of a frame counts nevertheless.
    low.clear();
    HInput input = goodInput();
    input.fence = handle.get();
    ASSERT_EQ(NO_ERROR, wrappedQueue(input));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(STDIN_FILENO, item.mFence->get());
    // Before its number is given back.
    item = BufferItem();
    ASSERT_EQ(NO_ERROR, producer->disconnect(NATIVE_WINDOW_API_CPU));
}

}  // namespace
}  // namespace korvane::test
