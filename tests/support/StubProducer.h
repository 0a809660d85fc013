// SPDX-License-Identifier: Apache-2.0
// The simplest producer end of a buffer queue, for tests of the HIDL runtime.
#pragma once

#include <cstdint>

#include <android/hardware/graphics/bufferqueue/1.0/IGraphicBufferProducer.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

namespace korvane::test {

/** Answers every call with zeros. */
class StubProducer
    : public ::android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer {
  public:
    using AnwBuffer = ::android::hardware::media::V1_0::AnwBuffer;
    using PixelFormat = ::android::hardware::graphics::common::V1_0::PixelFormat;
    using Listener =
            ::android::sp<::android::hardware::graphics::bufferqueue::V1_0::IProducerListener>;
    using hidl_handle = ::android::hardware::hidl_handle;
    template <typename T>
    using Return = ::android::hardware::Return<T>;

    Return<void> requestBuffer(int32_t, requestBuffer_cb reply) override {
        return done([&] { reply(0, AnwBuffer{}); });
    }
    Return<int32_t> setMaxDequeuedBufferCount(int32_t) override { return 0; }
    Return<int32_t> setAsyncMode(bool) override { return 0; }
    Return<void> dequeueBuffer(uint32_t, uint32_t, PixelFormat, uint32_t, bool,
                               dequeueBuffer_cb reply) override {
        return done([&] { reply(0, 0, hidl_handle(), FrameEventHistoryDelta{}); });
    }
    Return<int32_t> detachBuffer(int32_t) override { return 0; }
    Return<void> detachNextBuffer(detachNextBuffer_cb reply) override {
        return done([&] { reply(0, AnwBuffer{}, hidl_handle()); });
    }
    Return<void> attachBuffer(const AnwBuffer&, attachBuffer_cb reply) override {
        return done([&] { reply(0, 0); });
    }
    Return<void> queueBuffer(int32_t, const QueueBufferInput&, queueBuffer_cb reply) override {
        return done([&] { reply(0, QueueBufferOutput{}); });
    }
    Return<int32_t> cancelBuffer(int32_t, const hidl_handle&) override { return 0; }
    Return<void> query(int32_t, query_cb reply) override {
        return done([&] { reply(0, 0); });
    }
    Return<void> connect(const Listener&, int32_t, bool, connect_cb reply) override {
        return done([&] { reply(0, QueueBufferOutput{}); });
    }
    Return<int32_t> disconnect(int32_t, DisconnectMode) override { return 0; }
    Return<int32_t> setSidebandStream(const hidl_handle&) override { return 0; }
    Return<void> allocateBuffers(uint32_t, uint32_t, PixelFormat, uint32_t) override {
        return ::android::hardware::Void();
    }
    Return<int32_t> allowAllocation(bool) override { return 0; }
    Return<int32_t> setGenerationNumber(uint32_t) override { return 0; }
    Return<void> getConsumerName(getConsumerName_cb reply) override {
        return done([&] { reply(""); });
    }
    Return<int32_t> setSharedBufferMode(bool) override { return 0; }
    Return<int32_t> setAutoRefresh(bool) override { return 0; }
    Return<int32_t> setDequeueTimeout(int64_t) override { return 0; }
    Return<void> getLastQueuedBuffer(getLastQueuedBuffer_cb reply) override {
        return done([&] { reply(0, AnwBuffer{}, hidl_handle(), {}); });
    }
    Return<void> getFrameTimestamps(getFrameTimestamps_cb reply) override {
        return done([&] { reply(FrameEventHistoryDelta{}); });
    }
    Return<void> getUniqueId(getUniqueId_cb reply) override {
        return done([&] { reply(0, 0); });
    }

  private:
    template <typename Reply>
    static Return<void> done(const Reply& reply) {
        reply();
        return ::android::hardware::Void();
    }
};

}  // namespace korvane::test
