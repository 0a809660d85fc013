// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "desktop-camera"

#include "ProducerSurface.h"

#include <gui/IProducerListener.h>
#include <log/log.h>
#include <system/graphics.h>
#include <system/window.h>

namespace korvane::camera {

using android::BAD_VALUE;
using android::Fence;
using android::GraphicBuffer;
using android::IGraphicBufferProducer;
using android::OK;
using android::Rect;
using android::sp;
using android::status_t;
using android::StubProducerListener;

namespace {

// One being drawn, and one waiting its turn while the host is slow.
constexpr int kMaxDequeued = 2;
// A reader that holds a buffer for longer than this will never give it back.
constexpr int kFenceTimeoutMs = 1000;

}  // namespace

ProducerSurface::ProducerSurface(const sp<IGraphicBufferProducer>& producer,
                                 const PictureFormat& format)
    : mProducer(producer), mFormat(format) {}

ProducerSurface::~ProducerSurface() {
    // Fails if the surface went first, which is how most streams end.
    if (mConnected) mProducer->disconnect(NATIVE_WINDOW_API_CAMERA);
}

status_t ProducerSurface::connect() {
    IGraphicBufferProducer::QueueBufferOutput output;
    // It receives nothing, but its death tells the service that the camera has died.
    status_t status =
            mProducer->connect(new StubProducerListener, NATIVE_WINDOW_API_CAMERA, true, &output);
    if (status != OK) return status;
    mConnected = true;
    status = mProducer->setDequeueTimeout(static_cast<nsecs_t>(1e9 / mFormat.fps));
    return status != OK ? status : mProducer->setMaxDequeuedBufferCount(kMaxDequeued);
}

status_t ProducerSurface::dequeue(Buffer* buffer) {
    const bool jpeg = mFormat.isJpeg();
    const auto width = jpeg ? static_cast<uint32_t>(mFormat.jpegLimit()) : mFormat.width;
    const uint32_t height = jpeg ? 1 : mFormat.height;
    const int format = jpeg ? HAL_PIXEL_FORMAT_BLOB : HAL_PIXEL_FORMAT_YCBCR_420_888;
    sp<Fence> fence;
    int slot = -1;
    status_t status = mProducer->dequeueBuffer(&slot, &fence, width, height, format, kUsage,
                                               nullptr, nullptr);
    if (status < 0) return status;
    if (slot < 0 || static_cast<size_t>(slot) >= mBuffers.size()) return BAD_VALUE;
    status = fetchBuffer(slot, (status & IGraphicBufferProducer::BUFFER_NEEDS_REALLOCATION) != 0);
    if (status == OK && fence != nullptr && fence->wait(kFenceTimeoutMs) != OK) {
        status = android::TIMED_OUT;
    }
    *buffer = {slot, mBuffers[slot]};
    if (status != OK) giveBack(slot, fence == nullptr ? Fence::NO_FENCE : fence);
    return status;
}

status_t ProducerSurface::fetchBuffer(int slot, bool isNew) {
    if (!isNew && mBuffers[slot] != nullptr) return OK;
    sp<GraphicBuffer> fetched;
    const status_t status = mProducer->requestBuffer(slot, &fetched);
    mBuffers[slot] = fetched;
    if (status != OK) return status;
    return fetched == nullptr ? android::NO_MEMORY : fetched->initCheck();
}

status_t ProducerSurface::queue(const Buffer& buffer, int64_t timestampNs) {
    const IGraphicBufferProducer::QueueBufferInput input(
            timestampNs, false, HAL_DATASPACE_UNKNOWN, Rect::EMPTY_RECT,
            NATIVE_WINDOW_SCALING_MODE_FREEZE, 0, Fence::NO_FENCE);
    IGraphicBufferProducer::QueueBufferOutput output;
    return mProducer->queueBuffer(buffer.slot, input, &output);
}

void ProducerSurface::cancel(const Buffer& buffer) {
    giveBack(buffer.slot, Fence::NO_FENCE);
}

void ProducerSurface::giveBack(int slot, const sp<Fence>& fence) {
    const status_t status = mProducer->cancelBuffer(slot, fence);
    if (status != OK && !isGone(status)) ALOGW("cannot give buffer %d back: %d", slot, status);
}

}  // namespace korvane::camera
