// SPDX-License-Identifier: Apache-2.0
#include "support/FrameCollector.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include <gtest/gtest.h>
#include <gui/bufferqueue/1.0/H2BGraphicBufferProducer.h>
#include <gui/bufferqueue/1.0/WGraphicBufferProducer.h>

namespace korvane::test {

using android::BufferItem;
using android::BufferQueue;
using android::Fence;
using android::GraphicBuffer;
using android::OK;
using android::sp;
using HidlProducer = android::hardware::graphics::bufferqueue::V1_0::IGraphicBufferProducer;

namespace {

constexpr int kMaxAcquired = 4;
constexpr std::chrono::seconds kPatience(10);

std::vector<uint8_t> fileIn(const sp<GraphicBuffer>& buffer) {
    void* address = nullptr;
    EXPECT_EQ(OK, buffer->lock(GraphicBuffer::USAGE_SW_READ_OFTEN, &address));
    const auto* bytes = static_cast<const uint8_t*>(address);
    uint16_t id = 0;
    uint32_t size = 0;
    memcpy(&id, bytes + buffer->getWidth() - 8, sizeof id);
    memcpy(&size, bytes + buffer->getWidth() - 4, sizeof size);
    EXPECT_EQ(0x00FF, id);
    EXPECT_LE(size, buffer->getWidth() - 8);
    std::vector<uint8_t> file(bytes, bytes + std::min(size, buffer->getWidth()));
    buffer->unlock();
    return file;
}

std::vector<uint8_t> planesIn(const sp<GraphicBuffer>& buffer) {
    android_ycbcr planes = {};
    EXPECT_EQ(OK, buffer->lockYCbCr(GraphicBuffer::USAGE_SW_READ_OFTEN, &planes));
    std::vector<uint8_t> nv12;
    const auto* y = static_cast<const uint8_t*>(planes.y);
    for (uint32_t line = 0; line < buffer->getHeight(); ++line, y += planes.ystride) {
        nv12.insert(nv12.end(), y, y + buffer->getWidth());
    }
    const auto* cb = static_cast<const uint8_t*>(planes.cb);
    const auto* cr = static_cast<const uint8_t*>(planes.cr);
    for (uint32_t line = 0; line < buffer->getHeight() / 2; ++line) {
        for (uint32_t x = 0; x < buffer->getWidth() / 2; ++x) {
            nv12.push_back(cb[line * planes.cstride + x * planes.chroma_step]);
            nv12.push_back(cr[line * planes.cstride + x * planes.chroma_step]);
        }
    }
    buffer->unlock();
    return nv12;
}

}  // namespace

class FrameCollector::Listener : public android::BnConsumerListener {
  public:
    explicit Listener(FrameCollector& collector) : mCollector(collector) {}

    void onFrameAvailable(const BufferItem& /*item*/) override { mCollector.onFrameAvailable(); }
    void onDisconnect() override { mCollector.onDisconnect(); }
    void onBuffersReleased() override {}
    void onSidebandStreamChanged() override {}

  private:
    FrameCollector& mCollector;
};

FrameCollector::FrameCollector() : mListener(new Listener(*this)) {
    BufferQueue::createBufferQueue(&mProducer, &mConsumer);
    EXPECT_EQ(OK, mConsumer->consumerConnect(mListener, false));
    EXPECT_EQ(OK, mConsumer->setMaxAcquiredBufferCount(kMaxAcquired));
}

FrameCollector::~FrameCollector() {
    abandon();
}

sp<HidlProducer> FrameCollector::hidlProducer() const {
    return new android::TWGraphicBufferProducer<HidlProducer>(mProducer);
}

sp<android::IGraphicBufferProducer> FrameCollector::producer() const {
    return new android::hardware::graphics::bufferqueue::V1_0::utils::H2BGraphicBufferProducer(
            hidlProducer());
}

void FrameCollector::hold() {
    const std::lock_guard<std::mutex> guard(mLock);
    mHeld = true;
}

void FrameCollector::letGo() {
    const std::lock_guard<std::mutex> guard(mLock);
    mHeld = false;
    while (mFrames.size() < mQueued) takeFrame();
}

void FrameCollector::abandon() {
    hold();  // a frame may be on its way, and nobody can take it afterwards
    mConsumer->consumerDisconnect();
}

bool FrameCollector::waitForQueued(size_t count) const {
    std::unique_lock<std::mutex> guard(mLock);
    return mChanged.wait_for(guard, kPatience, [&] { return mQueued >= count; });
}

bool FrameCollector::waitForFrames(size_t count) const {
    std::unique_lock<std::mutex> guard(mLock);
    return mChanged.wait_for(guard, kPatience, [&] { return mFrames.size() >= count; });
}

std::vector<FrameCollector::Frame> FrameCollector::frames() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mFrames;
}

bool FrameCollector::disconnected() const {
    const std::lock_guard<std::mutex> guard(mLock);
    return mDisconnected;
}

void FrameCollector::onFrameAvailable() {
    const std::lock_guard<std::mutex> guard(mLock);
    ++mQueued;
    if (!mHeld) takeFrame();
    mChanged.notify_all();
}

void FrameCollector::onDisconnect() {
    const std::lock_guard<std::mutex> guard(mLock);
    mDisconnected = true;
    mChanged.notify_all();
}

// With mLock held. An item carries its buffer only the first time for each slot.
void FrameCollector::takeFrame() {
    BufferItem item;
    ASSERT_EQ(OK, mConsumer->acquireBuffer(&item, 0));
    if (item.mGraphicBuffer != nullptr) mBuffers[item.mSlot] = item.mGraphicBuffer;
    const sp<GraphicBuffer> buffer = mBuffers[item.mSlot];
    const bool file = buffer->getPixelFormat() == HAL_PIXEL_FORMAT_BLOB;
    mFrames.push_back({item.mTimestamp, file ? fileIn(buffer) : planesIn(buffer)});
    EXPECT_EQ(OK, mConsumer->releaseBuffer(item.mSlot, item.mFrameNumber, EGL_NO_DISPLAY,
                                           EGL_NO_SYNC_KHR, Fence::NO_FENCE));
    mChanged.notify_all();
}

}  // namespace korvane::test
