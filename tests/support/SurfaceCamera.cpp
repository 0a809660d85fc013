// SPDX-License-Identifier: Apache-2.0
#include "support/SurfaceCamera.h"

#include <stdexcept>
#include <string>

#include <gui/IGraphicBufferProducer.h>
#include <gui/bufferqueue/1.0/Conversion.h>
#include <system/window.h>

namespace korvane::test {

using ::android::GraphicBuffer;
using ::android::hardware::graphics::common::V1_0::PixelFormat;

namespace {

constexpr int kHeld = 2;
constexpr int64_t kIntervalNs = 1000000000;

// A closure small enough to fit into a std::function without allocating.
struct Result {
    int32_t status = android::UNKNOWN_ERROR;
    int32_t slot = -1;
};

void need(int32_t status, const char* call) {
    if (status >= 0) return;
    throw std::runtime_error(std::string(call) + " failed: " + std::to_string(status));
}

}  // namespace

SurfaceCamera::SurfaceCamera(const android::sp<Surface>& surface, uint32_t width, uint32_t height)
    : mSurface(surface), mWidth(width), mHeight(height) {
    Result result;
    (void)mSurface
            ->connect(nullptr, NATIVE_WINDOW_API_CAMERA, false,
                      [&result](int32_t status, const auto&) { result.status = status; })
            .isOk();
    need(result.status, "connect");
    need(mSurface->setMaxDequeuedBufferCount(kHeld), "setMaxDequeuedBufferCount");
    (void)mSurface
            ->allocateBuffers(mWidth, mHeight, static_cast<PixelFormat>(0),
                              GraphicBuffer::USAGE_SW_WRITE_OFTEN)
            .isOk();
    mFrame.surfaceDamage.resize(1);
    mFrame.surfaceDamage[0] = {0, 0, -1, -1};
}

SurfaceCamera::~SurfaceCamera() {
    (void)mSurface->disconnect(NATIVE_WINDOW_API_CAMERA, Surface::DisconnectMode::API).isOk();
}

int SurfaceCamera::dequeue() {
    Result result;
    (void)mSurface
            ->dequeueBuffer(mWidth, mHeight, static_cast<PixelFormat>(0),
                            GraphicBuffer::USAGE_SW_WRITE_OFTEN, false,
                            [&result](int32_t status, int32_t slot, const auto&, const auto&) {
                                result = {status, slot};
                            })
            .isOk();
    need(result.status, "dequeueBuffer");
    if (mBuffers[result.slot] == nullptr) request(result.slot);
    return result.slot;
}

void SurfaceCamera::request(int slot) {
    const android::sp<GraphicBuffer> buffer = new GraphicBuffer();
    bool converted = false;
    (void)mSurface
            ->requestBuffer(slot,
                            [&](int32_t /*status*/, const auto& handle) {
                                converted = android::conversion::convertTo(buffer.get(), handle);
                            })
            .isOk();
    if (!converted) throw std::runtime_error("requestBuffer failed");
    mBuffers[slot] = buffer;
}

void SurfaceCamera::queue(int slot) {
    mFrame.timestamp += kIntervalNs;
    Result result;
    (void)mSurface
            ->queueBuffer(slot, mFrame,
                          [&result](int32_t status, const auto&) { result.status = status; })
            .isOk();
    need(result.status, "queueBuffer");
}

}  // namespace korvane::test
