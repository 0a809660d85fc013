// SPDX-License-Identifier: Apache-2.0
// Offers a native buffer queue's producer to HIDL clients.
#pragma once

#include <cstdint>
#include <type_traits>

#include <gui/IGraphicBufferProducer.h>
#include <gui/bufferqueue/1.0/Conversion.h>
#include <gui/bufferqueue/1.0/WatchedProducerListener.h>
#include <hidl/Status.h>
#include <utils/NativeHandle.h>
#include <utils/StrongPointer.h>

namespace android {

/**
 * Every method converts, calls the native producer and returns its status unchanged. The client may
 * be anybody: arguments that don't convert are answered with BAD_VALUE and go no further. A client
 * that has connected with a listener and dies is disconnected.
 *
 * Each result callback runs exactly once, on the calling thread, before the method returns. Handles
 * passed to it are borrowed and valid only inside it.
 */
template <typename BASE, typename = typename std::enable_if<
                                 std::is_base_of<HGraphicBufferProducer, BASE>::value>::type>
struct TWGraphicBufferProducer : public BASE {
    explicit TWGraphicBufferProducer(const sp<BGraphicBufferProducer>& base) : mBase(base) {}

    using hidl_handle = ::android::hardware::hidl_handle;
    using PixelFormat = ::android::hardware::graphics::common::V1_0::PixelFormat;
    using AnwBuffer = ::android::hardware::media::V1_0::AnwBuffer;
    template <typename T>
    using Return = ::android::hardware::Return<T>;

    Return<void> requestBuffer(int32_t slot,
                               HGraphicBufferProducer::requestBuffer_cb _hidl_cb) override {
        sp<GraphicBuffer> buffer;
        const status_t status = mBase->requestBuffer(slot, &buffer);
        AnwBuffer result = {};
        if (buffer != nullptr) conversion::wrapAs(&result, *buffer);
        _hidl_cb(status, result);
        return ::android::hardware::Void();
    }

    Return<int32_t> setMaxDequeuedBufferCount(int32_t maxDequeuedBuffers) override {
        return mBase->setMaxDequeuedBufferCount(maxDequeuedBuffers);
    }

    Return<int32_t> setAsyncMode(bool async) override { return mBase->setAsyncMode(async); }

    Return<void> dequeueBuffer(uint32_t width, uint32_t height, PixelFormat format, uint32_t usage,
                               bool getFrameTimestamps,
                               HGraphicBufferProducer::dequeueBuffer_cb _hidl_cb) override {
        int slot = 0;
        sp<Fence> fence;
        FrameEventHistoryDelta timestamps;
        const status_t status = mBase->dequeueBuffer(
                &slot, &fence, width, height, static_cast<::android::PixelFormat>(format), usage,
                nullptr, getFrameTimestamps ? &timestamps : nullptr);
        hidl_handle handle;
        HGraphicBufferProducer::FrameEventHistoryDelta delta = {};
        conversion::BorrowedHandle borrowed;
        if (fence != nullptr) {
            borrowed = conversion::wrapAs(&handle, *fence, conversion::FenceSide::SERVER);
            if (getFrameTimestamps) conversion::wrapAs(&delta, timestamps);
        }
        _hidl_cb(status, slot, handle, delta);
        return ::android::hardware::Void();
    }

    Return<int32_t> detachBuffer(int32_t slot) override { return mBase->detachBuffer(slot); }

    Return<void> detachNextBuffer(HGraphicBufferProducer::detachNextBuffer_cb _hidl_cb) override {
        sp<GraphicBuffer> buffer;
        sp<Fence> fence;
        const status_t status = mBase->detachNextBuffer(&buffer, &fence);
        giveBuffer(buffer, fence, [&](const AnwBuffer& anw, const hidl_handle& handle) {
            _hidl_cb(status, anw, handle);
        });
        return ::android::hardware::Void();
    }

    Return<void> attachBuffer(const AnwBuffer& buffer,
                              HGraphicBufferProducer::attachBuffer_cb _hidl_cb) override {
        int slot = -1;
        sp<GraphicBuffer> native = new GraphicBuffer();
        status_t status = BAD_VALUE;
        if (conversion::convertTo(native.get(), buffer)) {
            status = mBase->attachBuffer(&slot, native);
        }
        _hidl_cb(status, slot);
        return ::android::hardware::Void();
    }

    Return<void> queueBuffer(int32_t slot, const HGraphicBufferProducer::QueueBufferInput& input,
                             HGraphicBufferProducer::queueBuffer_cb _hidl_cb) override {
        HGraphicBufferProducer::QueueBufferOutput result = {};
        BGraphicBufferProducer::QueueBufferInput nativeInput;
        status_t status = BAD_VALUE;
        if (conversion::convertTo(&nativeInput, input)) {
            BGraphicBufferProducer::QueueBufferOutput nativeOutput;
            status = mBase->queueBuffer(slot, nativeInput, &nativeOutput);
            conversion::wrapAs(&result, nativeOutput);
        }
        _hidl_cb(status, result);
        return ::android::hardware::Void();
    }

    Return<int32_t> cancelBuffer(int32_t slot, const hidl_handle& fence) override {
        sp<Fence> native;
        if (!conversion::convertTo(&native, fence, conversion::FenceSide::SERVER)) {
            return static_cast<int32_t>(BAD_VALUE);
        }
        return mBase->cancelBuffer(slot, native);
    }

    Return<void> query(int32_t what, HGraphicBufferProducer::query_cb _hidl_cb) override {
        int value = 0;
        const int result = mBase->query(what, &value);
        _hidl_cb(result, value);
        return ::android::hardware::Void();
    }

    Return<void> connect(const sp<HProducerListener>& listener, int32_t api,
                         bool producerControlledByApp,
                         HGraphicBufferProducer::connect_cb _hidl_cb) override {
        sp<WatchedProducerListener> native;
        if (listener != nullptr) native = new WatchedProducerListener(mBase, listener);
        BGraphicBufferProducer::QueueBufferOutput nativeOutput;
        status_t status = mBase->connect(native, api, producerControlledByApp, &nativeOutput);
        if (status == OK && native != nullptr) {
            native->ask();
            if (!native->watch()) {
                mBase->disconnectListener(native);
                status = DEAD_OBJECT;
            }
        }
        HGraphicBufferProducer::QueueBufferOutput result = {};
        conversion::wrapAs(&result, nativeOutput);
        _hidl_cb(status, result);
        return ::android::hardware::Void();
    }

    Return<int32_t> disconnect(int32_t api, HGraphicBufferProducer::DisconnectMode mode) override {
        const bool local = mode == HGraphicBufferProducer::DisconnectMode::ALL_LOCAL;
        return mBase->disconnect(api, local ? BGraphicBufferProducer::DisconnectMode::AllLocal
                                            : BGraphicBufferProducer::DisconnectMode::Api);
    }

    Return<int32_t> setSidebandStream(const hidl_handle& stream) override {
        sp<NativeHandle> native;
        if (!conversion::convertTo(&native, stream)) return static_cast<int32_t>(BAD_VALUE);
        return mBase->setSidebandStream(native);
    }

    Return<void> allocateBuffers(uint32_t width, uint32_t height, PixelFormat format,
                                 uint32_t usage) override {
        mBase->allocateBuffers(width, height, static_cast<::android::PixelFormat>(format), usage);
        return ::android::hardware::Void();
    }

    Return<int32_t> allowAllocation(bool allow) override { return mBase->allowAllocation(allow); }

    Return<int32_t> setGenerationNumber(uint32_t generationNumber) override {
        return mBase->setGenerationNumber(generationNumber);
    }

    Return<void> getConsumerName(HGraphicBufferProducer::getConsumerName_cb _hidl_cb) override {
        _hidl_cb(mBase->getConsumerName().c_str());
        return ::android::hardware::Void();
    }

    Return<int32_t> setSharedBufferMode(bool sharedBufferMode) override {
        return mBase->setSharedBufferMode(sharedBufferMode);
    }

    Return<int32_t> setAutoRefresh(bool autoRefresh) override {
        return mBase->setAutoRefresh(autoRefresh);
    }

    Return<int32_t> setDequeueTimeout(int64_t timeoutNs) override {
        return mBase->setDequeueTimeout(timeoutNs);
    }

    Return<void> getLastQueuedBuffer(
            HGraphicBufferProducer::getLastQueuedBuffer_cb _hidl_cb) override {
        sp<GraphicBuffer> buffer;
        sp<Fence> fence;
        float matrix[16] = {};
        const status_t status = mBase->getLastQueuedBuffer(&buffer, &fence, matrix);
        giveBuffer(buffer, fence, [&](const AnwBuffer& anw, const hidl_handle& handle) {
            _hidl_cb(status, anw, handle, ::android::hardware::hidl_array<float, 16>(matrix));
        });
        return ::android::hardware::Void();
    }

    Return<void> getFrameTimestamps(
            HGraphicBufferProducer::getFrameTimestamps_cb _hidl_cb) override {
        FrameEventHistoryDelta native;
        mBase->getFrameTimestamps(&native);
        HGraphicBufferProducer::FrameEventHistoryDelta result = {};
        conversion::wrapAs(&result, native);
        _hidl_cb(result);
        return ::android::hardware::Void();
    }

    Return<void> getUniqueId(HGraphicBufferProducer::getUniqueId_cb _hidl_cb) override {
        uint64_t id = 0;
        const status_t status = mBase->getUniqueId(&id);
        _hidl_cb(status, id);
        return ::android::hardware::Void();
    }

  private:
    /** Without a buffer there is no fence either. */
    template <typename Receiver>
    static void giveBuffer(const sp<GraphicBuffer>& buffer, const sp<Fence>& fence,
                           const Receiver& receiver) {
        AnwBuffer anw = {};
        hidl_handle handle;
        conversion::BorrowedHandle borrowed;
        if (buffer != nullptr) {
            conversion::wrapAs(&anw, *buffer);
            if (fence != nullptr) {
                borrowed = conversion::wrapAs(&handle, *fence, conversion::FenceSide::SERVER);
            }
        }
        receiver(anw, handle);
    }

    const sp<BGraphicBufferProducer> mBase;
};

}  // namespace android
