// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "H2BGraphicBufferProducer"

#include "gui/bufferqueue/1.0/H2BGraphicBufferProducer.h"

#include <algorithm>

#include <gui/bufferqueue/1.0/B2HProducerListener.h>
#include <hidl/Status.h>
#include <log/log.h>
#include <system/window.h>

namespace android {
namespace hardware {
namespace graphics {
namespace bufferqueue {
namespace V1_0 {
namespace utils {
namespace {

using common::V1_0::PixelFormat;
using conversion::BorrowedHandle;
using conversion::convertTo;
using conversion::FenceSide;
using conversion::wrapAs;
using media::V1_0::AnwBuffer;

/** The status of a call that has no result, or whose result came through its callback. */
status_t statusOf(const Return<void>& result, status_t status) {
    if (result.isOk()) return status;
    return result.isDeadObject() ? DEAD_OBJECT : UNKNOWN_ERROR;
}

status_t statusOf(const Return<int32_t>& result) {
    if (result.isOk()) return static_cast<int32_t>(result);
    return result.isDeadObject() ? DEAD_OBJECT : UNKNOWN_ERROR;
}

/** A result that didn't convert spoils a success, but not a success that carries flags. */
status_t spoil(status_t status, bool converted) {
    return status == OK && !converted ? BAD_VALUE : status;
}

}  // namespace

status_t H2BGraphicBufferProducer::requestBuffer(int slot, sp<GraphicBuffer>* buf) {
    *buf = new GraphicBuffer();
    status_t status = UNKNOWN_ERROR;
    const Return<void> result =
            mBase->requestBuffer(slot, [&](int32_t called, const AnwBuffer& buffer) {
                const bool converted = convertTo(buf->get(), buffer);
                status = spoil(called, converted);
            });
    return statusOf(result, status);
}

status_t H2BGraphicBufferProducer::setMaxDequeuedBufferCount(int maxDequeuedBuffers) {
    return statusOf(mBase->setMaxDequeuedBufferCount(maxDequeuedBuffers));
}

status_t H2BGraphicBufferProducer::setAsyncMode(bool async) {
    return statusOf(mBase->setAsyncMode(async));
}

status_t H2BGraphicBufferProducer::dequeueBuffer(int* slot, sp<Fence>* fence, uint32_t width,
                                                 uint32_t height, ::android::PixelFormat format,
                                                 uint64_t usage, uint64_t* outBufferAge,
                                                 FrameEventHistoryDelta* outTimestamps) {
    *fence = new Fence();
    if (outBufferAge != nullptr) *outBufferAge = 0;
    status_t status = UNKNOWN_ERROR;
    const Return<void> result = mBase->dequeueBuffer(
            width, height, static_cast<PixelFormat>(format), static_cast<uint32_t>(usage),
            outTimestamps != nullptr,
            [&](int32_t called, int32_t calledSlot, const hidl_handle& calledFence,
                const HGraphicBufferProducer::FrameEventHistoryDelta& timestamps) {
                *slot = calledSlot;
                const bool converted = convertTo(fence, calledFence, FenceSide::CLIENT);
                if (outTimestamps != nullptr) convertTo(outTimestamps, timestamps);
                status = spoil(called, converted);
            });
    return statusOf(result, status);
}

status_t H2BGraphicBufferProducer::detachBuffer(int slot) {
    return statusOf(mBase->detachBuffer(slot));
}

status_t H2BGraphicBufferProducer::detachNextBuffer(sp<GraphicBuffer>* outBuffer,
                                                    sp<Fence>* outFence) {
    if (outBuffer == nullptr || outFence == nullptr) return BAD_VALUE;
    *outBuffer = new GraphicBuffer();
    *outFence = new Fence();
    status_t status = UNKNOWN_ERROR;
    const Return<void> result = mBase->detachNextBuffer(
            [&](int32_t called, const AnwBuffer& buffer, const hidl_handle& fence) {
                const bool converted = convertTo(outBuffer->get(), buffer) &&
                                       convertTo(outFence, fence, FenceSide::CLIENT);
                status = spoil(called, converted);
            });
    return statusOf(result, status);
}

status_t H2BGraphicBufferProducer::attachBuffer(int* outSlot, const sp<GraphicBuffer>& buffer) {
    if (outSlot == nullptr || buffer == nullptr) return BAD_VALUE;
    AnwBuffer wrapped = {};
    wrapAs(&wrapped, *buffer);
    status_t status = UNKNOWN_ERROR;
    const Return<void> result =
            mBase->attachBuffer(wrapped, [&](int32_t called, int32_t calledSlot) {
                if (called == OK) *outSlot = calledSlot;
                status = called;
            });
    return statusOf(result, status);
}

status_t H2BGraphicBufferProducer::queueBuffer(int slot, const QueueBufferInput& input,
                                               QueueBufferOutput* output) {
    HGraphicBufferProducer::QueueBufferInput wrapped = {};
    const BorrowedHandle fence = wrapAs(&wrapped, input);
    status_t status = UNKNOWN_ERROR;
    const Return<void> result = mBase->queueBuffer(
            slot, wrapped,
            [&](int32_t called, const HGraphicBufferProducer::QueueBufferOutput& calledOutput) {
                convertTo(output, calledOutput);
                status = called;
            });
    return statusOf(result, status);
}

status_t H2BGraphicBufferProducer::cancelBuffer(int slot, const sp<Fence>& fence) {
    if (fence == nullptr) return BAD_VALUE;
    hidl_handle handle;
    const BorrowedHandle borrowed = wrapAs(&handle, *fence, FenceSide::CLIENT);
    return statusOf(mBase->cancelBuffer(slot, handle));
}

int H2BGraphicBufferProducer::query(int what, int* value) {
    if (value == nullptr) return BAD_VALUE;
    status_t status = UNKNOWN_ERROR;
    const Return<void> result = mBase->query(what, [&](int32_t called, int32_t calledValue) {
        if (called == OK) *value = calledValue;
        status = called;
    });
    return statusOf(result, status);
}

status_t H2BGraphicBufferProducer::connect(const sp<BProducerListener>& listener, int api,
                                           bool producerControlledByApp,
                                           QueueBufferOutput* output) {
    if (output == nullptr) return BAD_VALUE;
    sp<HProducerListener> wrapped;
    if (listener != nullptr) wrapped = new B2HProducerListener(listener);
    status_t status = UNKNOWN_ERROR;
    const Return<void> result = mBase->connect(
            wrapped, api, producerControlledByApp,
            [&](int32_t called, const HGraphicBufferProducer::QueueBufferOutput& calledOutput) {
                convertTo(output, calledOutput);
                status = called;
            });
    return statusOf(result, status);
}

status_t H2BGraphicBufferProducer::disconnect(int api, DisconnectMode mode) {
    return statusOf(
            mBase->disconnect(api, mode == DisconnectMode::AllLocal
                                           ? HGraphicBufferProducer::DisconnectMode::ALL_LOCAL
                                           : HGraphicBufferProducer::DisconnectMode::API));
}

status_t H2BGraphicBufferProducer::setSidebandStream(const sp<NativeHandle>& stream) {
    hidl_handle handle;
    if (stream != nullptr) handle = stream->handle();
    return statusOf(mBase->setSidebandStream(handle));
}

void H2BGraphicBufferProducer::allocateBuffers(uint32_t width, uint32_t height,
                                               ::android::PixelFormat format, uint64_t usage) {
    const Return<void> result = mBase->allocateBuffers(
            width, height, static_cast<PixelFormat>(format), static_cast<uint32_t>(usage));
    if (!result.isOk()) ALOGW("allocateBuffers: %s", result.description().c_str());
}

status_t H2BGraphicBufferProducer::allowAllocation(bool allow) {
    return statusOf(mBase->allowAllocation(allow));
}

status_t H2BGraphicBufferProducer::setGenerationNumber(uint32_t generationNumber) {
    return statusOf(mBase->setGenerationNumber(generationNumber));
}

String8 H2BGraphicBufferProducer::getConsumerName() const {
    String8 name;
    const Return<void> result = mBase->getConsumerName(
            [&](const hidl_string& called) { name = String8(called.c_str()); });
    if (!result.isOk()) ALOGW("getConsumerName: %s", result.description().c_str());
    return name;
}

status_t H2BGraphicBufferProducer::setSharedBufferMode(bool sharedBufferMode) {
    return statusOf(mBase->setSharedBufferMode(sharedBufferMode));
}

status_t H2BGraphicBufferProducer::setAutoRefresh(bool autoRefresh) {
    return statusOf(mBase->setAutoRefresh(autoRefresh));
}

status_t H2BGraphicBufferProducer::setDequeueTimeout(nsecs_t timeout) {
    return statusOf(mBase->setDequeueTimeout(timeout));
}

status_t H2BGraphicBufferProducer::getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer,
                                                       sp<Fence>* outFence,
                                                       float outTransformMatrix[16]) {
    *outBuffer = new GraphicBuffer();
    *outFence = new Fence();
    status_t status = UNKNOWN_ERROR;
    const Return<void> result = mBase->getLastQueuedBuffer(
            [&](int32_t called, const AnwBuffer& buffer, const hidl_handle& fence,
                const hidl_array<float, 16>& matrix) {
                const bool converted = convertTo(outBuffer->get(), buffer) &&
                                       convertTo(outFence, fence, FenceSide::CLIENT);
                std::copy(matrix.data(), matrix.data() + 16, outTransformMatrix);
                status = spoil(called, converted);
            });
    return statusOf(result, status);
}

status_t H2BGraphicBufferProducer::getLastQueuedBuffer(sp<GraphicBuffer>* /*outBuffer*/,
                                                       sp<Fence>* /*outFence*/, Rect* /*outRect*/,
                                                       uint32_t* /*outTransform*/) {
    return INVALID_OPERATION;
}

void H2BGraphicBufferProducer::getFrameTimestamps(FrameEventHistoryDelta* outDelta) {
    const Return<void> result = mBase->getFrameTimestamps(
            [&](const HGraphicBufferProducer::FrameEventHistoryDelta& called) {
                convertTo(outDelta, called);
            });
    if (!result.isOk()) ALOGW("getFrameTimestamps: %s", result.description().c_str());
}

status_t H2BGraphicBufferProducer::getUniqueId(uint64_t* outId) const {
    status_t status = UNKNOWN_ERROR;
    const Return<void> result = mBase->getUniqueId([&](int32_t called, uint64_t id) {
        *outId = id;
        status = called;
    });
    return statusOf(result, status);
}

status_t H2BGraphicBufferProducer::getConsumerUsage(uint64_t* outUsage) const {
    ALOGW("getConsumerUsage: only the lower 32 bits are available");
    status_t status = UNKNOWN_ERROR;
    const Return<void> result =
            mBase->query(NATIVE_WINDOW_CONSUMER_USAGE_BITS, [&](int32_t called, int32_t value) {
                *outUsage = static_cast<uint32_t>(value);
                status = called;
            });
    return statusOf(result, status);
}

}  // namespace utils
}  // namespace V1_0
}  // namespace bufferqueue
}  // namespace graphics
}  // namespace hardware
}  // namespace android
