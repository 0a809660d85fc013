// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "H2BGraphicBufferProducer"

#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>

#include <algorithm>

#include <gui/bufferqueue/1.0/B2HProducerListener.h>
#include <log/log.h>
#include <system/window.h>

namespace android {
namespace hardware {
namespace graphics {
namespace bufferqueue {
namespace V1_0 {
namespace utils {

using ::android::conversion::AnwBuffer;
using ::android::conversion::BorrowedHandle;
using ::android::conversion::convertTo;
using ::android::conversion::FenceSide;
using ::android::conversion::wrapAs;
using HPixelFormat = ::android::hardware::graphics::common::V1_0::PixelFormat;

namespace {

/** OK as long as the call got there, else why it did not. */
template <typename T>
status_t transportStatus(const Return<T>& result) {
    if (result.isOk()) return NO_ERROR;
    return result.isDeadObject() ? static_cast<status_t>(DEAD_OBJECT)
                                 : static_cast<status_t>(UNKNOWN_ERROR);
}

status_t toStatus(Return<int32_t> result) {
    const status_t failure = transportStatus(result);
    return failure == NO_ERROR ? static_cast<status_t>(int32_t{result}) : failure;
}

/** The queue's status, which the call has set by now, unless it failed on its way. */
status_t toStatus(const Return<void>& result, const status_t& status) {
    const status_t failure = transportStatus(result);
    return failure == NO_ERROR ? status : failure;
}

/** A result that could not be converted makes a success a failure. */
void require(bool converted, status_t* status) {
    if (!converted && *status == NO_ERROR) *status = BAD_VALUE;
}

}  // namespace

status_t H2BGraphicBufferProducer::requestBuffer(int slot, sp<GraphicBuffer>* buf) {
    *buf = new GraphicBuffer();
    status_t status = UNKNOWN_ERROR;
    return toStatus(mBase->requestBuffer(slot,
                                         [&](int32_t result, const AnwBuffer& buffer) {
                                             status = result;
                                             require(convertTo(buf->get(), buffer), &status);
                                         }),
                    status);
}

status_t H2BGraphicBufferProducer::setMaxDequeuedBufferCount(int maxDequeuedBuffers) {
    return toStatus(mBase->setMaxDequeuedBufferCount(maxDequeuedBuffers));
}

status_t H2BGraphicBufferProducer::setAsyncMode(bool async) {
    return toStatus(mBase->setAsyncMode(async));
}

status_t H2BGraphicBufferProducer::dequeueBuffer(int* slot, sp<Fence>* fence, uint32_t width,
                                                 uint32_t height, ::android::PixelFormat format,
                                                 uint64_t usage, uint64_t* outBufferAge,
                                                 FrameEventHistoryDelta* outTimestamps) {
    *fence = new Fence();
    if (outBufferAge != nullptr) *outBufferAge = 0;
    status_t status = UNKNOWN_ERROR;
    const auto onResult = [&](int32_t result, int32_t resultSlot, const hidl_handle& handle,
                              const HGraphicBufferProducer::FrameEventHistoryDelta& timestamps) {
        status = result;
        *slot = resultSlot;
        require(convertTo(fence, handle, FenceSide::Client), &status);
        if (outTimestamps != nullptr) convertTo(outTimestamps, timestamps);
    };
    return toStatus(
            mBase->dequeueBuffer(width, height, static_cast<HPixelFormat>(format),
                                 static_cast<uint32_t>(usage), outTimestamps != nullptr, onResult),
            status);
}

status_t H2BGraphicBufferProducer::detachBuffer(int slot) {
    return toStatus(mBase->detachBuffer(slot));
}

status_t H2BGraphicBufferProducer::detachNextBuffer(sp<GraphicBuffer>* outBuffer,
                                                    sp<Fence>* outFence) {
    if (outBuffer == nullptr || outFence == nullptr) return BAD_VALUE;
    *outBuffer = new GraphicBuffer();
    *outFence = new Fence();
    status_t status = UNKNOWN_ERROR;
    return toStatus(mBase->detachNextBuffer(
                            [&](int32_t result, const AnwBuffer& buffer, const hidl_handle& fence) {
                                status = result;
                                require(convertTo(outBuffer->get(), buffer), &status);
                                require(convertTo(outFence, fence, FenceSide::Client), &status);
                            }),
                    status);
}

status_t H2BGraphicBufferProducer::attachBuffer(int* outSlot, const sp<GraphicBuffer>& buffer) {
    if (outSlot == nullptr || buffer == nullptr) return BAD_VALUE;
    AnwBuffer borrowed = {};
    wrapAs(&borrowed, *buffer);
    status_t status = UNKNOWN_ERROR;
    return toStatus(mBase->attachBuffer(borrowed,
                                        [&](int32_t result, int32_t slot) {
                                            status = result;
                                            if (result >= 0) *outSlot = slot;
                                        }),
                    status);
}

status_t H2BGraphicBufferProducer::queueBuffer(int slot, const QueueBufferInput& input,
                                               QueueBufferOutput* output) {
    HGraphicBufferProducer::QueueBufferInput borrowed = {};
    const BorrowedHandle fence = wrapAs(&borrowed, input);
    status_t status = UNKNOWN_ERROR;
    const auto onResult = [&](int32_t result,
                              const HGraphicBufferProducer::QueueBufferOutput& state) {
        status = result;
        convertTo(output, state);
    };
    return toStatus(mBase->queueBuffer(slot, borrowed, onResult), status);
}

status_t H2BGraphicBufferProducer::cancelBuffer(int slot, const sp<Fence>& fence) {
    if (fence == nullptr) return BAD_VALUE;
    hidl_handle handle;
    const BorrowedHandle borrowed = wrapAs(&handle, *fence, FenceSide::Client);
    return toStatus(mBase->cancelBuffer(slot, handle));
}

int H2BGraphicBufferProducer::query(int what, int* value) {
    if (value == nullptr) return BAD_VALUE;
    int result = UNKNOWN_ERROR;
    return toStatus(mBase->query(what,
                                 [&](int32_t queryResult, int32_t queryValue) {
                                     result = queryResult;
                                     *value = queryValue;
                                 }),
                    result);
}

status_t H2BGraphicBufferProducer::connect(const sp<BProducerListener>& listener, int api,
                                           bool producerControlledByApp,
                                           QueueBufferOutput* output) {
    if (output == nullptr) return BAD_VALUE;
    sp<HProducerListener> remote;
    if (listener != nullptr) remote = new B2HProducerListener(listener);
    status_t status = UNKNOWN_ERROR;
    const auto onResult = [&](int32_t result,
                              const HGraphicBufferProducer::QueueBufferOutput& state) {
        status = result;
        convertTo(output, state);
    };
    return toStatus(mBase->connect(remote, api, producerControlledByApp, onResult), status);
}

status_t H2BGraphicBufferProducer::disconnect(int api, DisconnectMode mode) {
    const bool local = mode == DisconnectMode::AllLocal;
    return toStatus(mBase->disconnect(api, local ? HGraphicBufferProducer::DisconnectMode::ALL_LOCAL
                                                 : HGraphicBufferProducer::DisconnectMode::API));
}

status_t H2BGraphicBufferProducer::setSidebandStream(const sp<NativeHandle>& stream) {
    return toStatus(
            mBase->setSidebandStream(hidl_handle(stream == nullptr ? nullptr : stream->handle())));
}

void H2BGraphicBufferProducer::allocateBuffers(uint32_t width, uint32_t height,
                                               ::android::PixelFormat format, uint64_t usage) {
    const Return<void> result = mBase->allocateBuffers(
            width, height, static_cast<HPixelFormat>(format), static_cast<uint32_t>(usage));
    if (!result.isOk()) ALOGW("%s: %s", __func__, result.description().c_str());
}

status_t H2BGraphicBufferProducer::allowAllocation(bool allow) {
    return toStatus(mBase->allowAllocation(allow));
}

status_t H2BGraphicBufferProducer::setGenerationNumber(uint32_t generationNumber) {
    return toStatus(mBase->setGenerationNumber(generationNumber));
}

String8 H2BGraphicBufferProducer::getConsumerName() const {
    String8 name;
    const Return<void> result =
            mBase->getConsumerName([&name](const hidl_string& text) { name = text.c_str(); });
    if (!result.isOk()) ALOGW("%s: %s", __func__, result.description().c_str());
    return name;
}

status_t H2BGraphicBufferProducer::setSharedBufferMode(bool sharedBufferMode) {
    return toStatus(mBase->setSharedBufferMode(sharedBufferMode));
}

status_t H2BGraphicBufferProducer::setAutoRefresh(bool autoRefresh) {
    return toStatus(mBase->setAutoRefresh(autoRefresh));
}

status_t H2BGraphicBufferProducer::setDequeueTimeout(nsecs_t timeout) {
    return toStatus(mBase->setDequeueTimeout(timeout));
}

status_t H2BGraphicBufferProducer::getLastQueuedBuffer(sp<GraphicBuffer>* outBuffer,
                                                       sp<Fence>* outFence,
                                                       float outTransformMatrix[16]) {
    status_t status = UNKNOWN_ERROR;
    const auto onResult = [&](int32_t result, const AnwBuffer& buffer, const hidl_handle& fence,
                              const hidl_array<float, 16>& matrix) {
        status = result;
        *outBuffer = new GraphicBuffer();
        require(convertTo(outBuffer->get(), buffer), &status);
        require(convertTo(outFence, fence, FenceSide::Client), &status);
        std::copy_n(matrix.data(), 16, outTransformMatrix);
    };
    return toStatus(mBase->getLastQueuedBuffer(onResult), status);
}

status_t H2BGraphicBufferProducer::getLastQueuedBuffer(sp<GraphicBuffer>* /*outBuffer*/,
                                                       sp<Fence>* /*outFence*/, Rect* /*outRect*/,
                                                       uint32_t* /*outTransform*/) {
    return INVALID_OPERATION;
}

void H2BGraphicBufferProducer::getFrameTimestamps(FrameEventHistoryDelta* outDelta) {
    const Return<void> result = mBase->getFrameTimestamps(
            [outDelta](const HGraphicBufferProducer::FrameEventHistoryDelta& delta) {
                convertTo(outDelta, delta);
            });
    if (!result.isOk()) ALOGW("%s: %s", __func__, result.description().c_str());
}

status_t H2BGraphicBufferProducer::getUniqueId(uint64_t* outId) const {
    status_t status = UNKNOWN_ERROR;
    return toStatus(mBase->getUniqueId([&](int32_t result, uint64_t id) {
        status = result;
        *outId = id;
    }),
                    status);
}

status_t H2BGraphicBufferProducer::getConsumerUsage(uint64_t* outUsage) const {
    ALOGW("%s: only the lower 32 bits are known", __func__);
    int32_t value = 0;
    status_t status = UNKNOWN_ERROR;
    const status_t result = toStatus(mBase->query(NATIVE_WINDOW_CONSUMER_USAGE_BITS,
                                                  [&](int32_t queryResult, int32_t queryValue) {
                                                      status = queryResult;
                                                      value = queryValue;
                                                  }),
                                     status);
    *outUsage = static_cast<uint32_t>(value);
    return result;
}

}  // namespace utils
}  // namespace V1_0
}  // namespace bufferqueue
}  // namespace graphics
}  // namespace hardware
}  // namespace android
