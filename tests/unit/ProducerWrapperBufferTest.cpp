// SPDX-License-Identifier: Apache-2.0
// The producer of a buffer queue as HIDL clients see it: their own buffers, settings and queries.
#include <climits>
#include <string>
#include <vector>

#include <fcntl.h>

#include <gtest/gtest.h>

#include "support/ProducerWrapperTest.h"

namespace korvane::test {
namespace {

class ProducerWrapperBufferTest : public ProducerWrapperTest {
  protected:
    /** The status and the buffer's width, 0 without a handle. */
    std::pair<int32_t, uint32_t> wrappedDetachNext() {
        std::pair<int32_t, uint32_t> result = {1000, 1000};
        wrapper->detachNextBuffer(
                [&](int32_t status, const AnwBuffer& anw, const hidl_handle& handle) {
                    result = {status, anw.nativeHandle == nullptr ? 0 : anw.attr.width};
                    fenceFds = handle.getNativeHandle() == nullptr ? -1 : handle->numFds;
                });
        return result;
    }

    void expectRefused(const AnwBuffer& anw) {
        const int before = countOpenDescriptors();
        EXPECT_EQ(BAD_VALUE, wrappedAttach(anw));
        EXPECT_EQ(-1, slot);
        EXPECT_EQ(before, countOpenDescriptors());
    }
};

TEST_F(ProducerWrapperBufferTest, AttachImportsTheClientsBuffer) {
    connectClient();
    const AnwBuffer anw = wrapBuffer(foreignBuffer());
    ASSERT_EQ(NO_ERROR, wrappedAttach(anw));
    EXPECT_EQ(0, slot);
    ASSERT_EQ(NO_ERROR, wrappedQueue(goodInput()));
    ASSERT_EQ(NO_ERROR, acquire());
    ASSERT_NE(nullptr, item.mGraphicBuffer);
    EXPECT_EQ(sent->getId(), item.mGraphicBuffer->getId());
    EXPECT_NE(sent, item.mGraphicBuffer);
    void* theirs = nullptr;
    void* ours = nullptr;
    ASSERT_EQ(NO_ERROR, sent->lock(kCpuUsage, &theirs));
    ASSERT_EQ(NO_ERROR, item.mGraphicBuffer->lock(kCpuUsage, &ours));
    *static_cast<uint32_t*>(theirs) = 0xdeadbeef;
    EXPECT_EQ(0xdeadbeefu, *static_cast<uint32_t*>(ours));
}

TEST_F(ProducerWrapperBufferTest, AttachGivesTheQueuesRefusals) {
    connectClient();
    EXPECT_EQ(BAD_VALUE, wrappedAttach(wrapBuffer(foreignBuffer(3))));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setGenerationNumber(3)));
    EXPECT_EQ(NO_ERROR, wrappedAttach(wrapBuffer(foreignBuffer(3))));
    EXPECT_EQ(NO_ERROR, wrappedAttach(wrapBuffer(foreignBuffer(3))));
    EXPECT_EQ(TIMED_OUT, wrappedAttach(wrapBuffer(foreignBuffer(3))));
}

TEST_F(ProducerWrapperBufferTest, AttachRefusesHandlesThatAreNoBuffers) {
    connectClient();
    const unique_fd event = makeEvent();
    AnwBuffer anw = wrapBuffer(foreignBuffer());
    const BorrowingHandle other({event.get()}, 11);
    anw.nativeHandle = other.get();
    expectRefused(anw);
    const BorrowingHandle numbers({}, 11);
    anw.nativeHandle = numbers.get();
    expectRefused(anw);
    const BorrowingHandle closed({999}, 11);
    anw.nativeHandle = closed.get();
    expectRefused(anw);
}

TEST_F(ProducerWrapperBufferTest, AttachRefusesHandlesWithCountsNoHandleHas) {
    connectClient();
    AnwBuffer anw = wrapBuffer(foreignBuffer());
    const BorrowingHandle handle({}, 1);
    anw.nativeHandle = handle.get();
    for (int count : {-1, 1025, INT_MAX, INT_MIN}) {
        handle.get()->numFds = count;
        handle.get()->numInts = 1;
        expectRefused(anw);
        handle.get()->numFds = 0;
        handle.get()->numInts = count;
        expectRefused(anw);
    }
    handle.get()->numInts = 1;
    handle.get()->version = 0;
    expectRefused(anw);
    handle.get()->version = sizeof(native_handle_t);
}

TEST_F(ProducerWrapperBufferTest, AttachRefusesAttributesThatAreNotTheHandles) {
    connectClient();
    const AnwBuffer good = wrapBuffer(foreignBuffer());
    AnwBuffer anw = good;
    anw.attr.width = UINT32_MAX;
    expectRefused(anw);
    anw = good;
    anw.attr.stride = 2;
    expectRefused(anw);
    anw = good;
    anw.attr.layerCount = uint64_t{1} << 32 | 1;
    expectRefused(anw);
    anw = good;
    anw.attr.format = static_cast<HFormat>(HAL_PIXEL_FORMAT_BLOB);
    expectRefused(anw);
}

TEST_F(ProducerWrapperBufferTest, AttachRefusesMemoryThatTheClientCouldTakeAway) {
    connectClient();
    AnwBuffer anw = wrapBuffer(foreignBuffer());
    const OwnedHandle unsealed = withMemory(sent->handle, makeMemory(4096, 0));
    anw.nativeHandle = unsealed.get();
    expectRefused(anw);
    const OwnedHandle small = withMemory(sent->handle, makeMemory(3, F_SEAL_SHRINK));
    anw.nativeHandle = small.get();
    expectRefused(anw);
}

TEST_F(ProducerWrapperBufferTest, AttachTakesAnEmptyBuffer) {
    connectClient();
    const AnwBuffer empty = {};
    ASSERT_EQ(NO_ERROR, wrappedAttach(empty));
    ASSERT_EQ(NO_ERROR, wrappedQueue(goodInput()));
    ASSERT_EQ(NO_ERROR, acquire());
    void* address = nullptr;
    EXPECT_NE(NO_ERROR, item.mGraphicBuffer->lock(kCpuUsage, &address));
    EXPECT_EQ(nullptr, address);
}

TEST_F(ProducerWrapperBufferTest, TheHighestUsageBitStandsForAllAbove) {
    connectClient();
    AnwBuffer anw = wrapBuffer(foreignBuffer());
    anw.attr.usage |= 0x80000000;
    ASSERT_EQ(NO_ERROR, wrappedAttach(anw));
    ASSERT_EQ(NO_ERROR, wrappedQueue(goodInput()));
    ASSERT_EQ(NO_ERROR, acquire());
    EXPECT_EQ(0xffffffff80000000 | kCpuUsage, item.mGraphicBuffer->getUsage());
}

TEST_F(ProducerWrapperBufferTest, DetachTakesBuffersAway) {
    connectClient();
    EXPECT_EQ(BAD_VALUE, static_cast<int32_t>(wrapper->detachBuffer(0)));
    prepareSlot();
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->detachBuffer(slot)));
    EXPECT_EQ((std::pair<int32_t, uint32_t>{NO_MEMORY, 0}), wrappedDetachNext());
    consumer->setDefaultBufferSize(64, 32);
    prepareSlot();
    const unique_fd event = makeEvent();
    const BorrowingHandle handle({event.get()});
    ASSERT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->cancelBuffer(slot, handle.get())));
    EXPECT_EQ((std::pair<int32_t, uint32_t>{NO_ERROR, 64}), wrappedDetachNext());
    EXPECT_EQ(1, fenceFds);
}

TEST_F(ProducerWrapperBufferTest, SettingsGoToTheQueue) {
    connectClient();
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setMaxDequeuedBufferCount(3)));
    EXPECT_EQ(BAD_VALUE, static_cast<int32_t>(wrapper->setMaxDequeuedBufferCount(INT_MAX)));
    EXPECT_EQ(BAD_VALUE, static_cast<int32_t>(wrapper->setMaxDequeuedBufferCount(INT_MIN)));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setAsyncMode(true)));
    EXPECT_EQ(2, query(NATIVE_WINDOW_MIN_UNDEQUEUED_BUFFERS));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setAutoRefresh(true)));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setSharedBufferMode(false)));
    EXPECT_EQ(INVALID_OPERATION, static_cast<int32_t>(wrapper->setSharedBufferMode(true)));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setDequeueTimeout(INT64_MIN)));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setDequeueTimeout(0)));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->allowAllocation(false)));
    EXPECT_EQ(WOULD_BLOCK, wrappedDequeue());
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->allowAllocation(true)));
    wrapper->allocateBuffers(16, 16, static_cast<HFormat>(HAL_PIXEL_FORMAT_BLOB), kCpuUsage);
    wrapper->allocateBuffers(16, 1, static_cast<HFormat>(HAL_PIXEL_FORMAT_BLOB), kCpuUsage);
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->allowAllocation(false)));
    EXPECT_EQ(kNeedsRequest, dequeue(16, 1, HAL_PIXEL_FORMAT_BLOB));
}

TEST_F(ProducerWrapperBufferTest, QueriesGoToTheQueue) {
    consumer->setDefaultBufferSize(64, 32);
    const auto ask = [&](int32_t key) {
        std::pair<int32_t, int32_t> answer = {1000, 1000};
        wrapper->query(key, [&](int32_t status, int32_t value) { answer = {status, value}; });
        return answer;
    };
    EXPECT_EQ((std::pair<int32_t, int32_t>{NO_ERROR, 64}), ask(NATIVE_WINDOW_WIDTH));
    EXPECT_EQ((std::pair<int32_t, int32_t>{BAD_VALUE, 0}), ask(NATIVE_WINDOW_CONCRETE_TYPE));
    EXPECT_EQ((std::pair<int32_t, int32_t>{BAD_VALUE, 0}), ask(INT_MIN));
}

TEST_F(ProducerWrapperBufferTest, NamesAndIdsAreTheQueues) {
    connectClient();
    consumer->setConsumerName(String8("webcam"));
    ASSERT_EQ(kNeedsRequest, wrappedDequeue());
    std::string name;
    wrapper->getConsumerName([&](const hidl_string& told) { name = told; });
    EXPECT_EQ("webcam", name);
    uint64_t expected = 0;
    ASSERT_EQ(NO_ERROR, producer->getUniqueId(&expected));
    uint64_t id = ~expected;
    int32_t result = 1000;
    wrapper->getUniqueId([&](int32_t status, uint64_t told) {
        result = status;
        id = told;
    });
    EXPECT_EQ(NO_ERROR, result);
    EXPECT_EQ(expected, id);
}

TEST_F(ProducerWrapperBufferTest, TimesComeFromTheConsumer) {
    connectClient();
    int64_t latency = -1;
    wrapper->getFrameTimestamps(
            [&](const HDelta& delta) { latency = delta.compositorTiming.presentLatencyNs; });
    EXPECT_EQ(3, latency);
}

TEST_F(ProducerWrapperBufferTest, TheLastQueuedFrameIsKnown) {
    connectClient();
    uint32_t width = 1000;
    std::vector<float> matrix;
    const auto ask = [&] {
        int32_t result = 1000;
        wrapper->getLastQueuedBuffer([&](int32_t status, const AnwBuffer& anw,
                                         const hidl_handle& handle,
                                         const hidl_array<float, 16>& told) {
            result = status;
            width = anw.attr.width;
            fenceFds = handle.getNativeHandle() == nullptr ? -1 : handle->numFds;
            matrix.assign(told.data(), told.data() + 16);
        });
        return result;
    };
    EXPECT_EQ(NO_ERROR, ask());
    EXPECT_EQ(0u, width);
    EXPECT_EQ(-1, fenceFds);
    EXPECT_EQ(std::vector<float>(16, 0), matrix);
    consumer->setDefaultBufferSize(64, 32);
    prepareSlot();
    const unique_fd event = makeEvent();
    const BorrowingHandle handle({event.get()});
    HInput input = goodInput();
    input.fence = handle.get();
    ASSERT_EQ(NO_ERROR, wrappedQueue(input));
    EXPECT_EQ(NO_ERROR, ask());
    EXPECT_EQ(64u, width);
    EXPECT_EQ(1, fenceFds);
    EXPECT_EQ((std::vector<float>{1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0, 0, 1, 0, 1}), matrix);
}

TEST_F(ProducerWrapperBufferTest, EveryReplyComesOnceAndBeforeTheCallReturns) {
    int replies = 0;
    const auto count = [&](auto&&...) { ++replies; };
    ASSERT_EQ(NO_ERROR, connectConsumer());
    // Of each call that has one, refused and granted.
    for (int round : {1, 2}) {
        replies = 0;
        wrapper->dequeueBuffer(0, 0, kDefaultFormat, kCpuUsage, true, count);
        wrapper->requestBuffer(0, count);
        wrapper->queueBuffer(0, goodInput(), count);
        wrapper->attachBuffer(wrapBuffer(foreignBuffer()), count);
        wrapper->detachNextBuffer(count);
        wrapper->query(NATIVE_WINDOW_WIDTH, count);
        wrapper->connect(nullptr, NATIVE_WINDOW_API_CPU, false, count);
        wrapper->getConsumerName(count);
        wrapper->getLastQueuedBuffer(count);
        wrapper->getFrameTimestamps(count);
        wrapper->getUniqueId(count);
        EXPECT_EQ(11, replies) << round;
    }
}

TEST_F(ProducerWrapperBufferTest, TheSidebandStreamIsACopy) {
    connectClient();
    const unique_fd event = makeEvent();
    const BorrowingHandle handle({event.get()}, 2);
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setSidebandStream(handle.get())));
    sp<NativeHandle> stream;
    ASSERT_EQ(NO_ERROR, consumer->getSidebandStream(&stream));
    ASSERT_NE(nullptr, stream);
    EXPECT_NE(event.get(), stream->handle()->data[0]);
    EXPECT_NE(-1, fcntl(stream->handle()->data[0], F_GETFD));
    const BorrowingHandle closed({999});
    EXPECT_EQ(BAD_VALUE, static_cast<int32_t>(wrapper->setSidebandStream(closed.get())));
    EXPECT_EQ(NO_ERROR, static_cast<int32_t>(wrapper->setSidebandStream(hidl_handle())));
    ASSERT_EQ(NO_ERROR, consumer->getSidebandStream(&stream));
    EXPECT_EQ(nullptr, stream);
}

}  // namespace
}  // namespace korvane::test
